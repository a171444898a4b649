#include "Panoveer/Rendering/Projection/SampleMap.h"

#include "Panoveer/Rendering/Projection/ParallelRows.h"
#include "Panoveer/Rendering/Projection/ResamplingKernels.h"
#include "Panoveer/Rendering/Projection/TapResolver.h"
#include "Platform/Core/Error.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <mutex>
#include <optional>
#include <utility>

namespace panoveer {

namespace {

using Position = PlaneGeometry::Position;

// Footprints mostly change slowly, and to measure one costs twice what its place does. So they are measured once in
// this many samples, and where they are all but alike, on one face, they are interpolated.
constexpr int footprintRun = 8;
constexpr double footprintLikeness = 1.02; // less than what tells two widths of a kernel apart

bool areAlike(const ProjectionMapping::Place& a, const ProjectionMapping::Place& b) {
    const auto isClose = [](double x, double y) { return x <= y * footprintLikeness && y <= x * footprintLikeness; };
    return a.source.half == b.source.half && a.source.face == b.source.face &&
           isClose(a.footprint.x, b.footprint.x) && isClose(a.footprint.y, b.footprint.y);
}

// A window along one upright axis: its first sample, and how far beyond the one before the place it lies, in phases.
struct AxisWindow {
    int first = 0;
    int phase = 0;
    int width = 0;
};

AxisWindow axisWindow(double index, double footprint, int taps) {
    const double below = std::floor(index);
    return {int(below) + (taps == 2 ? 0 : ResamplingKernels::firstTap),
            int(std::lround((index - below) * ResamplingKernels::phases)),
            taps == 2 ? 0 : ResamplingKernels::widthIndex(footprint)};
}

// The same window seen along an axis that runs backward.
AxisWindow mirrored(const AxisWindow& window) {
    return {window.first, ResamplingKernels::phases - window.phase, window.width};
}

int floorToStep(int value) { return int(std::floor(double(value) / SampleMap::tileStep)) * SampleMap::tileStep; }

} // namespace

// Works out the blocks, several at a time.
class SampleMap::Builder {
public:
    Builder(const ProjectionMapping& mapping, const PlaneGeometry& plane, const OutputGrid& grid, int taps,
            Footprint sampleSize)
        : mapping_(mapping), plane_(plane), grid_(grid), taps_(taps), sampleSize_(sampleSize) {}

    void fillBlock(Block& block) {
        for (int row = 0; row < block.height; ++row) {
            block.firstSpans.push_back(std::uint32_t(block.spans.size()));
            fillRow(block, grid_.originY + (block.top + row) * grid_.pitch.y);
        }
        block.firstSpans.push_back(std::uint32_t(block.spans.size()));
        block.entries.shrink_to_fit();
    }

    std::vector<TileSample> makeTileSamples() const {
        std::vector<TileSample> samples(tiles_.size() * tileSize * tileSize);
        std::vector<const std::pair<const TileKey, int>*> tiles;
        for (const auto& tile : tiles_)
            tiles.push_back(&tile);
        forEachRowInParallel(int(tiles.size()), [&](int i) {
            const auto& [key, number] = *tiles[std::size_t(i)];
            fillTile(key, samples.data() + std::size_t(number) * tileSize * tileSize);
        });
        return samples;
    }

private:
    struct TileKey {
        int half = 0;
        int face = 0;
        int x = 0; // of the first stored sample, a multiple of tileStep
        int y = 0;
        auto operator<=>(const TileKey&) const = default;
    };

    void fillRow(Block& block, double y) {
        const auto rowBegin = block.spans.size();
        const int end = block.left + block.width;
        auto previous = measured(block.left - footprintRun, y);
        auto first = measured(block.left, y);
        for (int begin = block.left; begin < end; begin += footprintRun) {
            const auto next = measured(begin + footprintRun, y);
            // Of three, for two may lie alike on either side of a pole.
            const bool isSmooth = previous && first && next && areAlike(*previous, *first) && areAlike(*first, *next);
            append(block, rowBegin, begin, y, first);
            for (int column = begin + 1; column < std::min(begin + footprintRun, end); ++column) {
                const double share = double(column - begin) / footprintRun;
                append(block, rowBegin, column, y,
                       isSmooth ? between(*first, *next, share, column, y) : measured(column, y));
            }
            previous = std::exchange(first, next);
        }
    }

    double xOf(int column) const { return grid_.originX + column * grid_.pitch.x; }

    std::optional<ProjectionMapping::Place> measured(int column, double y) const {
        return mapping_.place(xOf(column), y, grid_.pitch);
    }

    // At a column between two places with alike footprints.
    std::optional<ProjectionMapping::Place> between(const ProjectionMapping::Place& first,
                                                    const ProjectionMapping::Place& next, double share, int column,
                                                    double y) const {
        const auto source = mapping_.position(xOf(column), y);
        if (!source)
            return std::nullopt;
        return ProjectionMapping::Place{*source,
                                        {std::lerp(first.footprint.x, next.footprint.x, share),
                                         std::lerp(first.footprint.y, next.footprint.y, share)}};
    }

    void append(Block& block, std::size_t rowBegin, int column, double y,
                const std::optional<ProjectionMapping::Place>& place) {
        const int division = place ? ProjectionMapping::division(place->footprint, sampleSize_) : 0;
        const int inBlock = column - block.left;
        if (block.spans.size() == rowBegin || block.spans.back().division != division)
            block.spans.push_back({inBlock, inBlock, division, std::uint32_t(block.entries.size())});
        block.spans.back().end = inBlock + 1;
        if (division == 1)
            block.entries.push_back(entry(*place));
        if (division <= 1)
            return;
        const double x = xOf(column);
        const Footprint part{grid_.pitch.x / division, grid_.pitch.y / division};
        const Footprint footprint{place->footprint.x / division, place->footprint.y / division};
        for (int j = 0; j < division; ++j)
            for (int i = 0; i < division; ++i) {
                const auto found = mapping_.position(x + (i + 0.5) * part.x - grid_.pitch.x / 2,
                                                     y + (j + 0.5) * part.y - grid_.pitch.y / 2);
                block.entries.push_back(entry({found.value_or(place->source), footprint}));
            }
    }

    SampleEntry entry(const ProjectionMapping::Place& place) {
        auto across = axisWindow(plane_.columns().index(place.source.x), place.footprint.x / plane_.columns().pitch, taps_);
        auto down = axisWindow(plane_.rows().index(place.source.y), place.footprint.y / plane_.rows().pitch, taps_);
        const TapResolver resolver(plane_, mapping_.sourceLattice(), place.source);
        const Position last{across.first + taps_ - 1, down.first + taps_ - 1};
        bool isInside = resolver.isInside(across.first, down.first, last.x, last.y);
        const auto a = plane_.stored({across.first, down.first});
        const auto b = plane_.stored(last);
        const Position first{std::min(a.x, b.x), std::min(a.y, b.y)};
        // Two taps are read four samples at once.
        isInside = isInside && first.x + std::max(taps_, 4) <= plane_.storedSize().width;
        if (plane_.reversesColumns())
            across = mirrored(across);
        if (plane_.reversesRows())
            down = mirrored(down);
        if (plane_.swapsAxes())
            std::swap(across, down);
        const auto kernels = std::uint32_t(ResamplingKernels::index(across.phase, across.width) |
                                           ResamplingKernels::index(down.phase, down.width) << 15);
        if (isInside)
            return {std::uint32_t(first.x | first.y << 16), kernels};
        const TileKey key{place.source.half, place.source.face, floorToStep(first.x), floorToStep(first.y)};
        const int within = (first.y - key.y) << 3 | (first.x - key.x);
        return {std::uint32_t(tileNumber(key) << 6 | within), kernels | 1u << 30};
    }

    int tileNumber(const TileKey& key) {
        std::lock_guard lock(mutex_);
        return tiles_.try_emplace(key, int(tiles_.size())).first->second;
    }

    void fillTile(const TileKey& key, TileSample* samples) const {
        // Any place of the image or face will do to say which one it is.
        const TapResolver resolver(plane_, mapping_.sourceLattice(), {key.half, key.face, 0, 0});
        for (int y = 0; y < tileSize; ++y)
            for (int x = 0; x < tileSize; ++x) {
                const auto upright = plane_.upright({key.x + x, key.y + y});
                const auto tap = resolver.resolve(upright.x, upright.y);
                *samples++ = tileSample(tap);
            }
    }

    TileSample tileSample(const TapSource& tap) const {
        const auto first = plane_.stored({tap.columns[0], tap.rows[0]});
        const auto second = plane_.stored({tap.columns[1], tap.rows[1]});
        const auto fraction = [](double f) { return std::uint16_t(std::lround(f * 256)); };
        TileSample sample{{std::uint16_t(first.x), std::uint16_t(second.x)},
                          {std::uint16_t(first.y), std::uint16_t(second.y)},
                          fraction(tap.fractionX),
                          fraction(tap.fractionY)};
        if (plane_.swapsAxes())
            std::swap(sample.fractionX, sample.fractionY);
        return sample;
    }

    const ProjectionMapping& mapping_;
    const PlaneGeometry& plane_;
    const OutputGrid& grid_;
    int taps_;
    Footprint sampleSize_;
    std::mutex mutex_;
    std::map<TileKey, int> tiles_; // guarded by mutex_ while rows are made
};

SampleMap::SampleMap(const ProjectionMapping& mapping, const PlaneGeometry& plane, const OutputGrid& grid, int taps,
                     Footprint sampleSize, PictureSize blockSize)
    : taps_(taps) {
    const auto size = plane.storedSize();
    if (size.width > largestPlane || size.height > largestPlane)
        throw Error("A picture of " + std::to_string(size.width) + "x" + std::to_string(size.height) +
                        " is larger than what can be projected",
                    std::string(mediaErrorDomain), -6680);
    for (int top = 0; top < grid.height; top += blockSize.height)
        for (int left = 0; left < grid.width; left += blockSize.width)
            blocks_.push_back({.left = left,
                               .top = top,
                               .width = std::min(blockSize.width, grid.width - left),
                               .height = std::min(blockSize.height, grid.height - top)});
    Builder builder(mapping, plane, grid, taps, sampleSize);
    forEachRowInParallel(blockCount(), [&](int i) { builder.fillBlock(blocks_[std::size_t(i)]); });
    tileSamples_ = builder.makeTileSamples();
}

std::size_t SampleMap::byteCount() const {
    std::size_t sum = tileSamples_.capacity() * sizeof(TileSample);
    for (const auto& block : blocks_)
        sum += block.entries.capacity() * sizeof(SampleEntry) + block.spans.capacity() * sizeof(Span);
    return sum;
}

} // namespace panoveer
