#pragma once

#include "Panoveer/Rendering/Projection/MirrorDomeWarpMesh.h"
#include "Panoveer/Rendering/Projection/VRProjectionMath.h"

#include <array>
#include <cstdint>
#include <optional>
#include <vector>

namespace panoveer {

// A warp mesh run backwards: from a place of the fisheye picture to the place of the projector's picture that shows it,
// so that lines can be drawn through the mesh. Immutable; safe from any thread. The triangles are found through a grid
// of buckets over the fisheye picture.
class MirrorDomeGridMapper {
public:
    explicit MirrorDomeGridMapper(const MirrorDomeWarpMesh& mesh);

    // No value where the mesh does not show that place, or dims it to nothing.
    std::optional<ImagePoint> project(ImagePoint fisheyeUV) const;

private:
    struct Corner {
        ImagePoint uv;
        double x = 0; // of the mesh
        double y = 0;
        double intensity = 0;
    };
    using Triangle = std::array<Corner, 3>;

    static constexpr int bucketCount = 64; // across and down

    void buildBuckets();
    static int bucket(double coordinate);
    const std::vector<std::uint32_t>& bucketAt(int x, int y) const {
        return buckets_[std::size_t(y * bucketCount + x)];
    }
    std::vector<std::uint32_t> neighbours(int x, int y) const;

    double aspectRatio_;
    std::vector<Triangle> triangles_;
    std::vector<std::vector<std::uint32_t>> buckets_; // row by row: the triangles that may cover each
};

} // namespace panoveer
