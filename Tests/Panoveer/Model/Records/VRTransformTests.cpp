#include "Panoveer/Model/Records/ExportSettings.h"
#include "Panoveer/Model/Records/VRTransform.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace panoveer {
namespace {

using enum ProjectionFormat;
using enum StereoVideoLayout;

VRTransform between(ProjectionFormat source, ProjectionFormat output) {
    VRTransform transform;
    transform.sourceFormat = source;
    transform.outputFormat = output;
    return transform;
}

TEST(VRTransformNormalized, WrapsYawAndRollAndLimitsPitch) {
    const std::pair<double, double> angles[] = {
        {540, 180},   {-540, -180}, {180, 180},
        {-180, -180}, {181, -179},  {-190, 170},
        {725, 5},     {360, 0},     {std::numeric_limits<double>::infinity(), 0}};
    for (const auto& [given, wrapped] : angles) {
        VRTransform transform;
        transform.yawDegrees = transform.rollDegrees = transform.pitchDegrees = given;
        const auto result = transform.normalized();
        EXPECT_DOUBLE_EQ(result.yawDegrees, wrapped) << given;
        EXPECT_DOUBLE_EQ(result.rollDegrees, wrapped) << given;
        EXPECT_DOUBLE_EQ(result.pitchDegrees, given > 0 ? 90 : -90);
    }
}

TEST(VRTransformNormalized, LimitsTheFieldOfViewByBothFormats) {
    const auto fov = [](ProjectionFormat source, ProjectionFormat output, double degrees) {
        auto transform = between(source, output);
        transform.fovDegrees = degrees;
        return transform.normalized().fovDegrees;
    };
    EXPECT_EQ(fov(domemaster, equirectangular, 400), 360);
    EXPECT_EQ(fov(standard, equirectangular, 400), 178);
    EXPECT_EQ(fov(equirectangular, standard, 400), 178);
    EXPECT_EQ(fov(equirectangular, standard, -3), 1);
    EXPECT_EQ(fov(equirectangular, cubemap, 60), 90);
    EXPECT_EQ(fov(standard, eac, 178), 90);
    EXPECT_EQ(fov(equirectangular, domemaster, std::numeric_limits<double>::quiet_NaN()), 1);
}

TEST(VRTransformNormalized, SettlesFieldsThatExcludeEachOther) {
    auto transform = between(equirectangular, mirrorDome);
    transform.outputStereoLayout = overUnder;
    transform.outputResolution = {1921, 7};
    transform.sourceEyesSwapped = true;
    transform.monoStereoEye = StereoEye::right;
    transform.fisheyeCircle = FisheyeCircle{};
    const auto dome = transform.normalized();
    EXPECT_EQ(dome.outputStereoLayout, mono);
    EXPECT_EQ(dome.outputResolution, (OutputResolution{1922, 1082}));
    EXPECT_FALSE(dome.sourceEyesSwapped) << "a mono source has no eyes to swap";
    EXPECT_EQ(dome.monoStereoEye, StereoEye::left);
    EXPECT_FALSE(dome.fisheyeCircle) << "only a fisheye has a circle";
    EXPECT_EQ(dome.normalized(), dome);

    transform.sourceFormat = domemaster;
    transform.sourceStereoLayout = sideBySide;
    transform.fisheyeCircle = FisheyeCircle{-1, 2, 0};
    transform.domemasterThetaDegrees = 0;
    transform.standardDistance = 9;
    const auto fisheye = transform.normalized();
    EXPECT_EQ(fisheye.fisheyeCircle, (FisheyeCircle{0, 1, 0.05}));
    EXPECT_TRUE(fisheye.sourceEyesSwapped);
    EXPECT_EQ(fisheye.monoStereoEye, StereoEye::right);
    EXPECT_EQ(fisheye.domemasterThetaDegrees, 1);
    EXPECT_EQ(fisheye.standardDistance, 4);
}

TEST(VRTransformFieldOfView, OfAFlatOutputIsReportedAcrossItsWidth) {
    auto transform = between(equirectangular, standard);
    transform.fovDegrees = 90;
    EXPECT_NEAR(*transform.outputHorizontalFieldOfView(1), 90, 1e-9);
    EXPECT_NEAR(*transform.outputHorizontalFieldOfView(16.0 / 9), 2 * std::atan(16.0 / 9) * 180 / M_PI, 1e-9);
    EXPECT_FALSE(transform.outputHorizontalFieldOfView(0));
    EXPECT_FALSE(between(equirectangular, domemaster).outputHorizontalFieldOfView(1));

    // A flat source of unknown lens always reports 60 degrees; a known one its own view at the default framing.
    VRTransform flat;
    for (const double fov : {1.0, 60.0, 120.0}) {
        flat.fovDegrees = fov;
        EXPECT_NEAR(*flat.outputHorizontalFieldOfView(2), 60, 1e-9);
    }
    flat.sourceHorizontalFieldOfView = 80;
    flat.fovDegrees = 60;
    EXPECT_NEAR(*flat.outputHorizontalFieldOfView(2), 80, 1e-9);
    flat.standardDistance = 2;
    EXPECT_GT(*flat.outputHorizontalFieldOfView(2), 80);
}

struct FormatChange {
    const char* what;
    ProjectionFormat source;
    double fov;
    std::optional<ProjectionFormat> from;
    ProjectionFormat to;
    double expected;
};

TEST(VRTransformSynced, FieldOfViewFollowsTheOutputFormatOnlyUntilTheUserSetsIt) {
    const FormatChange changes[] = {
        {"the old default moves on", equirectangular, 60, standard, domemaster, 180},
        {"a choice of the user stays", equirectangular, 75, standard, domemaster, 75},
        {"without a previous format nothing moves", equirectangular, 60, std::nullopt, domemaster, 60},
        {"cube faces have 90", equirectangular, 75, standard, eac, 90},
        {"back from a cube", equirectangular, 90, cubemap, standard, 60},
        {"a flat source that kept the flat default", standard, 60, equirectangular, domemaster, 178},
        {"a flat default is no default for a sphere", equirectangular, 60, domemaster, halfEquirectangular, 60},
    };
    for (const auto& change : changes) {
        auto transform = between(change.source, change.from.value_or(standard));
        transform.fovDegrees = change.fov;
        ExportSettings settings;
        settings.outputFormat = change.to;
        EXPECT_EQ(transform.synced(settings, change.from).fovDegrees, change.expected) << change.what;
    }
}

} // namespace
} // namespace panoveer
