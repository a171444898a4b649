#include "Panoveer/Model/Records/ExportDeliveryPreset.h"
#include "Panoveer/Model/Records/ExportFrameRateSummary.h"
#include "Panoveer/Model/Records/ExportProgress.h"
#include "Panoveer/Model/Records/ExportResolutionPreset.h"
#include "Panoveer/Model/Records/ExportSettings.h"
#include "Panoveer/Model/Records/RecordEnums.h"
#include "Platform/Core/Localization.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>
#include <set>

namespace panoveer {
namespace {

using enum ProjectionFormat;
using enum StereoVideoLayout;

ExportSettings settingsOf(ProjectionFormat format, OutputResolution size, StereoVideoLayout layout = mono,
                          ExportCodec codec = ExportCodec::hevc10) {
    ExportSettings settings;
    settings.outputFormat = format;
    settings.customWidth = size.width;
    settings.customHeight = size.height;
    settings.stereoLayout = layout;
    settings.codec = codec;
    return settings;
}

OutputResolution stored(const ExportSettings& settings) { return {settings.customWidth, settings.customHeight}; }

TEST(ExportSettingsPacking, EyeSizeSurvivesAChangeOfCodecOrLayout) {
    auto settings = settingsOf(equirectangular, {4096, 2048});
    settings.setCodec(ExportCodec::mvhevc10);
    EXPECT_EQ(settings.stereoLayout, sideBySide);
    EXPECT_EQ(stored(settings), (OutputResolution{8192, 2048}));

    settings.setStereoLayout(overUnder);
    EXPECT_EQ(settings.codec, ExportCodec::hevc10) << "only side by side is multiview";
    EXPECT_EQ(stored(settings), (OutputResolution{4096, 4096}));

    settings.setCodec(ExportCodec::mvhevc8);
    settings.setStereoLayout(overUnder);
    EXPECT_EQ(settings.codec, ExportCodec::hevc8);

    settings.setStereoLayout(mono);
    EXPECT_EQ(stored(settings), (OutputResolution{4096, 2048}));
}

TEST(ExportSettingsPacking, AMirrorDomeIsMonoWhateverTheCodec) {
    auto settings = settingsOf(mirrorDome, {1920, 1200}, overUnder, ExportCodec::mvhevc10);
    EXPECT_EQ(settings.effectiveStereoLayout(), mono);
    settings.setCodec(ExportCodec::mvhevc8);
    EXPECT_EQ(stored(settings), (OutputResolution{1920, 1200}));
    EXPECT_EQ(settings.stereoLayout, mono);
    settings.setStereoLayout(sideBySide);
    EXPECT_EQ(settings.stereoLayout, mono);
    EXPECT_EQ(settings.codec, ExportCodec::hevc8);
    settings.normalizeResolution();
    EXPECT_EQ(stored(settings), (OutputResolution{1920, 1200}));
}

struct TypedSide {
    ProjectionFormat format;
    StereoVideoLayout layout;
    std::int64_t typed;
    OutputResolution expected;
};

TEST(ExportSettingsSize, HeightFollowsATypedWidth) {
    constexpr auto lowest = std::numeric_limits<std::int64_t>::min();
    const TypedSide sides[] = {
        {standard, mono, 1921, {1922, 1082}},
        {standard, mono, -1, {16384, 9216}},
        {standard, mono, lowest, {16384, 9216}},
        {standard, mono, 5, {128, 72}},
        {equirectangular, mono, 99999, {16384, 8192}},
        {equirectangular, sideBySide, 4098, {4100, 1025}},
        {equirectangular, sideBySide, 128, {256, 64}},
        {equirectangular, overUnder, 4096, {4096, 4096}},
        {halfEquirectangular, mono, 4095, {4096, 4096}},
        {halfEquirectangular, sideBySide, 8192, {8192, 4096}},
        {cubemap, mono, 200, {198, 132}},
        {eac, mono, 190, {192, 128}},
        {mirrorDome, mono, 3840, {3840, 2400}},
    };
    for (const auto& [format, layout, typed, expected] : sides) {
        auto settings = settingsOf(format, {1920, 1200}, layout);
        settings.setWidth(typed);
        EXPECT_EQ(stored(settings), expected) << rawValue(format) << " " << rawValue(layout) << " " << typed;
    }
}

TEST(ExportSettingsSize, WidthFollowsATypedHeight) {
    const TypedSide sides[] = {
        {standard, mono, 1079, {1920, 1080}},
        {standard, sideBySide, 1080, {3840, 1080}},
        {equirectangular, mono, 3, {144, 72}},
        {equirectangular, overUnder, 72, {128, 72}},
        {equirectangular, overUnder, 4096, {4096, 4096}},
        {domemaster, mono, 2047, {2048, 2048}},
        {cubemap, mono, 130, {198, 132}},
        {cubemap, mono, 126, {192, 128}},
        {mirrorDome, mono, 1200, {1920, 1200}},
        {mirrorDome, mono, 16384, {16384, 10240}},
    };
    for (const auto& [format, layout, typed, expected] : sides) {
        auto settings = settingsOf(format, {1920, 1200}, layout);
        settings.setHeight(typed);
        EXPECT_EQ(stored(settings), expected) << rawValue(format) << " " << rawValue(layout) << " " << typed;
    }
}

TEST(ExportSettingsPresets, ApplyingOneMatchesItUntilACriterionChanges) {
    for (const auto preset : allCases<ExportDeliveryPreset>) {
        ExportSettings settings;
        settings.vrMetadataMode = VRMetadataMode::off;
        settings.codec = ExportCodec::mvhevc8;
        settings.applyPreset(preset);
        EXPECT_EQ(matchingDeliveryPreset(settings), preset) << title(preset);
        EXPECT_EQ(stored(settings), settings.validatedResolution()) << title(preset);
        settings.bitrateMode = ExportBitrateMode::custom;
        EXPECT_EQ(matchingDeliveryPreset(settings), preset) << "a bitrate is no criterion";
        settings.codec = ExportCodec::proRes4444;
        EXPECT_EQ(matchingDeliveryPreset(settings), std::nullopt);
    }
}

TEST(ExportSettingsPresets, EverySizeOfTheCatalogueIsValidAsItStands) {
    std::size_t count = 0;
    std::set<std::string> ids;
    for (const auto format : allCases<ProjectionFormat>)
        for (const auto& preset : ExportResolutionPreset::presets(format)) {
            ++count;
            EXPECT_TRUE(ids.insert(preset.id()).second) << preset.id();
            ExportSettings settings;
            settings.applyPreset(preset);
            EXPECT_EQ(settings.validatedResolution(), preset.resolution) << preset.displayName();
        }
    EXPECT_EQ(count, 23u);
    EXPECT_TRUE(ExportResolutionPreset::presets(eac).empty());
    const auto& vr180 = ExportResolutionPreset::vr180StereoSideBySide();
    EXPECT_EQ(vr180.id(), "halfEquirectangular-8192x4096-sideBySide");
    EXPECT_EQ(vr180.displayName(), "VR180 3D 8K  8192x4096");
    EXPECT_EQ(ExportResolutionPreset::youtube360().id(), "equirectangular-7680x3840-default");
}

TEST(ExportSettingsBitrate, FollowsPixelsAndFramesAboveAFloor) {
    auto settings = settingsOf(equirectangular, {3840, 1920});
    EXPECT_NEAR(*settings.automaticBitrateMbps(30), 29.4912, 1e-12);
    EXPECT_NEAR(*settings.automaticBitrateMbps(60), 58.9824, 1e-12);
    EXPECT_NEAR(*settings.automaticBitrateMbps(0), 29.4912, 1e-12) << "unknown rates count as 30";
    EXPECT_NEAR(*settings.automaticBitrateMbps(999), 8 * 29.4912, 1e-9) << "at most 240 frames per second";
    EXPECT_NEAR(*settingsOf(standard, {1920, 1080}, mono, ExportCodec::h264).automaticBitrateMbps(30), 10.368, 1e-12);
    EXPECT_EQ(settingsOf(standard, {1280, 720}, mono, ExportCodec::h264).automaticBitrateMbps(30), 10);
    EXPECT_EQ(settingsOf(domemaster, {16384, 16384}, mono, ExportCodec::hevcWithAlpha).automaticBitrateMbps(240), 2000);

    settings.bitrateMode = ExportBitrateMode::custom;
    for (const auto& [typed, used] : {std::pair(80.0, 80.0), {0.2, 1.0}, {9999.0, 2000.0}}) {
        settings.customBitrateMbps = typed;
        EXPECT_EQ(settings.bitrateMbps(30), used);
    }
    settings.codec = ExportCodec::proRes422HQ;
    EXPECT_EQ(settings.bitrateMbps(30), std::nullopt);
    EXPECT_EQ(settings.automaticBitrateMbps(30), std::nullopt);
}

TEST(ExportFrameRateSummary, JoinsRatesThatAreTheSame) {
    constexpr double nan = std::numeric_limits<double>::quiet_NaN();
    const double rates[] = {60, 29.973, nan, 29.97, -1, 0, 29.97002997, std::numeric_limits<double>::infinity()};
    EXPECT_THAT(ExportFrameRateSummary(rates).distinctFrameRates(), testing::ElementsAre(29.97, 60));
    EXPECT_EQ(ExportFrameRateSummary({}).highestFrameRate(), std::nullopt);
}

TEST(ExportSettingsFrameRate, OnlyASingleMovieOfDifferingSourcesIsRetimed) {
    const std::vector<double> mixed = {30, 60}, alike = {29.97, 29.973}, none;
    ExportSettings settings;
    settings.frameRateMode = ExportFrameRateMode::custom;
    settings.customFrameRate = 24;
    EXPECT_EQ(settings.singleMovieTargetFrameRate(mixed), std::nullopt);
    EXPECT_EQ(settings.effectiveFrameRateText(mixed), localized("export.frame_rate.source"));
    settings.mode = ExportMode::singleMovie;
    EXPECT_EQ(settings.singleMovieTargetFrameRate(mixed), 24);
    EXPECT_EQ(settings.singleMovieTargetFrameRate(alike), std::nullopt);
    EXPECT_EQ(settings.effectiveFrameRateText(mixed), "24.00 fps");
    EXPECT_EQ(settings.effectiveFrameRateText(alike), "29.97 fps");
    EXPECT_EQ(settings.effectiveFrameRateText(none), localized("export.frame_rate.source"));
    settings.frameRateMode = ExportFrameRateMode::automatic;
    EXPECT_EQ(settings.singleMovieTargetFrameRate(mixed), 60);
}

TEST(ExportProgress, ShowsAHundredOnlyWhenDone) {
    for (const auto& [fraction, percent] :
         {std::pair(0.0, 0), std::pair(-1.0, 0), std::pair(0.5, 50), std::pair(0.299, 29), std::pair(0.9999, 99),
          std::pair(1.0, 100), std::pair(7.0, 100), std::pair(std::numeric_limits<double>::quiet_NaN(), 0)})
        EXPECT_EQ((ExportProgress{fraction, {}, {}}.displayedPercent()), percent) << fraction;
}

} // namespace
} // namespace panoveer
