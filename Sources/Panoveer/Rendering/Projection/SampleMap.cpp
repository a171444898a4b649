#include "Panoveer/Rendering/Projection/SampleMap.h"

#include "Panoveer/Rendering/Projection/ParallelRows.h"
#include "Panoveer/Rendering/Projection/ResamplingKernels.h"
#include "Panoveer/Rendering/Projection/SmoothPatch.h"
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

using Place = ProjectionMapping::Place;

// Of the share of a sample.
std::uint32_t phaseOf(double fraction) { return std::uint32_t(int(fraction * ResamplingKernels::phases + 0.5)); }

// A window along one upright axis: its first sample, and how far beyond the one before the place it lies, in phases.
struct AxisWindow {
    int first = 0;
    int phase = 0;
    int width = 0;
};

AxisWindow axisWindow(double index, double footprint, int taps) {
    const double below = std::floor(index);
    return {int(below) + (taps == 2 ? 0 : ResamplingKernels::firstTap), int(phaseOf(index - below)),
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
        std::optional<AnchorGrid> anchors;
        if (!mapping_.hasMesh()) // a mesh bends at every edge of a triangle
            anchors.emplace(*this, block);
        std::vector<std::optional<Square>> squares; // across the block
        for (int top = 0; top < block.height; top += SmoothPatch::side) {
            squares.clear();
            for (int left = 0; left < block.width; left += SmoothPatch::side)
                squares.push_back(anchors ? square(anchors->around(left, top)) : std::nullopt);
            for (int row = top; row < std::min(top + SmoothPatch::side, block.height); ++row) {
                block.firstSpans.push_back(std::uint32_t(block.spans.size()));
                fillRow(block, row, squares);
            }
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

    // Exact places of a block and around it.
    class AnchorGrid {
    public:
        AnchorGrid(const Builder& builder, const Block& block)
            : columnCount_(std::size_t(block.width - 1) / SmoothPatch::side + 4) {
            constexpr int side = SmoothPatch::side;
            for (int row = -side; row < block.height + 2 * side; row += side)
                for (int i = 0; i < int(columnCount_); ++i)
                    places_.push_back(builder.placeAt(block.left + (i - 1) * side, builder.yOf(block.top + row)));
        }

        // A sample of the block whose column and row are multiples of the side.
        SmoothPatch::Anchors around(int column, int row) const {
            SmoothPatch::Anchors anchors;
            for (std::size_t i = 0; i < 4; ++i)
                for (std::size_t j = 0; j < 4; ++j)
                    anchors[i][j] = places_[(std::size_t(row) / SmoothPatch::side + i) * columnCount_ +
                                            std::size_t(column) / SmoothPatch::side + j];
            return anchors;
        }

    private:
        std::size_t columnCount_;
        std::vector<std::optional<Place>> places_;
    };

    // A smooth patch whose windows all lie within the picture: its entries, sample by sample.
    struct Square {
        int division = 1;
        std::vector<SampleEntry> entries;
    };

    // What neighbouring samples share while a row is made.
    struct RowState {
        std::size_t firstSpan = 0;
        double y = 0;
        std::optional<TapResolver> resolver; // of the half and face that it was made for
        int half = 0;
        int face = 0;
    };

    // No value where samples have to be looked at one by one.
    std::optional<Square> square(const SmoothPatch::Anchors& anchors) const {
        auto patch = SmoothPatch::make(anchors);
        if (!patch)
            return std::nullopt;
        const auto divisionAt = [&](std::size_t i, std::size_t j) {
            return ProjectionMapping::division(anchors[i][j]->footprint, sampleSize_);
        };
        Square square{divisionAt(1, 1), {}};
        if (divisionAt(1, 2) != square.division || divisionAt(2, 1) != square.division ||
            divisionAt(2, 2) != square.division)
            return std::nullopt;
        patch->convertToStoredSamples(plane_);
        const auto length = std::size_t(SmoothPatch::side * square.division);
        std::vector<double> x(length * length), y(length * length);
        for (std::size_t row = 0; row < length; ++row)
            patch->row(int(row), square.division, std::span(x).subspan(row * length, length),
                       std::span(y).subspan(row * length, length));
        if (!allWindowsAreInside(x, y, *patch))
            return std::nullopt;
        fillSquare(square, x, y, *patch);
        return square;
    }

    // Of places in stored samples.
    bool allWindowsAreInside(std::span<const double> x, std::span<const double> y, const SmoothPatch& patch) const {
        const auto [left, right] = std::ranges::minmax(x);
        const auto [top, bottom] = std::ranges::minmax(y);
        const int firstTap = taps_ == 2 ? 0 : ResamplingKernels::firstTap;
        const Position first{int(std::floor(left)) + firstTap, int(std::floor(top)) + firstTap};
        const Position last{int(std::floor(right)) + firstTap + taps_ - 1,
                            int(std::floor(bottom)) + firstTap + taps_ - 1};
        const auto a = plane_.upright(first), b = plane_.upright(last);
        const TapResolver resolver(plane_, mapping_.sourceLattice(), {patch.half(), patch.face(), 0, 0});
        return resolver.isInside(std::min(a.x, b.x), std::min(a.y, b.y), std::max(a.x, b.x), std::max(a.y, b.y)) &&
               last.x + std::max(4 - taps_, 0) < plane_.storedSize().width; // two taps are read four samples at once
    }

    void fillSquare(Square& square, std::span<const double> x, std::span<const double> y,
                    const SmoothPatch& patch) const {
        constexpr std::size_t side = SmoothPatch::side;
        const auto division = std::size_t(square.division);
        const auto widthsAt = [&](std::size_t column, std::size_t row) {
            return kernelWidths(patch.footprint(int(column), int(row)), square.division);
        };
        auto widths = widthsAt(0, 0);
        const bool isEven =
            widthsAt(0, side) == widths && widthsAt(side, 0) == widths && widthsAt(side, side) == widths;
        const int firstTap = taps_ == 2 ? 0 : ResamplingKernels::firstTap;
        square.entries.resize(x.size());
        auto* next = square.entries.data();
        for (std::size_t row = 0; row < side; ++row)
            for (std::size_t column = 0; column < side; ++column) {
                if (!isEven)
                    widths = widthsAt(column, row);
                for (std::size_t j = 0; j < division; ++j)
                    for (std::size_t i = 0; i < division; ++i) {
                        const auto at = (row * division + j) * side * division + column * division + i;
                        const int left = int(x[at]), top = int(y[at]); // not below 0, for they lie inside
                        *next++ = {std::uint32_t((left + firstTap) | (top + firstTap) << 16),
                                   widths + phaseOf(x[at] - left) + (phaseOf(y[at] - top) << 15)};
                    }
            }
    }

    // As kernels of phase 0, packed as an entry has them.
    std::uint32_t kernelWidths(Footprint footprint, int division) const {
        if (taps_ == 2)
            return 0;
        const auto of = [&](double covered) {
            return std::uint32_t(ResamplingKernels::index(0, ResamplingKernels::widthIndex(covered / division)));
        };
        return of(footprint.x) | of(footprint.y) << 15;
    }

    void fillRow(Block& block, int row, std::span<const std::optional<Square>> squares) {
        RowState state{.firstSpan = block.spans.size(), .y = yOf(block.top + row)};
        for (int begin = 0; begin < block.width; begin += SmoothPatch::side) {
            const int count = std::min(SmoothPatch::side, block.width - begin);
            if (const auto& square = squares[std::size_t(begin / SmoothPatch::side)]) {
                extendSpan(block, state, begin, count, square->division);
                const auto each = std::size_t(square->division) * std::size_t(square->division);
                const auto first = square->entries.begin() +
                                   std::ptrdiff_t(std::size_t(row % SmoothPatch::side) * SmoothPatch::side * each);
                block.entries.insert(block.entries.end(), first, first + std::ptrdiff_t(std::size_t(count) * each));
                continue;
            }
            for (int i = begin; i < begin + count; ++i)
                append(block, state, i, placeAt(block.left + i, state.y));
        }
    }

    double xOf(int column) const { return grid_.originX + column * grid_.pitch.x; }
    double yOf(int row) const { return grid_.originY + row * grid_.pitch.y; }

    std::optional<Place> placeAt(int column, double y) const { return mapping_.place(xOf(column), y, grid_.pitch); }

    static void extendSpan(Block& block, const RowState& row, int column, int count, int division) {
        if (block.spans.size() == row.firstSpan || block.spans.back().division != division)
            block.spans.push_back({column, column, division, std::uint32_t(block.entries.size())});
        block.spans.back().end = column + count;
    }

    void append(Block& block, RowState& row, int column, const std::optional<Place>& place) {
        const int division = place ? ProjectionMapping::division(place->footprint, sampleSize_) : 0;
        extendSpan(block, row, column, 1, division);
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
