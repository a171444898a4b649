// Warp meshes of mirror domes, from their text to the triangles that are drawn.

#include "Fuzz/FuzzTarget.h"
#include "Panoveer/Rendering/Projection/MirrorDomeGridMapper.h"
#include "Panoveer/Rendering/Projection/MirrorDomeRaster.h"
#include "Panoveer/Rendering/Projection/MirrorDomeWarpMesh.h"
#include "Panoveer/Rendering/Projection/MirrorDomeWarpMeshError.h"

#include <algorithm>
#include <cmath>
#include <string>

namespace panoveer::test {

std::vector<Bytes> fuzzSeeds() {
    const auto bytes = [](std::string_view text) { return Bytes(text.begin(), text.end()); };
    return {bytes("2\n2 2\n1.6 1 0.4 0.6 1\n-1.6 1 0.6 0.6 1\n1.6 -1 0.4 0.4 1\n-1.6 -1 0.6 0.4 1\n"),
            bytes("\xEF\xBB\xBF"
                  "1\r\n3 2\r\n-1 -1 0 0 0\r\n+0 -1 .5 0 1e-3\r\n1 -1 1 0 1\r\n-1 1 0 1 -1\r\n0 1 0 0 2\r\n1 1 1 1 1"),
            bytes("2\n 2\t2 \n1e38 1 0 0.6 1\n-1e38 1 1 1 1\n1 -1 -9 9 1e9\n-1 -1 0.6 nan 1\n"),
            bytes("2\n1 1\n0 0 0 0 0")};
}

void fuzzOne(std::span<const std::uint8_t> input) {
    MirrorDomeWarpMesh mesh;
    try {
        mesh = MirrorDomeWarpMesh::load(memoryFile(input));
    } catch (const MirrorDomeWarpMeshError&) {
        return;
    }
    const auto count = mesh.vertices.size();
    require(count == std::size_t(mesh.width) * std::size_t(mesh.height),
            "a mesh has a node for each place of its grid");
    require(std::ranges::all_of(mesh.indices, [&](auto index) { return index < count; }), "triangles have their nodes");
    const MirrorDomeRaster raster(mesh, {48, 32});
    for (int y = 0; y < 32; ++y)
        for (int x = 0; x < 48; ++x)
            raster.triangleAt(x + 0.5, y + 0.5);
    const MirrorDomeGridMapper mapper(mesh);
    for (int i = 0; i < 64; ++i)
        mapper.project({double(i % 8) / 7, double(i / 8) / 7});
}

} // namespace panoveer::test
