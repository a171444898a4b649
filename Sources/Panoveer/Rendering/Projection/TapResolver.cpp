#include "Panoveer/Rendering/Projection/TapResolver.h"

#include <algorithm>
#include <cmath>

namespace panoveer {

int TapResolver::Range::limited(int index) const { return std::clamp(index, first, last); }

int TapResolver::Range::wrapped(int index) const {
    const int count = last - first + 1;
    return first + ((index - first) % count + count) % count;
}

TapResolver::Range TapResolver::samplesWithin(const SampleAxis& axis, double low, double high) {
    const int first = std::clamp(int(std::ceil(axis.index(low))), 0, axis.count - 1);
    return {first, std::clamp(int(std::ceil(axis.index(high))) - 1, first, axis.count - 1)};
}

TapResolver::TapResolver(const PlaneGeometry& plane, const SourceLattice& lattice, const SourcePlace& around)
    : plane_(plane), lattice_(lattice), around_(around) {
    const auto area = lattice.area(around);
    columns_ = samplesWithin(plane.columns(), area.left, area.right);
    rows_ = samplesWithin(plane.rows(), area.top, area.bottom);
}

SourcePlace TapResolver::placeOf(int column, int row) const {
    return {around_.half, around_.face, plane_.columns().position(column), plane_.rows().position(row)};
}

bool TapResolver::isInside(int column, int row, int lastColumn, int lastRow) const {
    return columns_.contains(column, lastColumn) && rows_.contains(row, lastRow) &&
           lattice_.isWithinCircle(placeOf(column, row)) && lattice_.isWithinCircle(placeOf(lastColumn, row)) &&
           lattice_.isWithinCircle(placeOf(column, lastRow)) && lattice_.isWithinCircle(placeOf(lastColumn, lastRow));
}

// Linear interpolation that stays within the area of the place.
TapSource TapResolver::interpolated(const SourcePlace& place) const {
    const TapResolver other(plane_, lattice_, place);
    const double x = plane_.columns().index(place.x);
    const double y = plane_.rows().index(place.y);
    const int left = int(std::floor(x));
    const int top = int(std::floor(y));
    const auto column = [&](int index) {
        return lattice_.wrapsHorizontally() ? other.columns_.wrapped(index) : other.columns_.limited(index);
    };
    return {
        {column(left), column(left + 1)}, {other.rows_.limited(top), other.rows_.limited(top + 1)}, x - left, y - top};
}

TapSource TapResolver::resolve(int column, int row) const {
    if (isInside(column, row, column, row))
        return {{column, column}, {row, row}};
    const auto place = lattice_.resolved(placeOf(column, row), plane_.columns().pitch);
    if (lattice_.continuesBeyondArea())
        return interpolated(place);
    const int nearestColumn = columns_.limited(int(std::lround(plane_.columns().index(place.x))));
    const int nearestRow = rows_.limited(int(std::lround(plane_.rows().index(place.y))));
    return {{nearestColumn, nearestColumn}, {nearestRow, nearestRow}};
}

} // namespace panoveer
