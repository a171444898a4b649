#pragma once

#include "Panoveer/Rendering/Projection/PlaneGeometry.h"
#include "Panoveer/Rendering/Projection/SourceLattice.h"

namespace panoveer {

// Where the value of a tap comes from: a linear blend of the four samples at the crossings of two columns and two rows.
struct TapSource {
    int columns[2];
    int rows[2];
    double fractionX = 0; // 0: the first column alone
    double fractionY = 0;
};

// Which samples of a plane a filter may blend around a place: directly those of the place's own image or face, and
// beyond its edges those where the picture really goes on. A value; safe from any thread while its plane and lattice
// live.
class TapResolver {
public:
    TapResolver(const PlaneGeometry& plane, const SourceLattice& lattice, const SourcePlace& around);

    // Whether all samples from one corner to the other may be read directly, in upright columns and rows. Areas and
    // circles are convex.
    bool isInside(int column, int row, int lastColumn, int lastRow) const;

    // The samples that make up the tap of any column and row.
    TapSource resolve(int column, int row) const;

private:
    struct Range {
        int first = 0;
        int last = 0;

        bool contains(int from, int to) const { return from >= first && to <= last; }
        int limited(int index) const;
        int wrapped(int index) const;
    };
    static Range samplesWithin(const SampleAxis& axis, double low, double high);

    SourcePlace placeOf(int column, int row) const;
    TapSource interpolated(const SourcePlace& place) const;

    const PlaneGeometry& plane_;
    const SourceLattice& lattice_;
    SourcePlace around_;
    Range columns_;
    Range rows_;
};

} // namespace panoveer
