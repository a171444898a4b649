#include "Panoveer/Rendering/Projection/CPUPictureRender.h"

#include <algorithm>
#include <utility>

namespace panoveer {

namespace {

constexpr int tilesAtOnce = 32;

// The offsets of a row's samples, for one channel or for two that take turns. Pieces begin at multiples of them.
const float* ditherRow(int channels, int row) {
    using Row = std::array<float, CodeOutput::ditherLength>;
    static const auto patterns = [] {
        std::array<std::array<Row, 8>, 2> made;
        for (int y = 0; y < 8; ++y)
            for (int i = 0; i < CodeOutput::ditherLength; ++i) {
                made[0][std::size_t(y)][std::size_t(i)] = float(VideoColorMath::ditherOffset(i, y));
                made[1][std::size_t(y)][std::size_t(i)] = float(VideoColorMath::ditherOffset(i / 2 + i % 2, y));
            }
        return made;
    }();
    return patterns[std::size_t(channels - 1)][std::size_t(row & 7)].data();
}

YCbCrCodeRange sampleRange(const PixelFormatLayout& layout) {
    auto range = VideoColorMath::codeRange(layout.bytesPerSample == 1 ? 8 : 10, layout.isFullRange);
    if (layout.bytesPerSample == 2)
        for (auto* value : {&range.lumaOffset, &range.lumaScale, &range.chromaOffset, &range.chromaScale})
            *value *= 64; // ten bits in the high bits of a word
    return range;
}

// The rows of an affine map from what it does to the origin and to the three axes.
template<typename Function>
std::array<AffineRow, 3> affine(Function function) {
    const std::array<double, 3> origin = function(0, 0, 0);
    const std::array<std::array<double, 3>, 3> axes{function(1, 0, 0), function(0, 1, 0), function(0, 0, 1)};
    std::array<AffineRow, 3> rows;
    for (std::size_t i = 0; i < 3; ++i) {
        rows[i].offset = float(origin[i]);
        for (std::size_t k = 0; k < 3; ++k)
            rows[i].weights[k] = float(axes[k][i] - origin[i]);
    }
    return rows;
}

std::vector<float>& sized(std::vector<float>& values, int count) {
    values.resize(std::size_t(ColorRows::paddedCount(count)));
    return values;
}

} // namespace

struct CPUPictureRender::Colors {
    std::vector<float> samples; // as read
    std::vector<float> chroma;
    std::vector<float> r, g, b, a;
    int count = 0;

    void resize(int size) {
        count = size;
        for (auto* channel : {&r, &g, &b, &a})
            sized(*channel, size);
    }
    // One for each thread, so that pieces need no memory of their own.
    static Colors& ofThisThread() {
        thread_local Colors colors;
        return colors;
    }
};

CPUPictureRender::CPUPictureRender(Request request)
    : request_(std::move(request)),
      sourceRange_(sampleRange(request_.source->layout())),
      outputRange_(VideoColorMath::codeRange(request_.output->layout().bytesPerSample == 1 ? 8 : 10,
                                             request_.output->layout().isFullRange)) {
    const auto sourceMatrix = request_.description.yCbCrMatrix;
    toRGB_ = affine([&](double y, double cb, double cr) {
        const auto c = VideoColorMath::rgbFromYCbCr({(y - sourceRange_.lumaOffset) / sourceRange_.lumaScale,
                                                     (cb - sourceRange_.chromaOffset) / sourceRange_.chromaScale,
                                                     (cr - sourceRange_.chromaOffset) / sourceRange_.chromaScale},
                                                    sourceMatrix);
        return std::array{c.r, c.g, c.b};
    });
    const auto outputMatrix = VideoColorMath::outputMatrix(request_.colorOutputMode);
    toCodes_ = affine([&](double r, double g, double b) {
        const auto c = VideoColorMath::yCbCrFromRGB({r, g, b}, outputMatrix);
        return std::array{outputRange_.lumaOffset + outputRange_.lumaScale * c.y,
                          outputRange_.chromaOffset + outputRange_.chromaScale * c.cb,
                          outputRange_.chromaOffset + outputRange_.chromaScale * c.cr};
    });
    if (hasStraightAlpha())
        premultiplied_.resize(std::size_t(request_.source->width()) * std::size_t(request_.source->height()) * 8);
    atPixels_ = reading(request_.plan->atPixels, 0);
    if (request_.output->layout().isYCbCr())
        atChroma_ = reading(request_.plan->atChroma, 1);
}

bool CPUPictureRender::hasStraightAlpha() const {
    return !request_.source->layout().isYCbCr() && request_.description.alphaMode == AlphaMode::straight;
}

SampleView CPUPictureRender::viewOf(int plane) const {
    const auto& source = *request_.source;
    if (hasStraightAlpha())
        return {premultiplied_.data(), std::size_t(source.width()) * 8, 4, 2};
    const auto& p = source.plane(plane);
    return {p.data, p.rowBytes, plane == 1 ? 2 : source.layout().samplesPerPixel, source.layout().bytesPerSample};
}

CPUPictureRender::Plane CPUPictureRender::plane(const SampleMap& map, const SampleView& samples,
                                                std::array<float, 4> background) const {
    return {&map, samples, TileSamples(map, samples), background};
}

CPUPictureRender::Reading CPUPictureRender::reading(const ProjectionPlan::Reading& maps, int outputPlane) const {
    Reading result{.intensity = maps.intensity.empty() ? nullptr : maps.intensity.data(),
                   .width = request_.output->plane(outputPlane).width};
    if (maps.primary) {
        const auto samples = viewOf(0);
        const float opaque = samples.bytesPerSample == 1 ? 255 : 65535;
        result.primary = request_.source->layout().isYCbCr()
                             ? plane(*maps.primary, samples, {float(sourceRange_.lumaOffset)})
                             : plane(*maps.primary, samples, {0, 0, 0, request_.transparentUnmappedAreas ? 0 : opaque});
    }
    if (maps.chroma)
        result.chroma =
            plane(*maps.chroma, viewOf(1), {float(sourceRange_.chromaOffset), float(sourceRange_.chromaOffset)});
    return result;
}

std::vector<WorkerPool::Stage> CPUPictureRender::stages() {
    std::vector<WorkerPool::Stage> stages;
    if (hasStraightAlpha())
        stages.push_back({request_.source->height(), [this](int y) { premultiplyRow(y); }});

    std::vector<Plane*> planes;
    for (auto* reading : {&atPixels_, &atChroma_})
        for (auto* plane : {&reading->primary, &reading->chroma})
            if (*plane)
                planes.push_back(&**plane);
    std::vector<std::pair<Plane*, int>> tiles; // a plane and its first tile of a block
    for (auto* plane : planes)
        for (int tile = 0; tile < plane->map->tileCount(); tile += tilesAtOnce)
            tiles.emplace_back(plane, tile);
    const int tileBlocks = int(tiles.size());
    stages.push_back({tileBlocks, [tiles = std::move(tiles)](int block) {
                          auto& [plane, first] = tiles[std::size_t(block)];
                          for (int i = first; i < std::min(first + tilesAtOnce, plane->map->tileCount()); ++i)
                              plane->tiles.fill(*plane->map, plane->samples, i);
                      }});

    stages.push_back({request_.plan->atPixels.primary->blockCount(), [this](int index) { writeBlock(index); }});
    return stages;
}

CPUPictureRender::Piece CPUPictureRender::pieceOf(const SampleMap& map, int block, int row) {
    const auto& b = map.block(block);
    return {block, row, b.left, b.top + row, b.width};
}

// The pixels of a block, and the chroma samples that lie within it.
void CPUPictureRender::writeBlock(int index) const {
    const auto& pixels = *request_.plan->atPixels.primary;
    for (int row = 0; row < pixels.block(index).height; ++row)
        writePixels(pieceOf(pixels, index, row));
    if (!request_.output->layout().isYCbCr())
        return;
    const auto& maps = request_.plan->atChroma;
    const auto& chroma = maps.chroma ? *maps.chroma : *maps.primary;
    for (int row = 0; row < chroma.block(index).height; ++row)
        writeChroma(pieceOf(chroma, index, row));
}

void CPUPictureRender::premultiplyRow(int y) {
    const auto& plane = request_.source->plane(0);
    const auto* in = reinterpret_cast<const std::uint8_t*>(plane.data + std::size_t(y) * plane.rowBytes);
    auto* out = reinterpret_cast<std::uint16_t*>(premultiplied_.data()) + std::size_t(y) * std::size_t(plane.width) * 4;
    for (int x = 0; x < plane.width; ++x, in += 4, out += 4) {
        // 65535 / 255² as a fraction of 2^16, rounded.
        for (int c = 0; c < 3; ++c)
            out[c] = std::uint16_t((std::uint64_t(in[c]) * in[3] * 66050 + 0x8000) >> 16);
        out[3] = std::uint16_t(in[3] * 257);
    }
}

std::byte* CPUPictureRender::outputAt(int plane, const Piece& piece) const {
    const auto& layout = request_.output->layout();
    const auto& p = request_.output->plane(plane);
    const int samples = plane == 1 ? 2 : layout.samplesPerPixel;
    return p.data + std::size_t(piece.row) * p.rowBytes + std::size_t(piece.column * samples * layout.bytesPerSample);
}

CodeOutput CPUPictureRender::codeOutput(int plane, const Piece& piece) const {
    const int bytesPerSample = request_.output->layout().bytesPerSample;
    const bool dithers = VideoColorMath::dithers(request_.source->layout().bytesPerSample, bytesPerSample);
    return {bytesPerSample, float(outputRange_.lowest), float(outputRange_.highest),
            dithers ? ditherRow(plane + 1, piece.row) : nullptr};
}

const float* CPUPictureRender::intensityOf(const Reading& reading, const Piece& piece) {
    return reading.intensity ? reading.intensity + std::size_t(piece.row) * std::size_t(reading.width) + piece.column
                             : nullptr;
}

void CPUPictureRender::writeKept(const Reading& reading, int outputPlane, const Piece& piece, float sourceOffset,
                                 float sourceScale, float outputOffset, float outputScale) const {
    const auto& plane = outputPlane == 0 ? *reading.primary : *reading.chroma;
    const int channels = plane.samples.channels;
    const int count = piece.count * channels;
    auto& samples = sized(Colors::ofThisThread().samples, count);
    read(plane, piece, samples.data());
    if (const auto* intensity = intensityOf(reading, piece))
        for (int i = 0; i < count; ++i)
            samples[std::size_t(i)] = sourceOffset + (samples[std::size_t(i)] - sourceOffset) * intensity[i / channels];
    const float scale = outputScale / sourceScale;
    ColorRows::writeCodes(samples.data(), count, scale, outputOffset - sourceOffset * scale,
                          codeOutput(outputPlane, piece), outputAt(outputPlane, piece));
}

void CPUPictureRender::read(const Plane& plane, const Piece& piece, float* values) {
    PlaneResampler::resample(*plane.map, plane.map->block(piece.block), piece.rowInBlock, plane.samples,
                             plane.tiles.view(), plane.background.data(), values);
}

void CPUPictureRender::readAlpha(const SampleMap& map, const Piece& piece, Colors& colors) const {
    for (const auto& span : map.block(piece.block).row(piece.rowInBlock))
        std::fill(colors.a.begin() + span.begin, colors.a.begin() + span.end,
                  span.division == 0 && request_.transparentUnmappedAreas ? 0.0f : 1.0f);
}

// Straight colours of the output, limited to 0…1 unless they stay what they are.
void CPUPictureRender::readColors(const Reading& reading, const Piece& piece, Colors& colors) const {
    const auto& primary = *reading.primary;
    const int count = piece.count;
    colors.resize(count);
    auto& samples = sized(colors.samples, count * primary.samples.channels);
    read(primary, piece, samples.data());
    auto* const r = colors.r.data();
    auto* const g = colors.g.data();
    auto* const b = colors.b.data();
    if (reading.chroma) {
        const auto& plane = *reading.chroma;
        auto& chroma = sized(colors.chroma, count * 2);
        read(plane, piece, chroma.data());
        ColorRows::deinterleave2(chroma.data(), count, g, b);
        ColorRows::transform(toRGB_, count, samples.data(), g, b, r, g, b);
        readAlpha(*primary.map, piece, colors);
    } else {
        ColorRows::deinterleaveBGRA(samples.data(), count, primary.samples.bytesPerSample == 1 ? 255 : 65535, r, g, b,
                                    colors.a.data());
        if (request_.description.alphaMode == AlphaMode::opaque) {
            readAlpha(*primary.map, piece, colors);
        } else {
            // By the alpha that the same taps give, even where they overshoot: colour and alpha ring alike.
            for (int i = 0; i < count; ++i) {
                auto& alpha = colors.a[std::size_t(i)];
                const float scale = alpha > 0 ? 1 / alpha : 0;
                for (auto* channel : {r, g, b})
                    channel[i] *= scale;
                alpha = std::clamp(alpha, 0.0f, 1.0f);
            }
        }
        for (auto* channel : {r, g, b})
            ColorRows::limitToUnit(channel, count);
    }
    if (request_.curves)
        ColorRows::convert(*request_.curves, count, r, g, b);
    if (const auto* intensity = intensityOf(reading, piece))
        for (auto* channel : {r, g, b})
            for (int i = 0; i < count; ++i)
                channel[i] *= intensity[i];
}

namespace {

void multiply(std::vector<float>& values, const std::vector<float>& factors) {
    for (std::size_t i = 0; i < values.size(); ++i)
        values[i] *= factors[i];
}

} // namespace

void CPUPictureRender::writePixels(const Piece& piece) const {
    if (request_.plan->key.keepsYCbCr) {
        writeKept(atPixels_, 0, piece, float(sourceRange_.lumaOffset), float(sourceRange_.lumaScale),
                  float(outputRange_.lumaOffset), float(outputRange_.lumaScale));
        return;
    }
    auto& colors = Colors::ofThisThread();
    readColors(atPixels_, piece, colors);
    const bool isYCbCr = request_.output->layout().isYCbCr();
    // Y'CbCr has no alpha: what is transparent is black.
    if (isYCbCr || request_.description.alphaMode == AlphaMode::premultiplied)
        for (auto* channel : {&colors.r, &colors.g, &colors.b})
            multiply(*channel, colors.a);
    auto* const r = colors.r.data();
    auto* const g = colors.g.data();
    auto* const b = colors.b.data();
    auto* const out = outputAt(0, piece);
    if (isYCbCr) {
        ColorRows::transform(toCodes_, colors.count, r, g, b, r, g, b);
        ColorRows::writeCodes(r, colors.count, 1, 0, codeOutput(0, piece), out);
    } else if (request_.output->format() == pixelFormat::rgbaHalf) {
        ColorRows::writeRGBAHalf(r, g, b, colors.a.data(), colors.count, out);
    } else {
        ColorRows::writeBGRA(r, g, b, colors.a.data(), colors.count, out);
    }
}

void CPUPictureRender::writeChroma(const Piece& piece) const {
    if (request_.plan->key.keepsYCbCr) {
        writeKept(atChroma_, 1, piece, float(sourceRange_.chromaOffset), float(sourceRange_.chromaScale),
                  float(outputRange_.chromaOffset), float(outputRange_.chromaScale));
        return;
    }
    auto& colors = Colors::ofThisThread();
    readColors(atChroma_, piece, colors);
    for (auto* channel : {&colors.r, &colors.g, &colors.b})
        multiply(*channel, colors.a);
    auto* const g = colors.g.data();
    auto* const b = colors.b.data();
    ColorRows::transform(toCodes_, colors.count, colors.r.data(), g, b, colors.r.data(), g, b);
    auto& pairs = sized(colors.chroma, 2 * colors.count);
    ColorRows::interleave2(g, b, colors.count, pairs.data());
    ColorRows::writeCodes(pairs.data(), 2 * colors.count, 1, 0, codeOutput(1, piece), outputAt(1, piece));
}

} // namespace panoveer
