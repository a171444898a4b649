#pragma once

#include "Panoveer/Rendering/Projection/PlaneGeometry.h"
#include "Panoveer/Rendering/Projection/ProjectionMapping.h"

#include <array>
#include <optional>
#include <span>

namespace panoveer {

// A square of output samples whose places in the source follow from 16 exact ones around it: the anchors, `side`
// samples apart. Most of a picture is smooth, and exact places cost a hundred times as much. A value.
//
//    a00   a01   a02   a03
//
//    a10   a11---a12   a13     the patch: from a11 up to, not including, a12 and a21
//           |     |
//    a20   a21---a22   a23
//
//    a30   a31   a32   a33
class SmoothPatch {
public:
    static constexpr int side = 8;
    static constexpr int finestParts = ProjectionMapping::finestDivision;

    using Anchors = std::array<std::array<std::optional<ProjectionMapping::Place>, 4>, 4>; // row by row

    // No value unless all anchors belong to one face and change so evenly that a cubic is good to a hundredth of a
    // source pixel. Of a mapping that is smooth but for seams, poles, faces and rims.
    static std::optional<SmoothPatch> make(const Anchors& anchors);

    // From now on, places are stored columns and rows of a plane, and footprints are counted in its samples.
    void convertToStoredSamples(const PlaneGeometry& plane);

    int half() const { return half_; }
    int face() const { return face_; }
    // Of the sample in a column and row.
    Footprint footprint(int column, int row) const;

    // Of a row of samples that are each divided into `parts` along both axes, side * parts places. Row 0 is the first
    // part of the patch's first sample.
    void row(int index, int parts, std::span<double> x, std::span<double> y) const;

private:
    int half_ = 0;
    int face_ = 0;
    std::array<std::array<double, 4>, 4> x_{}, y_{};
    std::array<std::array<Footprint, 2>, 2> footprints_; // of a11, a12, a21 and a22
};

} // namespace panoveer
