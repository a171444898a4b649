#include "Panoveer/Model/Records/ClipDefaults.h"

#include <gtest/gtest.h>

namespace panoveer {
namespace {

using Projection = ProjectionFormat;
using Layout = StereoVideoLayout;

VideoAsset asset(std::optional<ImmersiveFormatDetection> detection, Projection guess = Projection::standard) {
    VideoAsset result;
    result.detectedFormat = detection ? detection->projection : guess;
    result.formatDetection = detection;
    result.duration = 12;
    return result;
}

ExportSettings settings(Projection output, Layout layout = Layout::mono) {
    ExportSettings result;
    result.outputFormat = output;
    result.stereoLayout = layout;
    result.customWidth = 4096;
    result.customHeight = 2048;
    return result;
}

TEST(DefaultTransform, TakesTheSourceAsItWasDetected) {
    const auto detected =
        defaultTransform(asset(ImmersiveFormatDetection{.projection = Projection::domemaster,
                                                        .stereoLayout = Layout::sideBySide,
                                                        .eyesSwapped = true,
                                                        .fisheyeCircle = FisheyeCircle{0.4, 0.6, 0.45},
                                                        .fisheyeFieldOfView = 210}),
                         settings(Projection::equirectangular));
    EXPECT_EQ(detected.sourcePreset, VRSourcePreset::manual);
    EXPECT_EQ(detected.sourceFormat, Projection::domemaster);
    EXPECT_EQ(detected.sourceStereoLayout, Layout::sideBySide);
    EXPECT_TRUE(detected.sourceEyesSwapped);
    EXPECT_EQ(detected.fisheyeCircle, (FisheyeCircle{0.4, 0.6, 0.45}));
    EXPECT_EQ(detected.domemasterThetaDegrees, 210);
    EXPECT_EQ(detected.fovDegrees, 180);

    const auto guessed = defaultTransform(asset(std::nullopt, Projection::equirectangular), settings(Projection::eac));
    EXPECT_EQ(guessed.sourceFormat, Projection::equirectangular);
    EXPECT_EQ(guessed.sourceStereoLayout, Layout::mono);
    EXPECT_EQ(guessed.domemasterThetaDegrees, 180);
    EXPECT_EQ(guessed.fovDegrees, 90);
}

TEST(DefaultTransform, KnowsTheLensOfADualFisheye) {
    ImmersiveFormatDetection lens{.projection = Projection::domemaster,
                                  .stereoLayout = Layout::sideBySide,
                                  .eyesSwapped = true,
                                  .fisheyeFieldOfView = 190,
                                  .isDualFisheyeLens = true};
    EXPECT_TRUE(defaultTransform(asset(lens), settings(Projection::halfEquirectangular)).usesCanonDualFisheyePreset());
    // What the pictures say of the eyes goes before what the lens usually does.
    lens.eyesSwapped = false;
    const auto uncrossed = defaultTransform(asset(lens), settings(Projection::halfEquirectangular));
    EXPECT_EQ(uncrossed.sourcePreset, VRSourcePreset::canonDualFisheye);
    EXPECT_FALSE(uncrossed.sourceEyesSwapped);
    EXPECT_FALSE(uncrossed.usesCanonDualFisheyePreset());
}

TEST(DefaultTransform, ShowsSpatialVideoAsWideAsItWasTaken) {
    const ImmersiveFormatDetection spatial{.projection = Projection::standard,
                                           .stereoLayout = Layout::sideBySide,
                                           .isStereoMultiview = true,
                                           .horizontalFieldOfView = 64,
                                           .stereoBaselineMillimeters = 19.24};
    const auto onSphere = defaultTransform(asset(spatial), settings(Projection::equirectangular));
    EXPECT_EQ(onSphere.sourceHorizontalFieldOfView, 64);
    EXPECT_EQ(onSphere.sourceStereoBaselineMillimeters, 19.24);
    EXPECT_EQ(onSphere.fovDegrees, 64);
    EXPECT_EQ(defaultTransform(asset(spatial), settings(Projection::standard)).fovDegrees, 60);
    EXPECT_EQ(defaultTransform(asset(std::nullopt), settings(Projection::equirectangular)).fovDegrees, 178);
}

TEST(DefaultTransform, TakesTheOutputAsTheSettingsAsk) {
    auto wanted = settings(Projection::halfEquirectangular, Layout::overUnder);
    wanted.customWidth = 2048;
    wanted.customHeight = 4096;
    auto transform = defaultTransform(asset(std::nullopt), wanted);
    EXPECT_EQ(transform.outputFormat, Projection::halfEquirectangular);
    EXPECT_EQ(transform.outputStereoLayout, Layout::overUnder);
    EXPECT_EQ(transform.outputResolution, (OutputResolution{2048, 4096}));

    wanted.codec = ExportCodec::mvhevc8;
    EXPECT_EQ(defaultTransform(asset(std::nullopt), wanted).outputStereoLayout, Layout::sideBySide);

    wanted.outputFormat = Projection::mirrorDome;
    wanted.mirrorDomeWarpMeshURL = URL::fromFilePath("/meshes/mine.data");
    transform = defaultTransform(asset(std::nullopt), wanted);
    EXPECT_EQ(transform.outputStereoLayout, Layout::mono);
    EXPECT_EQ(transform.mirrorDomeWarpMeshURL, wanted.mirrorDomeWarpMeshURL);
}

} // namespace
} // namespace panoveer
