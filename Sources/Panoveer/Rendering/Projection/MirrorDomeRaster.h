#pragma once

#include "Panoveer/Rendering/Projection/MirrorDomeWarpMesh.h"
#include "Panoveer/Rendering/Projection/SourceLattice.h"
#include "Panoveer/Rendering/Projection/VRProjectionMath.h"

#include <cstdint>
#include <memory>
#include <span>
#include <vector>

namespace panoveer {

// What each pixel of a mirror dome's picture shows: a warp mesh drawn on the processor, as the GPU draws it. A pixel
// belongs to the last triangle that covers its middle. Made once for a mesh and a size, on all cores; immutable then,
// safe from any thread.
class MirrorDomeRaster {
public:
    // A quantity that is linear in the picture: at the position (0, 0), and for a pixel to the right and one down.
    struct Plane {
        double origin = 0;
        double across = 0;
        double down = 0;

        double at(double x, double y) const { return origin + across * x + down * y; }
    };
    // A triangle of the mesh in the picture; positions are in pixels.
    struct Triangle {
        Plane u; // in the fisheye picture
        Plane v;
        Plane intensity;  // what the colour is multiplied with
        Plane weights[3]; // the barycentric coordinates, which are not negative inside
        double left = 0;
        double right = 0;
        double top = 0;
        double bottom = 0;

        ImagePoint fisheye(double x, double y) const { return {u.at(x, y), v.at(x, y)}; }
    };

    MirrorDomeRaster(const MirrorDomeWarpMesh& mesh, PictureSize size);

    // For the mesh that a transform asks for; null unless its output is a mirror dome. Throws MirrorDomeWarpMeshError,
    // and VRMetalProjectionError.libraryUnavailable when the standard mesh is not there.
    static std::shared_ptr<const MirrorDomeRaster> make(const VRTransform& transform, PictureSize size);

    // The triangle of the pixel that a position lies in; null where the pixel shows nothing and outside of the picture.
    const Triangle* triangleAt(double x, double y) const;

private:
    static constexpr std::int32_t none = -1;

    Triangle makeTriangle(const MirrorDomeWarpMesh& mesh, std::size_t index) const;
    void drawRows(int first, int last, std::span<const std::int32_t> triangles);
    void drawSpan(const Triangle& triangle, std::int32_t index, int y);

    PictureSize size_;
    std::vector<Triangle> triangles_;
    std::vector<std::int32_t> pixels_; // row by row: the number of the pixel's triangle, or none
};

} // namespace panoveer
