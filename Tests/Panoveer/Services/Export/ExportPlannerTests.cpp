#include "Panoveer/Services/Export/Clips.h"
#include "Panoveer/Services/Export/ExportPlanner.h"
#include "Panoveer/Services/Export/ExportSamplePlanner.h"
#include "Platform/Core/Localization.h"
#include "Support/Thrown.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace panoveer {
namespace {

using Kind = ExportPlannerError::Kind;
using testing::ElementsAre;

ExportSettings settingsOf(ExportMode mode, ExportCodec codec = ExportCodec::hevc10) {
    ExportSettings settings;
    settings.mode = mode;
    settings.codec = codec;
    return settings;
}

const URL folder = URL::fromFilePath("/out");

std::vector<std::string> namesOf(const std::vector<VRClipSegment>& segments, const ExportSettings& settings) {
    std::vector<std::string> names;
    for (const auto& output : ExportPlanner::plan(segments, settings, folder, {})) {
        EXPECT_EQ(output.url.deletingLastPathComponent(), folder);
        names.push_back(output.url.lastPathComponent());
    }
    return names;
}

std::optional<Kind> failureOf(const std::vector<VRClipSegment>& segments, const ExportSettings& settings) {
    const auto error = test::thrown<ExportPlannerError>([&] { ExportPlanner::plan(segments, settings, folder, {}); });
    return error ? std::optional(error->kind()) : std::nullopt;
}

TEST(ExportPlanner, NothingLeftIsAnError) {
    auto empty = clipOf("/films/a.mov", 0, 5);
    empty.markedInPoint = empty.markedOutPoint = 2;
    for (const auto mode : {ExportMode::singleMovie, ExportMode::separateClips}) {
        EXPECT_EQ(failureOf({}, settingsOf(mode)), Kind::noSegments);
        EXPECT_EQ(failureOf({empty}, settingsOf(mode)), Kind::noSegments);
    }
    EXPECT_THROW(ExportPlanner::alphaMaskPlan(std::vector{empty}, ExportSettings{}, folder), ExportPlannerError);
}

TEST(ExportPlanner, ASingleMovieTakesTheHighestRateAndTheContainersExtension) {
    const std::vector clips = {clipOf("/films/a.mov", 0, 1), clipOf("/films/b.mov", 0, 1),
                               clipOf("/films/c.mov", 0, 1)};
    const SourceFrameRates rates = {{clips[0].sourceURL, 60}, {clips[1].sourceURL, 24}};
    auto settings = settingsOf(ExportMode::singleMovie);
    const auto plan = [&](const char* destination, const SourceFrameRates& known) {
        auto outputs = ExportPlanner::plan(clips, settings, URL::fromFilePath(destination), known);
        EXPECT_EQ(outputs.size(), 1u);
        return outputs.at(0);
    };
    const auto mixed = plan("/out/film.mov", rates);
    EXPECT_EQ(mixed.url, URL::fromFilePath("/out/film.mp4"));
    EXPECT_EQ(mixed.segments.size(), 3u);
    EXPECT_EQ(mixed.targetFrameRate, 60);
    EXPECT_EQ(mixed.frameRate, 60);
    EXPECT_EQ(mixed.bitrateMbps, settings.automaticBitrateMbps(60));
    EXPECT_EQ(mixed.resolution, (OutputResolution{3840, 1920}));

    settings.frameRateMode = ExportFrameRateMode::custom;
    settings.customFrameRate = 50;
    EXPECT_EQ(plan("/out/film", rates).targetFrameRate, 50);
    EXPECT_EQ(plan("/out/film", rates).frameRate, 60);
    EXPECT_EQ(plan("/out/film", rates).bitrateMbps, settings.automaticBitrateMbps(50));
    EXPECT_EQ(plan("/out/film", rates).url, URL::fromFilePath("/out/film.mp4"));

    const auto unknown = plan("/out/film", {});
    EXPECT_EQ(unknown.targetFrameRate, std::nullopt);
    EXPECT_EQ(unknown.frameRate, std::nullopt);
    EXPECT_EQ(unknown.bitrateMbps, settings.automaticBitrateMbps(30));

    settings.codec = ExportCodec::proRes;
    EXPECT_EQ(plan("/out/film.mp4", rates).url, URL::fromFilePath("/out/film.mov"));
    EXPECT_EQ(plan("/out/film", rates).bitrateMbps, std::nullopt);
    settings.codec = ExportCodec::h264;
    settings.bitrateMode = ExportBitrateMode::custom;
    settings.customBitrateMbps = 1e6;
    EXPECT_EQ(plan("/out/film", rates).bitrateMbps, 2000);
}

TEST(ExportPlanner, SeparateClipsAreOneMoviePerQueueEntry) {
    const auto first = clipOf("/films/a.mov", 0, 1);
    const auto second = clipOf("/films/b.mov", 0, 1);
    const std::vector clips = {first, nextOf(first, 3, 4), second, nextOf(first, 5, 6)};
    const SourceFrameRates rates = {{first.sourceURL, 60}};
    const auto settings = settingsOf(ExportMode::separateClips);
    const auto outputs = ExportPlanner::plan(clips, settings, folder, rates);
    ASSERT_EQ(outputs.size(), 3u);
    EXPECT_EQ(outputs[0].segments.size(), 2u);
    EXPECT_EQ(outputs[0].frameRate, 60);
    EXPECT_EQ(outputs[0].bitrateMbps, settings.automaticBitrateMbps(60));
    EXPECT_EQ(outputs[1].frameRate, std::nullopt);
    EXPECT_EQ(outputs[1].bitrateMbps, settings.automaticBitrateMbps(30));
    EXPECT_EQ(outputs[2].url.lastPathComponent(), "a - equirectangular (2).mp4");
    for (const auto& output : outputs)
        EXPECT_EQ(output.targetFrameRate, std::nullopt);
}

TEST(ExportPlanner, EveryClipCarriesTheOutputSettings) {
    auto clip = clipOf("/films/a.mov", -1, -0.5); // a start before the file counts as 0
    clip.transform.outputFormat = ProjectionFormat::equirectangular;
    clip.transform.yawDegrees = 400;
    auto settings = settingsOf(ExportMode::separateClips, ExportCodec::mvhevc10);
    settings.outputFormat = ProjectionFormat::cubemap;
    settings.customWidth = 6000;
    settings.customHeight = 100;
    settings.mirrorDomeWarpMeshURL = URL::fromFilePath("/meshes/dome.data");
    for (const auto mode : {ExportMode::singleMovie, ExportMode::separateClips}) {
        settings.mode = mode;
        const auto output = ExportPlanner::plan(std::vector{clip}, settings, folder, {}).at(0);
        EXPECT_EQ(output.stereoLayout, StereoVideoLayout::sideBySide);
        EXPECT_EQ(output.resolution, (OutputResolution{6000, 2000}));
        const auto& planned = output.segments.at(0);
        EXPECT_EQ(planned.start, 0);
        EXPECT_EQ(planned.end, 1.0 / 240);
        EXPECT_EQ(planned.transform.outputFormat, ProjectionFormat::cubemap);
        EXPECT_EQ(planned.transform.outputResolution, output.resolution);
        EXPECT_EQ(planned.transform.outputStereoLayout, StereoVideoLayout::sideBySide);
        EXPECT_EQ(planned.transform.mirrorDomeWarpMeshURL, settings.mirrorDomeWarpMeshURL);
        EXPECT_EQ(planned.transform.fovDegrees, 90);
        EXPECT_EQ(planned.transform.yawDegrees, 40);
    }
}

TEST(ExportPlannerNames, AreUniqueWithinAPlanWhateverTheLetterCase) {
    auto settings = settingsOf(ExportMode::separateClips, ExportCodec::proRes);
    settings.outputFormat = ProjectionFormat::standard;
    EXPECT_THAT(
        namesOf({clipOf("/a/clip.MOV", 0, 1), clipOf("/b/CLIP.mov", 0, 1), clipOf("/c/clip.mkv", 0, 1)}, settings),
        ElementsAre("clip - standard.mov", "CLIP - standard (2).mov", "clip - standard (3).mov"));

    const auto named = [](const char* name) {
        auto clip = clipOf("/a/clip.mov", 0, 1);
        clip.exportFileName = name;
        return clip;
    };
    EXPECT_THAT(namesOf({named("final.mp4"), named("..."), named("final")}, settings),
                ElementsAre("final.mov", "clip - standard.mov", "final (2).mov"));
    // A number that somebody typed is not given out again: the second movie would replace the first.
    EXPECT_THAT(namesOf({named("a (2)"), named("a"), named("a"), named("A (2)"), named("a")}, settings),
                ElementsAre("a (2).mov", "a.mov", "a (3).mov", "A (2) (2).mov", "a (4).mov"));
    settings.codec = ExportCodec::h264;
    EXPECT_THAT(namesOf({named("final.mov")}, settings), ElementsAre("final.mp4"));
}

TEST(ExportPlannerMasks, AreNumberedPerSourceAndKeepTheClipsOwnLayout) {
    auto first = clipOf("/a/Sky.mov", 0, 1);
    first.transform.outputStereoLayout = StereoVideoLayout::overUnder;
    ExportSettings settings;
    settings.outputFormat = ProjectionFormat::mirrorDome;
    settings.customWidth = 1920;
    settings.customHeight = 1200;
    settings.mirrorDomeWarpMeshURL = URL::fromFilePath("/meshes/dome.data");
    const std::vector clips = {first, nextOf(first, 4, 5), clipOf("/b/sky.mov", 0, 1)};
    const auto masks = ExportPlanner::alphaMaskPlan(clips, settings, folder);
    ASSERT_EQ(masks.size(), 3u);
    EXPECT_EQ(masks[0].url, URL::fromFilePath("/out/Sky-1.png"));
    EXPECT_EQ(masks[1].url, URL::fromFilePath("/out/Sky-2.png"));
    EXPECT_EQ(masks[2].url, URL::fromFilePath("/out/sky-1.png"));
    const auto& transform = masks[0].segment.transform;
    EXPECT_EQ(masks[0].resolution, (OutputResolution{1920, 1200}));
    EXPECT_EQ(transform.outputResolution, masks[0].resolution);
    EXPECT_EQ(transform.outputFormat, ProjectionFormat::mirrorDome);
    EXPECT_EQ(transform.mirrorDomeWarpMeshURL, settings.mirrorDomeWarpMeshURL);
    EXPECT_EQ(transform.outputStereoLayout, StereoVideoLayout::overUnder);
}

TEST(ExportSamplePlanner, TakesTheFirstSecondsOfTheMarkedRange) {
    auto first = clipOf("/films/a.mov", 10, 14);
    first.markedInPoint = 1;
    const std::vector clips = {first, clipOf("/films/b.mov", 0.1, 0.7), clipOf("/films/c.mov", 0, 9)};
    const auto ranges = [&](double duration) {
        std::vector<std::pair<double, double>> result;
        for (const auto& clip : ExportSamplePlanner::prefix(clips, duration))
            result.emplace_back(clip.start, clip.end);
        return result;
    };
    using Pair = std::pair<double, double>;
    EXPECT_THAT(ranges(2), ElementsAre(Pair(11, 13)));
    EXPECT_THAT(ranges(3), ElementsAre(Pair(11, 14)));
    EXPECT_THAT(ranges(1000), ElementsAre(Pair(11, 14), Pair(0.1, 0.7), Pair(0, 9)));
    EXPECT_TRUE(ranges(0).empty());
    EXPECT_TRUE(ranges(-1).empty());
}

} // namespace
} // namespace panoveer
