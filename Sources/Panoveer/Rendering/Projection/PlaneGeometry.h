#pragma once

#include "Panoveer/Model/Records/SourceVideoOrientation.h"
#include "Panoveer/Rendering/Projection/SourceLattice.h"

namespace panoveer {

// Where the samples of one axis lie: sample i at origin + i * pitch, in pixels of the upright picture.
struct SampleAxis {
    double origin = 0.5;
    double pitch = 1;
    int count = 0;

    double position(int index) const { return origin + index * pitch; }
    double index(double position) const { return (position - origin) / pitch; }

    friend bool operator==(const SampleAxis&, const SampleAxis&) = default;
};

// How the samples of a stored plane lie in the upright picture, and where each is stored. A value.
//
// Chroma of half width belongs to the left of its two luma columns, chroma of half height between its two rows, as
// H.264 and HEVC have it by default (ITU-T H.265, E.3.1, chroma_sample_loc_type 0).
class PlaneGeometry {
public:
    // Sizes as stored, in pixels of the picture and in samples of the plane.
    PlaneGeometry(PictureSize picture, PictureSize plane, SourceVideoOrientation orientation);

    // Of the upright picture.
    const SampleAxis& columns() const { return columns_; }
    const SampleAxis& rows() const { return rows_; }

    struct Position {
        int x = 0;
        int y = 0;

        friend bool operator==(const Position&, const Position&) = default;
    };
    // From an upright column and row to where the sample is stored, and back. Positions may lie outside the plane.
    Position stored(Position upright) const;
    Position upright(Position stored) const;

    // Whether upright columns run backward along their stored axis, and upright rows along theirs.
    bool reversesColumns() const;
    bool reversesRows() const;
    // True when upright columns are stored as rows.
    bool swapsAxes() const { return swapsDimensions(orientation_); }

    PictureSize storedSize() const { return plane_; }

    friend bool operator==(const PlaneGeometry&, const PlaneGeometry&) = default;

private:
    PictureSize picture_;
    PictureSize plane_;
    SourceVideoOrientation orientation_;
    SampleAxis columns_;
    SampleAxis rows_;
};

} // namespace panoveer
