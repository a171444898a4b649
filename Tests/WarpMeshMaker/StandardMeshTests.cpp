#include "Panoveer/Model/Records/RecordEnums.h"
#include "Panoveer/Rendering/Projection/MirrorDomeGridMapper.h"
#include "Panoveer/Rendering/Projection/MirrorDomeRaster.h"
#include "WarpMeshMaker/MirrorDomeInstallation.h"

#include <gtest/gtest.h>

#include <cmath>
#include <fstream>
#include <iterator>
#include <numbers>

namespace panoveer::meshmaker {

namespace {

class StandardMesh : public testing::TestWithParam<MirrorDomeProjectorAspect> {
protected:
    URL url_ = bundledMirrorDomeMeshURL(GetParam()).value();
    MirrorDomeInstallation room_;
    bool isTall_ = GetParam() == MirrorDomeProjectorAspect::sixteenTen;
    PictureSize size_{960, isTall_ ? 600 : 540};
};

TEST_P(StandardMesh, IsWhatTheProgramWrites) {
    std::ifstream file(url_.path(), std::ios::binary);
    const std::string committed(std::istreambuf_iterator<char>(file), {});
    EXPECT_TRUE(committed == room_.mesh(GetParam()))
        << url_.path() << " is stale: build/release/bin/warp-mesh-maker Sources/Panoveer/Resources/WarpMeshes";
}

// From the mesh, every pixel's place on the dome; from the room, the place where the pixel's light arrives.
TEST_P(StandardMesh, ShowsOnTheDomeWhatEachPixelsLightMeets) {
    const auto mesh = MirrorDomeWarpMesh::load(url_);
    EXPECT_EQ(mesh.aspectRatio, float(std::round(ratio(GetParam()) * 1e5) / 1e5));
    const MirrorDomeRaster raster(mesh, size_);
    double worst = 0;
    int shown = 0;
    for (int y = 0; y < size_.height; ++y) {
        for (int x = 0; x < size_.width; ++x) {
            const auto* triangle = raster.triangleAt(x, y);
            if (!triangle || triangle->intensity.at(x + 0.5, y + 0.5) < 0.01)
                continue;
            EXPECT_LE(triangle->intensity.at(x + 0.5, y + 0.5), 1.0001);
            const auto onDome =
                VRProjectionMath::directionForDomeDomemasterUV(triangle->fisheye(x + 0.5, y + 0.5), 180);
            if (!onDome)
                continue;
            const auto light = room_.trace(GetParam(), (x + 0.5) / size_.width, (y + 0.5) / size_.height);
            ASSERT_TRUE(light) << x << ", " << y;
            // The mesh has the front at v = 0 and the right at u = 0.
            const Direction seen{-onDome->x, onDome->y, -onDome->z};
            worst = std::max(worst, std::acos(std::min(VRProjectionMath::dot(seen, light->place), 1.0)));
            ++shown;
        }
    }
    // Between the nodes the mesh is linear and the light is not; the most where the mirror turns away.
    EXPECT_LT(worst * 180 / std::numbers::pi, 0.4);
    EXPECT_GT(double(shown) / (size_.width * size_.height), 0.45);
}

TEST_P(StandardMesh, HasTheFrontAtTheBottomAndTheSidesExchangedAsAMirrorDoes) {
    const MirrorDomeGridMapper mapper(MirrorDomeWarpMesh::load(url_));
    const auto zenith = mapper.project({0.5, 0.5});
    const auto front = mapper.project({0.5, 0.05});
    const auto left = mapper.project({0.9, 0.4});
    const auto right = mapper.project({0.1, 0.4});
    ASSERT_TRUE(zenith && front && left && right);
    EXPECT_NEAR(zenith->u, 0.5, 0.001);
    EXPECT_NEAR(front->u, 0.5, 0.001);
    EXPECT_LT(zenith->v, 0.5);
    EXPECT_GT(front->v, 0.7);
    EXPECT_GT(left->u, 0.65) << "on the frame, the audience's left is at the right";
    EXPECT_LT(right->u, 0.35);
}

INSTANTIATE_TEST_SUITE_P(Both, StandardMesh, testing::ValuesIn(allCases<MirrorDomeProjectorAspect>),
                         [](const auto& test) { return std::string(rawValue(test.param)); });

} // namespace
} // namespace panoveer::meshmaker
