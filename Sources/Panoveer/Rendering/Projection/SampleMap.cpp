#include "Panoveer/Rendering/Projection/SampleMap.h"

#include "Panoveer/Rendering/Projection/ParallelRows.h"
#include "Panoveer/Rendering/Projection/ResamplingKernels.h"
#include "Panoveer/Rendering/Projection/TapResolver.h"
#include "Platform/Core/Error.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <map>
#include <mutex>
#include <optional>
#include <span>
#include <utility>

namespace panoveer {

namespace {

using Position = PlaneGeometry::Position;

// Most of a picture is smooth: exact places, which cost ten times as much as all else, are needed only once in this
// many samples. Between them a cubic through the two on either side is good to a thousandth of a pixel, as long as
// these four belong to one face and change alike.
constexpr int anchorDistance = 8;
constexpr double footprintLikeness = 1.02;      // less than what tells two widths of a kernel apart
constexpr double largestThirdDifference = 0.02; // pixels; more than that is an edge or a pole

using Place = ProjectionMapping::Place;

bool areAlike(const Place& a, const Place& b) {
    const auto isClose = [](double x, double y) { return x <= y * footprintLikeness && y <= x * footprintLikeness; };
    return a.source.half == b.source.half && a.source.face == b.source.face && isClose(a.footprint.x, b.footprint.x) &&
           isClose(a.footprint.y, b.footprint.y);
}

// Four anchors, of which the two in the middle are the ends of a run.
using Anchors = std::span<const std::optional<Place>, 4>;

bool isSmooth(Anchors p) {
    for (std::size_t i = 0; i < 4; ++i)
        if (!p[i] || (i > 0 && !areAlike(*p[i - 1], *p[i])))
            return false;
    const auto thirdDifference = [&](double SourcePlace::* axis) {
        const auto at = [&](std::size_t i) { return p[i]->source.*axis; };
        return at(3) - at(0) + 3 * (at(1) - at(2));
    };
    return std::abs(thirdDifference(&SourcePlace::x)) < largestThirdDifference &&
           std::abs(thirdDifference(&SourcePlace::y)) < largestThirdDifference;
}

// At a share 0…1 of the way between the anchors in the middle: Lagrange's cubic for the place.
Place interpolated(Anchors p, double t) {
    const std::array weights{-t * (t - 1) * (t - 2) / 6, (t + 1) * (t - 1) * (t - 2) / 2, -(t + 1) * t * (t - 2) / 2,
                             (t + 1) * t * (t - 1) / 6};
    Place place = *p[1];
    place.source.x = place.source.y = 0;
    for (std::size_t i = 0; i < 4; ++i) {
        place.source.x += weights[i] * p[i]->source.x;
        place.source.y += weights[i] * p[i]->source.y;
    }
    place.footprint = {std::lerp(p[1]->footprint.x, p[2]->footprint.x, t),
                       std::lerp(p[1]->footprint.y, p[2]->footprint.y, t)};
    return place;
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
            int((index - below) * ResamplingKernels::phases + 0.5),
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
        block.entries.reserve(std::size_t(block.width) * std::size_t(block.height));
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

    // What neighbouring samples share while a row is made.
    struct RowState {
        std::size_t firstSpan = 0;
        double y = 0;
        std::optional<TapResolver> resolver; // of the half and face that it was made for
        int half = 0;
        int face = 0;
    };

    void fillRow(Block& block, double y) {
        RowState row{.firstSpan = block.spans.size(), .y = y};
        std::vector<std::optional<Place>> anchors; // from the one before the row's first sample on
        for (int column = -anchorDistance; column < block.width + 2 * anchorDistance; column += anchorDistance)
            anchors.push_back(placeAt(block.left + column, y));
        for (int begin = 0; begin < block.width; begin += anchorDistance) {
            const Anchors around(anchors.data() + begin / anchorDistance, 4);
            const bool isSmoothRun = isSmooth(around);
            append(block, row, begin, around[1]);
            for (int i = 1; i < std::min(anchorDistance, block.width - begin); ++i)
                append(block, row, begin + i,
                       isSmoothRun ? interpolated(around, double(i) / anchorDistance)
                                   : placeAt(block.left + begin + i, y));
        }
    }

    double xOf(int column) const { return grid_.originX + column * grid_.pitch.x; }

    std::optional<Place> placeAt(int column, double y) const { return mapping_.place(xOf(column), y, grid_.pitch); }

    void append(Block& block, RowState& row, int column, const std::optional<Place>& place) {
        const int division = place ? ProjectionMapping::division(place->footprint, sampleSize_) : 0;
        if (block.spans.size() == row.firstSpan || block.spans.back().division != division)
            block.spans.push_back({column, column, division, std::uint32_t(block.entries.size())});
        block.spans.back().end = column + 1;
        if (division == 1)
            block.entries.push_back(entry(*place, row));
        if (division <= 1)
            return;
        const double x = xOf(block.left + column);
        const Footprint part{grid_.pitch.x / division, grid_.pitch.y / division};
        const Footprint footprint{place->footprint.x / division, place->footprint.y / division};
        for (int j = 0; j < division; ++j)
            for (int i = 0; i < division; ++i) {
                const auto found = mapping_.position(x + (i + 0.5) * part.x - grid_.pitch.x / 2,
                                                     row.y + (j + 0.5) * part.y - grid_.pitch.y / 2);
                block.entries.push_back(entry({found.value_or(place->source), footprint}, row));
            }
    }

    const TapResolver& resolverFor(const SourcePlace& place, RowState& row) const {
        if (!row.resolver || row.half != place.half || row.face != place.face) {
            row.resolver.emplace(plane_, mapping_.sourceLattice(), place);
            row.half = place.half;
            row.face = place.face;
        }
        return *row.resolver;
    }

    SampleEntry entry(const Place& place, RowState& row) {
        auto across =
            axisWindow(plane_.columns().index(place.source.x), place.footprint.x / plane_.columns().pitch, taps_);
        auto down = axisWindow(plane_.rows().index(place.source.y), place.footprint.y / plane_.rows().pitch, taps_);
        const auto& resolver = resolverFor(place.source, row);
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
