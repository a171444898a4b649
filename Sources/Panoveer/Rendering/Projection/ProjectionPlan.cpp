#include "Panoveer/Rendering/Projection/ProjectionPlan.h"

#include "Panoveer/Rendering/Projection/ParallelRows.h"
#include "Platform/Core/Error.h"

namespace panoveer {

namespace {

PictureSize planeSize(PictureSize picture, const PixelFormatLayout& layout) {
    return {(picture.width + (1 << layout.chromaWidthShift) - 1) >> layout.chromaWidthShift,
            (picture.height + (1 << layout.chromaHeightShift) - 1) >> layout.chromaHeightShift};
}

// Chroma lies in the middle of its left luma column, between its rows.
OutputGrid chromaGrid(PictureSize picture, const PixelFormatLayout& layout) {
    const auto size = planeSize(picture, layout);
    const Footprint pitch{double(1 << layout.chromaWidthShift), double(1 << layout.chromaHeightShift)};
    return {size.width, size.height, 0.5, 0.5 * pitch.y, pitch};
}

std::vector<float> intensities(const ProjectionMapping& mapping, const OutputGrid& grid) {
    if (!mapping.hasMesh())
        return {};
    std::vector<float> values(std::size_t(grid.width) * std::size_t(grid.height));
    forEachRowInParallel(grid.height, [&](int row) {
        for (int column = 0; column < grid.width; ++column)
            values[std::size_t(row) * std::size_t(grid.width) + std::size_t(column)] =
                float(mapping.intensity(grid.originX + column * grid.pitch.x, grid.originY + row * grid.pitch.y));
    });
    return values;
}

} // namespace

ProjectionPlan::ProjectionPlan(const ProjectionPlanKey& k) : key(k) {
    const auto source = *layoutOf(key.sourceFormat);
    const auto output = *layoutOf(key.outputFormat);
    const auto upright =
        swapsDimensions(key.orientation) ? PictureSize{key.sourceSize.height, key.sourceSize.width} : key.sourceSize;
    const ProjectionMapping mapping(key.transform, key.outputSize, upright);
    const PlaneGeometry primary(key.sourceSize, key.sourceSize, key.orientation);
    const PlaneGeometry chroma(key.sourceSize, planeSize(key.sourceSize, source), key.orientation);

    const OutputGrid pixels{key.outputSize.width, key.outputSize.height};
    const PictureSize block{blockSize, blockSize};
    atPixels.intensity = intensities(mapping, pixels);
    atPixels.primary.emplace(mapping, primary, pixels, key.taps, Footprint{}, block);
    if (source.isYCbCr() && !key.keepsYCbCr)
        atPixels.chroma.emplace(mapping, chroma, pixels, key.taps, Footprint{}, block);
    if (!output.isYCbCr())
        return;
    const auto grid = chromaGrid(key.outputSize, output);
    atChroma.intensity = intensities(mapping, grid);
    const PictureSize chromaBlock{blockSize >> output.chromaWidthShift, blockSize >> output.chromaHeightShift};
    if (key.keepsYCbCr) {
        atChroma.chroma.emplace(mapping, chroma, grid, key.taps, Footprint{chroma.columns().pitch, chroma.rows().pitch},
                                chromaBlock);
        return;
    }
    atChroma.primary.emplace(mapping, primary, grid, key.taps, Footprint{}, chromaBlock);
    if (source.isYCbCr())
        atChroma.chroma.emplace(mapping, chroma, grid, key.taps, Footprint{}, chromaBlock);
}

std::size_t ProjectionPlan::byteCount() const {
    std::size_t sum = 0;
    for (const auto* reading : {&atPixels, &atChroma}) {
        for (const auto* map : {&reading->primary, &reading->chroma})
            sum += *map ? (*map)->byteCount() : 0;
        sum += reading->intensity.capacity() * sizeof(float);
    }
    return sum;
}

} // namespace panoveer
