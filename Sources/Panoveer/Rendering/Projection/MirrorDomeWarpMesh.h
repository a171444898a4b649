#pragma once

#include "Panoveer/Model/Records/MirrorDomeProjectorAspect.h"
#include "Panoveer/Model/Records/VRTransform.h"
#include "Platform/Core/URL.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

namespace panoveer {

// One node of a warp mesh, as the vertex function reads it.
struct MirrorDomeWarpVertex {
    Float2 position;     // x -aspect…aspect, to the left; y -1…1, upward
    Float2 texCoords;    // (u, v) in the fisheye picture
    float intensity = 1; // what the colour is multiplied with; below 0 the node is a hole
    float padding = 0;

    // Cells that touch a hole are left out.
    bool isHole() const { return (texCoords.x == 0 && texCoords.y == 0) || intensity < 0; }

    friend bool operator==(const MirrorDomeWarpVertex&, const MirrorDomeWarpVertex&) = default;
};
static_assert(sizeof(MirrorDomeWarpVertex) == 24);
static_assert(offsetof(MirrorDomeWarpVertex, position) == 0);
static_assert(offsetof(MirrorDomeWarpVertex, texCoords) == 8);
static_assert(offsetof(MirrorDomeWarpVertex, intensity) == 16);

// How a projector's picture has to be warped so that it looks right on a dome, thrown there by a spherical mirror: a
// grid of nodes over the projector's frame. A value, immutable once loaded.
//
// The file is text in the format of Paul Bourke's meshes:
//
//     2                 the type of the mesh, 1 or 2
//     80 45             nodes across and down
//     x y u v i         one line a node, row by row
//
// Axes. The grid's x runs against the picture: the pixel a share s from the left of the frame shows the node at
// x = aspect * (1 - 2 s), the one a share t from its top the node at y = 1 - 2 t. Seen from below, with the audience's
// front at the bottom as in a domemaster, u grows to the left and v from the front to the back:
//
//     on the projector's frame             in the dome, seen from below
//       (aspect, 1)     (-aspect, 1)         (1,1)  back  (0,1)
//            +---------------+                 .          .
//            |               |              left          right
//            +---------------+                 .          .
//       (aspect,-1)     (-aspect,-1)         (1,0)  front (0,0)
struct MirrorDomeWarpMesh {
    int meshType = 2;                           // as the file has it; it changes nothing
    int width = 0;                              // nodes across
    int height = 0;                             // nodes down
    float aspectRatio = 0;                      // of the projector's frame: the largest |x|
    std::vector<MirrorDomeWarpVertex> vertices; // row by row
    std::vector<std::uint32_t> indices;         // two triangles for each cell without a hole

    // Throws MirrorDomeWarpMeshError.
    static MirrorDomeWarpMesh load(const URL& url);
};

// The standard mesh of a projector's shape, among the program's resources. No value when it is not there.
std::optional<URL> bundledMirrorDomeMeshURL(MirrorDomeProjectorAspect aspect);

// Which mesh a transform asks for: the user's own file for any shape of the output, else the standard one of its shape.
struct MirrorDomeMeshCacheKey {
    URL url;
    std::optional<MirrorDomeProjectorAspect> aspect; // none for the user's own file

    // No value when the standard mesh is asked for and is not there.
    static std::optional<MirrorDomeMeshCacheKey> of(const VRTransform& transform);

    friend auto operator<=>(const MirrorDomeMeshCacheKey&, const MirrorDomeMeshCacheKey&) = default;
};

} // namespace panoveer
