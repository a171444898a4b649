#pragma once

#include "Panoveer/Rendering/Projection/MirrorDomeRaster.h"
#include "Panoveer/Rendering/Projection/SourceLattice.h"

#include <array>
#include <memory>
#include <optional>
#include <vector>

namespace panoveer {

// A size in pixels along both axes: what one output pixel covers of the source, say.
struct Footprint {
    double x = 1;
    double y = 1;
};

// One transform prepared for pictures of given sizes: from output pixels to directions and to places of the source.
// A value; safe from any thread.
class ProjectionMapping {
public:
    // Sizes of the whole pictures, all eyes included; the source's after its orientation is settled. A mirror dome's
    // picture is drawn through the mesh that the transform asks for; what is wrong with it throws
    // MirrorDomeWarpMeshError, or VRMetalProjectionError.libraryUnavailable when the standard mesh is not there.
    ProjectionMapping(const VRTransform& transform, PictureSize output, PictureSize uprightSource);

    struct Place {
        SourcePlace source;
        Footprint footprint;
    };

    // Positions are in output pixels: the middle of the first pixel is (0.5, 0.5). The footprint is that of an output
    // pixel of this size. No value where the source shows nothing.
    std::optional<Place> place(double x, double y, Footprint pixelSize = {}) const;

    // place() without its footprint.
    std::optional<SourcePlace> position(double x, double y) const;

    static constexpr int finestDivision = 8;
    // Into how many parts along each axis a pixel of this footprint is divided, so that none covers more than about two
    // samples, which lie `sampleSize` source pixels apart; the finest division at most.
    static int division(Footprint footprint, Footprint sampleSize);

    // The places to read for an output pixel, whose values count alike: the pixel's own, or those of the parts that it
    // is divided into, where a part without a place shows what the pixel's middle does. Empty where the middle has no
    // place.
    std::vector<Place> places(double x, double y, Footprint pixelSize = {}, Footprint sampleSize = {}) const;

    // What the colour at an output position is multiplied with: 1, unless a mesh dims it.
    double intensity(double x, double y) const;
    bool hasMesh() const { return raster_ != nullptr; }

    // The direction in the source's scene that an output position shows, whether or not the source covers it. For a
    // flat source, the scene that its screen hangs in. No value outside the circle of a dome.
    std::optional<Direction> sourceDirection(double x, double y) const;

    // The eye that an output position belongs to: that of its cell, or the one that a mono output shows.
    StereoEye eye(double x, double y) const;
    // The image of a stereo source that feeds an eye.
    int sourceHalf(StereoEye eye) const;

    const SourceLattice& sourceLattice() const { return lattice_; }

private:
    struct Cell {
        StereoEye eye = StereoEye::left;
        double left = 0;
        double top = 0;
        // Of a mirror dome's picture: the triangle of the pixel that the position lies in.
        const MirrorDomeRaster::Triangle* triangle = nullptr;
    };
    Cell cell(double x, double y) const;
    std::optional<Direction> directionInCell(const Cell& cell, double x, double y) const;
    std::optional<Direction> outputDirection(ImagePoint point) const;
    std::optional<Direction> mirrorDomeDirection(ImagePoint point) const;
    // Source pixels along x and y for a small step on the output.
    Footprint step(const Cell& cell, const SourcePlace& place, double x, double y, double stepX, double stepY) const;

    VRTransform transform_;
    bool isFlatSource_;
    std::array<Direction, 3> axes_; // the source directions of the output's x, y and z
    double cellWidth_;
    double cellHeight_;
    OutputResolution eyeResolution_;
    double aspect_;
    SourceLattice lattice_;
    std::shared_ptr<const MirrorDomeRaster> raster_; // of a mirror dome's picture
};

} // namespace panoveer
