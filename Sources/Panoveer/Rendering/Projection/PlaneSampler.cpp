#include "Panoveer/Rendering/Projection/PlaneSampler.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <numbers>

namespace panoveer {

namespace {

using std::numbers::pi;

constexpr double lanczosLobes = 4;
constexpr double widestFootprint = 4;

double sinc(double x) { return std::abs(x) < 1e-9 ? 1 : std::sin(pi * x) / (pi * x); }

// The samples of a stored plane along one axis, before it is turned.
SampleAxis storedAxis(int lumaSize, int planeSize, bool isSitedBetween) {
    if (lumaSize == planeSize)
        return {0.5, 1, planeSize};
    return {isSitedBetween ? 1.0 : 0.5, 2, planeSize};
}

SampleAxis reversed(const SampleAxis& axis, int lumaSize) {
    return {lumaSize - axis.position(axis.count - 1), axis.pitch, axis.count};
}

// Indices of the samples of an axis that lie within an area.
struct SampleRange {
    int first = 0;
    int last = 0;

    bool contains(int from, int to) const { return from >= first && to <= last; }
    int limited(int index) const { return std::clamp(index, first, last); }
    int wrapped(int index) const {
        const int count = last - first + 1;
        return first + ((index - first) % count + count) % count;
    }
};

SampleRange samplesWithin(const SampleAxis& axis, double low, double high) {
    const int first = std::clamp(int(std::ceil(axis.index(low))), 0, axis.count - 1);
    const int last = std::clamp(int(std::ceil(axis.index(high))) - 1, first, axis.count - 1);
    return {first, last};
}

struct SampleWindow {
    SampleRange columns;
    SampleRange rows;
};

SampleWindow samplesWithin(const SourcePlane& plane, const PixelArea& area) {
    return {samplesWithin(plane.columns(), area.left, area.right), samplesWithin(plane.rows(), area.top, area.bottom)};
}

void accumulate(Texel& sum, const Texel& value, double weight) {
    for (std::size_t i = 0; i < sum.size(); ++i)
        sum[i] += value[i] * weight;
}

// Linear interpolation that stays within the area of the place.
Texel interpolated(const SourcePlane& plane, const SourceLattice& lattice, const SourcePlace& place) {
    const auto window = samplesWithin(plane, lattice.area(place));
    const double x = plane.columns().index(place.x);
    const double y = plane.rows().index(place.y);
    const double left = std::floor(x);
    const double top = std::floor(y);
    Texel sum{};
    for (int j = 0; j < 2; ++j) {
        for (int i = 0; i < 2; ++i) {
            const int column = int(left) + i;
            const double weight = (i ? x - left : 1 - x + left) * (j ? y - top : 1 - y + top);
            accumulate(sum,
                       plane.texel(lattice.wrapsHorizontally() ? window.columns.wrapped(column)
                                                               : window.columns.limited(column),
                                   window.rows.limited(int(top) + j)),
                       weight);
        }
    }
    return sum;
}

// Reads a plane around a place: directly where it may, else from where the picture goes on.
class TapReader {
public:
    TapReader(const SourcePlane& plane, const SourceLattice& lattice, const SourcePlace& around)
        : plane_(plane), lattice_(lattice), around_(around), window_(samplesWithin(plane, lattice.area(around))) {}

    // Whether all samples between two corners may be read directly. Areas and circles are convex.
    bool isInside(int column, int row, int lastColumn, int lastRow) const {
        return window_.columns.contains(column, lastColumn) && window_.rows.contains(row, lastRow) &&
               lattice_.isWithinCircle(placeOf(column, row)) && lattice_.isWithinCircle(placeOf(lastColumn, row)) &&
               lattice_.isWithinCircle(placeOf(column, lastRow)) &&
               lattice_.isWithinCircle(placeOf(lastColumn, lastRow));
    }

    Texel tap(int column, int row) const {
        if (isInside(column, row, column, row))
            return plane_.texel(column, row);
        const auto place = lattice_.resolved(placeOf(column, row), plane_.columns().pitch);
        if (lattice_.continuesBeyondArea())
            return interpolated(plane_, lattice_, place);
        return plane_.texel(window_.columns.limited(int(std::lround(plane_.columns().index(place.x)))),
                            window_.rows.limited(int(std::lround(plane_.rows().index(place.y)))));
    }

private:
    SourcePlace placeOf(int column, int row) const {
        return {around_.half, around_.face, plane_.columns().position(column), plane_.rows().position(row)};
    }

    const SourcePlane& plane_;
    const SourceLattice& lattice_;
    const SourcePlace& around_;
    SampleWindow window_;
};

} // namespace

SourcePlane::SourcePlane(const PixelBuffer& buffer, int plane, SourceVideoOrientation orientation, AlphaMode alphaMode)
    : plane_(buffer.plane(plane)),
      channels_(plane == 1 ? 2 : buffer.layout().samplesPerPixel),
      bytesPerSample_(buffer.layout().bytesPerSample),
      orientation_(orientation),
      alphaMode_(alphaMode) {
    const int width = buffer.width();
    const int height = buffer.height();
    const auto across = storedAxis(width, plane_.width, false);
    const auto down = storedAxis(height, plane_.height, true);
    switch (orientation) {
    case SourceVideoOrientation::up: columns_ = across, rows_ = down; break;
    case SourceVideoOrientation::right: columns_ = reversed(down, height), rows_ = across; break;
    case SourceVideoOrientation::down: columns_ = reversed(across, width), rows_ = reversed(down, height); break;
    case SourceVideoOrientation::left: columns_ = down, rows_ = reversed(across, width); break;
    }
}

Texel SourcePlane::texel(int column, int row) const {
    int x = column;
    int y = row;
    switch (orientation_) {
    case SourceVideoOrientation::up: break;
    case SourceVideoOrientation::right: x = row, y = plane_.height - 1 - column; break;
    case SourceVideoOrientation::down: x = plane_.width - 1 - column, y = plane_.height - 1 - row; break;
    case SourceVideoOrientation::left: x = plane_.width - 1 - row, y = column; break;
    }
    const auto* at = plane_.data + std::size_t(y) * plane_.rowBytes + std::size_t(x * channels_ * bytesPerSample_);
    Texel texel{};
    for (int c = 0; c < channels_; ++c) {
        if (bytesPerSample_ == 1) {
            texel[std::size_t(c)] = double(std::to_integer<int>(at[c]));
        } else {
            std::uint16_t word = 0;
            std::memcpy(&word, at + 2 * c, 2);
            texel[std::size_t(c)] = word / 64.0; // ten bits in the high bits of the word
        }
    }
    if (channels_ < 4)
        return texel;
    const double alpha = alphaMode_ == AlphaMode::opaque ? 1 : texel[3] / 255;
    const double scale = (alphaMode_ == AlphaMode::straight ? alpha : 1) / 255;
    return {texel[2] * scale, texel[1] * scale, texel[0] * scale, alpha};
}

ResamplingWeights resamplingWeights(double fraction, int taps, double footprint) {
    ResamplingWeights result;
    if (taps <= 2) {
        result.weight = {1 - fraction, fraction};
        return result;
    }
    result.count = 8;
    result.first = -3;
    const double width = std::clamp(footprint, 1.0, widestFootprint);
    double sum = 0;
    for (int i = 0; i < result.count; ++i) {
        const double x = result.first + i - fraction;
        const double weight = sinc(x / width) * sinc(x / lanczosLobes);
        result.weight[std::size_t(i)] = weight;
        sum += weight;
    }
    for (auto& weight : result.weight)
        weight /= sum;
    return result;
}

Texel sampled(const SourcePlane& plane, const SourceLattice& lattice, const ProjectionMapping::Place& place, int taps) {
    const double x = plane.columns().index(place.source.x);
    const double y = plane.rows().index(place.source.y);
    const auto across = resamplingWeights(x - std::floor(x), taps, place.footprint.x / plane.columns().pitch);
    const auto down = resamplingWeights(y - std::floor(y), taps, place.footprint.y / plane.rows().pitch);
    const int column = int(std::floor(x)) + across.first;
    const int row = int(std::floor(y)) + down.first;
    const TapReader reader(plane, lattice, place.source);
    const bool isInside = reader.isInside(column, row, column + across.count - 1, row + down.count - 1);
    Texel sum{};
    for (int j = 0; j < down.count; ++j) {
        for (int i = 0; i < across.count; ++i) {
            const double weight = across.weight[std::size_t(i)] * down.weight[std::size_t(j)];
            if (weight != 0)
                accumulate(sum, isInside ? plane.texel(column + i, row + j) : reader.tap(column + i, row + j), weight);
        }
    }
    return sum;
}

} // namespace panoveer
