#include "Panoveer/Rendering/Projection/ProjectionMapping.h"
#include "Panoveer/Rendering/Projection/VRProjectionMath.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <numbers>
#include <vector>

namespace panoveer {

using namespace VRProjectionMath;

namespace {

constexpr double degree = std::numbers::pi / 180;

double angleBetween(Direction a, Direction b) {
    const auto c = cross(normalized(a), normalized(b));
    return std::atan2(std::sqrt(dot(c, c)), dot(normalized(a), normalized(b)));
}

// The whole sphere, with the places where maps have their seams sampled from both sides: axes, the edges and corners of
// a cube, the meridian behind the viewer, the neighbourhood of all six poles.
std::vector<Direction> directions() {
    std::vector<Direction> all;
    for (int i = 0; i < 4000; ++i) {
        const double z = 1 - (2 * i + 1) / 4000.0;
        const double a = i * std::numbers::pi * (3 - std::sqrt(5.0));
        all.push_back({std::cos(a) * std::sqrt(1 - z * z), std::sin(a) * std::sqrt(1 - z * z), z});
    }
    for (const double x : {-1.0, -0.3, -1e-7, 0.0, 1e-7, 0.3, 1.0})
        for (const double y : {-1.0, -0.3, -1e-7, 0.0, 1e-7, 0.3, 1.0})
            for (const double z : {-1.0, -1 + 1e-7, -0.3, -1e-7, 0.0, 1e-7, 0.3, 1.0})
                if (x != 0 || y != 0 || z != 0)
                    all.push_back({x, y, z});
    return all;
}

// --- Known places --------------------------------------------------------------------------------------------------

using Forward = std::function<std::optional<ImagePoint>(Direction)>;

struct KnownPlace {
    const char* name;
    Forward map;
    Direction direction;
    std::optional<ImagePoint> expected;
};

Forward rectilinear(double fov, double aspect) {
    return [=](Direction d) { return uvForRectilinearDirection(d, fov, aspect); };
}
Forward domemaster(double theta) {
    return [=](Direction d) { return uvForDomemasterDirection(d, theta); };
}
Forward dome(double theta) {
    return [=](Direction d) { return uvForDomeDomemasterDirection(d, theta); };
}
Forward flat(double aspect) {
    return [=](Direction d) { return uvForFlatViewDirection(d, aspect); };
}
std::optional<ImagePoint> cubemap(Direction d) { return uvForCubemapDirection(d, 90); }
std::optional<ImagePoint> eac(Direction d) { return uvForEquiAngularCubemapDirection(d, std::nullopt, 90); }
std::optional<ImagePoint> paddedEAC(Direction d) {
    return uvForEquiAngularCubemapDirection(d, OutputResolution{3840, 2160}, 90);
}

class KnownPlaces : public testing::TestWithParam<KnownPlace> {};

TEST_P(KnownPlaces, LieWhereTheFormatHasThem) {
    const auto found = GetParam().map(GetParam().direction);
    ASSERT_EQ(found.has_value(), GetParam().expected.has_value());
    if (found) {
        EXPECT_NEAR(found->u, GetParam().expected->u, 1e-12);
        EXPECT_NEAR(found->v, GetParam().expected->v, 1e-12);
    }
}

constexpr double third = 1.0 / 3;
// Of 30 degrees on an equi-angular face.
const double tan30 = std::tan(30 * degree);

INSTANTIATE_TEST_SUITE_P(
    VRProjectionMath, KnownPlaces,
    testing::Values(
        KnownPlace{"equirectFront", uvForEquirectDirection, {0, 0, 2}, ImagePoint{0.5, 0.5}},
        KnownPlace{"equirectRight", uvForEquirectDirection, {1, 0, 0}, ImagePoint{0.75, 0.5}},
        KnownPlace{"equirectZenith", uvForEquirectDirection, {0, 3, 0}, ImagePoint{0.5, 0}},
        KnownPlace{"equirectBack", uvForEquirectDirection, {0, 0, -1}, ImagePoint{1, 0.5}},
        KnownPlace{"halfRightEdge", uvForHalfEquirectDirection, {1, 0, 0}, ImagePoint{1, 0.5}},
        KnownPlace{"halfUp", uvForHalfEquirectDirection, {0, 1, 1}, ImagePoint{0.5, 0.25}},
        KnownPlace{"halfBehind", uvForHalfEquirectDirection, {1, 0, -1e-9}, std::nullopt},
        KnownPlace{"rectilinearFront", rectilinear(90, 2), {0, 0, 1}, ImagePoint{0.5, 0.5}},
        KnownPlace{"rectilinearTop", rectilinear(90, 2), {0, 1, 1}, ImagePoint{0.5, 0}},
        KnownPlace{"rectilinearRight", rectilinear(90, 2), {2, 0, 1}, ImagePoint{1, 0.5}},
        KnownPlace{"rectilinearBeyond", rectilinear(90, 2), {2.001, 0, 1}, std::nullopt},
        KnownPlace{"rectilinearSideways", rectilinear(90, 2), {1, 0, 0}, std::nullopt},
        KnownPlace{"rectilinearNarrowest",
                   rectilinear(0, 1),
                   {0, std::tan(0.008726646259971648) / 2, 1},
                   ImagePoint{0.5, 0.25}},
        KnownPlace{"rectilinearWidest", rectilinear(300, 1), {std::tan(89 * degree) / 2, 0, 1}, ImagePoint{0.75, 0.5}},
        KnownPlace{"flatRight", flat(2), {tan30, 0, 1}, ImagePoint{1, 0.5}},
        KnownPlace{"flatTop", flat(2), {0, tan30 / 2, 1}, ImagePoint{0.5, 0}},
        KnownPlace{"flatNarrow", flat(0.01), {0, 11.547005383792511 / 2, 1}, ImagePoint{0.5, 0.25}},
        KnownPlace{"flatBehind", flat(2), {0, 0, -1}, std::nullopt},
        KnownPlace{"domemasterFront", domemaster(180), {0, 0, 1}, ImagePoint{0.5, 0.5}},
        KnownPlace{"domemasterUp", domemaster(180), {0, 1, 1}, ImagePoint{0.5, 0.25}},
        KnownPlace{"domemasterRightEdge", domemaster(180), {1, 0, 0}, ImagePoint{1, 0.5}},
        KnownPlace{"domemasterBeyond", domemaster(179), {1, 0, 0}, std::nullopt},
        KnownPlace{"domemasterNoAngle", domemaster(0), {0, 0, 1}, std::nullopt},
        KnownPlace{"domeZenith", dome(180), {0, 1, 0}, ImagePoint{0.5, 0.5}},
        KnownPlace{"domeFrontIsBelow", dome(180), {0, 0, 1}, ImagePoint{0.5, 1}},
        KnownPlace{"domeRight", dome(180), {1, 1, 0}, ImagePoint{0.75, 0.5}},
        KnownPlace{"domeBelowHorizon", dome(180), {0, -0.01, 1}, std::nullopt},
        // A quarter to the right and half up on each face of the cube map.
        KnownPlace{"cubePlusX", cubemap, {1, 0.5, -0.25}, ImagePoint{0.625 / 3, 0.125}},
        KnownPlace{"cubeMinusX", cubemap, {-1, 0.5, 0.25}, ImagePoint{1.625 / 3, 0.125}},
        KnownPlace{"cubePlusY", cubemap, {0.25, 1, 0.5}, ImagePoint{2.625 / 3, 0.125}},
        KnownPlace{"cubeMinusY", cubemap, {0.25, -1, -0.5}, ImagePoint{0.625 / 3, 0.625}},
        KnownPlace{"cubePlusZ", cubemap, {0.25, 0.5, 1}, ImagePoint{1.625 / 3, 0.625}},
        KnownPlace{"cubeMinusZ", cubemap, {-0.25, 0.5, -1}, ImagePoint{2.625 / 3, 0.625}},
        KnownPlace{"cubeEdgeXBeforeY", cubemap, {1, 1, 0}, ImagePoint{third / 2, 0}},
        KnownPlace{"cubeEdgeXBeforeZ", cubemap, {1, 0, 1}, ImagePoint{0, 0.25}},
        KnownPlace{"cubeEdgeYBeforeZ", cubemap, {0, 1, 1}, ImagePoint{2.5 / 3, 0}},
        // 30 degrees to the right and 15 degrees down on each face as it lies in the picture.
        KnownPlace{"eacLeft", eac, {-1, -std::tan(15 * degree), tan30}, ImagePoint{(0.5 + third) / 3, third}},
        KnownPlace{"eacFront", eac, {tan30, -std::tan(15 * degree), 1}, ImagePoint{(1.5 + third) / 3, third}},
        KnownPlace{"eacRight", eac, {1, -std::tan(15 * degree), -tan30}, ImagePoint{(2.5 + third) / 3, third}},
        KnownPlace{"eacBottom", eac, {-std::tan(15 * degree), -1, -tan30}, ImagePoint{(0.5 + third) / 3, 0.5 + third}},
        KnownPlace{"eacBack", eac, {-std::tan(15 * degree), tan30, -1}, ImagePoint{(1.5 + third) / 3, 0.5 + third}},
        KnownPlace{"eacTop", eac, {-std::tan(15 * degree), 1, tan30}, ImagePoint{(2.5 + third) / 3, 0.5 + third}},
        KnownPlace{"eacEdgeXBeforeY", eac, {1, 1, 0}, ImagePoint{2.5 / 3, 0}},
        KnownPlace{"eacEdgeYBeforeZ", eac, {0, 1, 1}, ImagePoint{1, 0.75}},
        KnownPlace{"eacMarginLeftTop", paddedEAC, {-1, 1, -1}, ImagePoint{2.0 / 3840, 2.0 / 2160}},
        KnownPlace{"eacMarginMiddle", paddedEAC, {-1, -1, -1}, ImagePoint{2.0 / 3840, 0.5 - 2.0 / 2160}},
        KnownPlace{"eacMarginLowerRow", paddedEAC, {0, -1, 0}, ImagePoint{2.0 / 3840 + (1 - 4.0 / 3840) / 6, 0.75}}),
    [](const auto& test) { return std::string(test.param.name); });

// --- There and back ------------------------------------------------------------------------------------------------

struct RoundTrip {
    const char* name;
    Forward forward;
    std::function<std::optional<Direction>(ImagePoint)> back;
    double coveredShare; // of the sphere, at least
    bool hasFaces = false;
};

bool isOnCubeEdge(Direction d) {
    const double x = std::abs(d.x), y = std::abs(d.y), z = std::abs(d.z);
    const double largest = std::max({x, y, z});
    return (x == largest) + (y == largest) + (z == largest) > 1;
}

class RoundTrips : public testing::TestWithParam<RoundTrip> {};

TEST_P(RoundTrips, ReturnTheSameDirectionAndTheSamePlace) {
    const auto& trip = GetParam();
    int covered = 0;
    const auto all = directions();
    for (const auto& d : all) {
        const auto place = trip.forward(d);
        if (!place)
            continue;
        ++covered;
        ASSERT_TRUE(place->u >= 0 && place->u <= 1 && place->v >= 0 && place->v <= 1);
        if (trip.hasFaces && isOnCubeEdge(d))
            continue; // its place is that of another direction too, on the face that lies beside it in the picture
        const auto back = trip.back(*place);
        ASSERT_TRUE(back) << d.x << " " << d.y << " " << d.z;
        // acos and asin near their ends lose half the digits of a double.
        ASSERT_LT(angleBetween(*back, d), 5e-8) << d.x << " " << d.y << " " << d.z;
    }
    EXPECT_GT(double(covered) / double(all.size()), trip.coveredShare);

    for (double v = 0.5 / 97; v < 1; v += 1.0 / 97) {
        for (double u = 0.5 / 97; u < 1; u += 1.0 / 97) {
            const auto d = trip.back({u, v});
            if (!d)
                continue;
            ASSERT_NEAR(dot(*d, *d), 1, 1e-12);
            const auto place = trip.forward(*d);
            ASSERT_TRUE(place) << u << " " << v;
            ASSERT_NEAR(place->u, u, 1e-7);
            ASSERT_NEAR(place->v, v, 1e-7);
        }
    }
}

constexpr OutputResolution eacSize{960, 640};

INSTANTIATE_TEST_SUITE_P(
    VRProjectionMath, RoundTrips,
    testing::Values(
        RoundTrip{"equirect", uvForEquirectDirection, directionForEquirectUV, 0.999},
        RoundTrip{"halfEquirect", uvForHalfEquirectDirection, directionForHalfEquirectUV, 0.49},
        RoundTrip{"rectilinear", rectilinear(100, 1.5),
                  [](ImagePoint p) { return directionForRectilinearUV(p, 100, 1.5); }, 0.1},
        RoundTrip{"flatView", flat(1.5), [](ImagePoint p) { return directionForFlatViewUV(p, 1.5); }, 0.02},
        RoundTrip{"domemaster", domemaster(220), [](ImagePoint p) { return directionForDomemasterUV(p, 220); }, 0.6},
        RoundTrip{"dome", dome(220), [](ImagePoint p) { return directionForDomeDomemasterUV(p, 220); }, 0.6},
        RoundTrip{"cubemap", cubemap, [](ImagePoint p) { return directionForCubemapUV(p, 90); }, 0.999, true},
        RoundTrip{"eac", eac, [](ImagePoint p) { return directionForEquiAngularCubemapUV(p, std::nullopt, 90); }, 0.999,
                  true}),
    [](const auto& test) { return std::string(test.param.name); });

TEST(VRProjectionMath, ContinuesAnEquiAngularFaceIntoItsMargin) {
    for (const auto& d : directions()) {
        const auto place = uvForEquiAngularCubemapDirection(d, eacSize, 90);
        if (place) {
            ASSERT_LT(angleBetween(directionForEquiAngularCubemapUV(*place, eacSize, 90), d), 5e-8);
        }
    }
    // The corner pixel shows what lies a little beyond the left face, above and behind.
    const auto corner = directionForEquiAngularCubemapUV({0.5 / 960, 0.5 / 640}, eacSize, 90);
    EXPECT_GT(corner.y / -corner.x, 1);
    EXPECT_LT(corner.z / -corner.x, -1);
    EXPECT_NEAR(std::atan(corner.y / -corner.x), (45 + 1.5 / 316 * 90) * degree, 1e-9);
}

// --- Rotation and the flat screen ----------------------------------------------------------------------------------

TEST(VRProjectionMath, RollsThenPitchesThenYaws) {
    const auto expectDirection = [](Direction actual, Direction expected) {
        EXPECT_LT(angleBetween(actual, expected), 1e-12);
    };
    expectDirection(sourceDirectionForOutput({0, 0, 1}, 90, 0, 0), {1, 0, 0});
    expectDirection(sourceDirectionForOutput({0, 0, 1}, 0, 90, 0), {0, -1, 0});
    expectDirection(sourceDirectionForOutput({1, 0, 0}, 0, 0, 90), {0, 1, 0});
    expectDirection(sourceDirectionForOutput({0, 0, 1}, 90, 45, 0), {1, -1, 0});
    expectDirection(sourceDirectionForOutput({1, 0, 0}, 90, 90, 90), {1, 0, 0});
    for (const auto& d : directions())
        ASSERT_LT(angleBetween(outputDirectionForSource(sourceDirectionForOutput(d, 33, -71, 140), 33, -71, 140), d),
                  1e-12);
}

TEST(StandardSourceScreen, HangsWhereTheTransformPutsIt) {
    VRTransform transform;
    transform.fovDegrees = 90;
    const auto screen = [&](double aspect) { return StandardSourceScreen(transform, aspect); };
    EXPECT_LT(angleBetween(screen(2).direction(0, 0), {0, 0, 1}), 1e-12);
    EXPECT_LT(angleBetween(screen(2).direction(1, 1), {1, 0.5, 1}), 1e-12);
    transform.pitchDegrees = 20;
    EXPECT_GT(screen(2).direction(0, 0).y, 0) << "a positive pitch lifts the screen";
    EXPECT_NEAR(std::asin(screen(2).direction(0, 0).y), 20 * degree, 1e-12);
    transform.outputFormat = ProjectionFormat::domemaster;
    EXPECT_NEAR(std::asin(screen(1).direction(0, 0).y), 30 * degree, 1e-12);
    transform.pitchDegrees = -90;
    EXPECT_NEAR(std::asin(screen(1).direction(0, 0).y), -80 * degree, 1e-12);
    transform.pitchDegrees = 90;
    EXPECT_NEAR(std::asin(screen(1).direction(0, 0).y), 83 * degree, 1e-12);
    transform.pitchDegrees = -10;
    transform.rollDegrees = 90;
    EXPECT_LT(angleBetween(screen(1).direction(1, 0), {0, 1, 1}), 1e-12) << "the right edge turns up";
}

TEST(StandardSourceScreen, FindsEveryPlaceAgainAtEveryDistance) {
    VRTransform transform;
    transform.outputFormat = ProjectionFormat::equirectangular;
    transform.yawDegrees = 140;
    transform.pitchDegrees = -35;
    transform.rollDegrees = 25;
    for (const double distance : {0.1, 0.25, 1.0, 4.0, 9.0}) {
        transform.standardDistance = distance;
        const StandardSourceScreen screen(transform, 1.7);
        for (double x = -1; x <= 1; x += 0.125) {
            for (double y = -1; y <= 1; y += 0.125) {
                const auto uv = screen.uv(screen.direction(x, y));
                ASSERT_TRUE(uv);
                ASSERT_NEAR(uv->u, (x + 1) / 2, 1e-12);
                ASSERT_NEAR(uv->v, (1 - y) / 2, 1e-12);
            }
        }
        EXPECT_FALSE(screen.uv(screen.direction(0, 0) * -1));
    }
}

// --- Outputs -------------------------------------------------------------------------------------------------------

TEST(ProjectionMapping, ShowsTheChosenEyeWhereTheOutputHasOne) {
    for (const auto layout : {StereoVideoLayout::sideBySide, StereoVideoLayout::overUnder})
        for (const bool isSwapped : {false, true})
            for (const auto eye : {StereoEye::left, StereoEye::right}) {
                VRTransform transform;
                transform.sourceFormat = transform.outputFormat = ProjectionFormat::equirectangular;
                transform.sourceStereoLayout = layout;
                transform.sourceEyesSwapped = isSwapped;
                transform.monoStereoEye = eye;
                const auto place = ProjectionMapping(transform, {64, 64}, {64, 64}).place(0.5, 0.5);
                EXPECT_EQ(place->source.half, (eye == StereoEye::right) != isSwapped ? 1 : 0);
            }
}

TEST(ProjectionMapping, DividesPixelsThatCoverManySourcePixels) {
    VRTransform transform;
    transform.sourceFormat = transform.outputFormat = ProjectionFormat::equirectangular;
    const auto countAtEquator = [&](int sourceHeight) {
        return ProjectionMapping(transform, {64, 32}, {2 * sourceHeight, sourceHeight}).places(40.5, 16.5).size();
    };
    EXPECT_EQ(countAtEquator(16), 1u);
    EXPECT_EQ(countAtEquator(60), 1u);
    EXPECT_EQ(countAtEquator(100), 4u);
    EXPECT_EQ(countAtEquator(8192), 64u);
    const auto place = ProjectionMapping(transform, {64, 32}, {192, 48}).place(40.5, 16.5);
    EXPECT_NEAR(place->footprint.x, 3, 1e-3);
    EXPECT_NEAR(place->footprint.y, 1.5, 1e-3);
}

} // namespace
} // namespace panoveer
