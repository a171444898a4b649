#include "Clips.h"
#include "Panoveer/Services/Export/ExportEncoderPreflight.h"
#include "Panoveer/Services/Export/ExportJobCoordinator.h"
#include "Panoveer/Services/Export/ExportReadiness.h"

#include <gmock/gmock.h>

namespace panoveer {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using Blocker = ExportReadinessBlocker;
using Result = ExportDestinationPreflightResult;

struct ReadinessRow {
    const char* name;
    ExportColorMode colorMode;
    ExportCodec codec;
    VideoDecodingBackend backend;
    std::vector<std::string> blockers;
};

class Readiness : public testing::TestWithParam<ReadinessRow> {};

TEST_P(Readiness, AsksForTenBitsFromTheDecoderToTheEncoder) {
    const auto& row = GetParam();
    ExportSettings settings;
    settings.colorMode = row.colorMode;
    settings.codec = row.codec;
    auto clip = clipOf("/source.mov", 0, 1);
    clip.videoDecodingBackend = row.backend;
    const ExportReadiness::Checks checks{.fileExists = [](auto&) { return true; },
                                         .isEncoderSupported = [](auto&) { return true; }};
    std::vector<std::string> names;
    for (const auto& blocker : ExportReadiness::evaluate({{clip}}, settings, std::nullopt, {}, checks))
        names.emplace_back(blocker.name());
    EXPECT_EQ(names, row.blockers);
}

using enum ExportColorMode;
using enum VideoDecodingBackend;
INSTANTIATE_TEST_SUITE_P(
    HDR, Readiness,
    testing::Values(ReadinessRow("SDR", convertToSDR, ExportCodec::h264, ffmpeg, {}),
                    ReadinessRow("EightBits", preserveHDR, ExportCodec::hevc8, automatic, {"hdrCodecRequired"}),
                    ReadinessRow("HLGToo", hdrHLG, ExportCodec::h264, automatic, {"hdrCodecRequired"}),
                    ReadinessRow("TenBits", hdrHLG, ExportCodec::hevc10, automatic, {}),
                    ReadinessRow("Multiview", preserveHDR, ExportCodec::mvhevc10, automatic, {}),
                    ReadinessRow("ProRes", preserveHDR, ExportCodec::proRes4444, automatic, {}),
                    ReadinessRow("EightBitRoad", preserveHDR, ExportCodec::proRes, ffmpeg,
                                 {"hdrNativeDecoderRequired"}),
                    ReadinessRow("Both", hdrHLG, ExportCodec::hevcWithAlpha, ffmpeg,
                                 {"hdrCodecRequired", "hdrNativeDecoderRequired"})),
    [](const auto& test) { return test.param.name; });

TEST(ExportReadinessTests, GathersEverythingInOrderAndSaysWhatToDo) {
    ExportSettings settings;
    settings.codec = ExportCodec::h264;
    settings.colorMode = preserveHDR;
    settings.outputFormat = ProjectionFormat::standard;
    settings.customWidth = 1280;
    settings.customHeight = 720;
    settings.bitrateMode = ExportBitrateMode::custom;
    settings.customBitrateMbps = 80;
    auto clip = clipOf("/gone.mov", 0, 100);
    auto empty = clipOf("/gone.mov", 5, 5);
    empty.videoDecodingBackend = ffmpeg;
    double estimated = 0;
    const ExportReadiness::Checks checks{.fileExists = [](auto&) { return false; },
                                         .isEncoderSupported = [](auto&) { return false; },
                                         .destination =
                                             [&](double bytes, const URL& url) {
                                                 estimated = bytes;
                                                 return ExportDestinationPreflight::evaluate(bytes, url,
                                                                                             [](auto&) { return 2e9; });
                                             }};
    const auto destination = URL::fromFilePath("/out/film.mp4");
    const auto blockers = ExportReadiness::evaluate(std::vector{clip, clip, empty}, settings, destination, {}, checks);
    EXPECT_DOUBLE_EQ(estimated, 2e9);
    EXPECT_THAT(blockers,
                ElementsAre(Blocker{Blocker::MissingSource{clip.sourceURL}},
                            Blocker{Blocker::EncoderUnavailable{ExportCodec::h264, {1280, 720}}},
                            Blocker{Blocker::InsufficientSpace{2e9, 3.1e9, 2e9}}, Blocker{Blocker::HDRCodecRequired{}},
                            Blocker{Blocker::HDRNativeDecoderRequired{}}));
    EXPECT_THAT(blockers[0].message(), HasSubstr("/gone.mov"));
    EXPECT_THAT(blockers[1].message(), HasSubstr("1280x720"));
    EXPECT_THAT(blockers[2].message(), testing::AllOf(HasSubstr("2.0 GB"), HasSubstr("3.1 GB")));
    const auto none = ExportReadiness::evaluate({}, ExportSettings(), std::nullopt, {}, checks);
    EXPECT_THAT(none, ElementsAre(testing::_, Blocker{Blocker::NoClips{}}));
}

TEST(ExportDestinationPreflightTests, AsksForFivePerCentAndAGigabyteMore) {
    const auto destination = URL::fromFilePath("/out");
    const auto with = [&](double estimated, std::int64_t free) {
        return ExportDestinationPreflight::evaluate(estimated, destination, [free](auto&) { return free; });
    };
    EXPECT_EQ(with(10e9, 11'500'000'000), Result{(Result::Sufficient{11.5e9, 11.5e9})});
    EXPECT_EQ(with(10e9, 11'499'999'999), Result{(Result::Insufficient{10e9, 11.5e9, 11'499'999'999})});
    EXPECT_EQ(with(0, 999'999'999), Result{(Result::Insufficient{0, 1e9, 999'999'999})});
    EXPECT_EQ(with(-5, 1'000'000'000), Result{(Result::Sufficient{1e9, 1e9})});
    // A file system that keeps no count, and folders that are yet to be made.
    EXPECT_EQ(ExportDestinationPreflight::evaluate(0, URL::fromFilePath("/proc/a/b.mov")),
              Result{Result::Unavailable{URL::fromFilePath("/proc/a/b.mov")}});
    EXPECT_EQ(ExportDestinationPreflight::availableCapacity(URL::fromFilePath("/tmp/no/such/folder.mov")) > 0, true);
}

TEST(ExportEncoderPreflightTests, AsksThePlatformOnceForEachCodecAndSize) {
    int questions = 0;
    ExportEncoderPreflight preflight(
        [&](ExportCodec codec, std::int64_t width, std::int64_t) {
            ++questions;
            return codec == ExportCodec::hevc8 && width <= 4096;
        },
        [](ExportCodec) { return false; });
    ExportSettings settings;
    settings.outputFormat = ProjectionFormat::standard;
    settings.codec = ExportCodec::hevc8;
    settings.customWidth = 1280;
    settings.customHeight = 720;
    EXPECT_TRUE(preflight.isSupported(settings));
    settings.colorMode = hdrHLG;
    EXPECT_TRUE(preflight.isSupported(settings));
    EXPECT_EQ(questions, 1);
    settings.codec = ExportCodec::h264;
    EXPECT_FALSE(preflight.isSupported(settings));
    EXPECT_EQ(questions, 2);
    settings.codec = ExportCodec::mvhevc8;
    EXPECT_FALSE(preflight.isSupported(settings));
    EXPECT_EQ(questions, 2) << "there is no multiview encoder to ask for";
}

TEST(ExportEncoderPreflightTests, AsksForTheEyeOfAMultiviewMovie) {
    std::vector<std::tuple<ExportCodec, std::int64_t, std::int64_t>> asked;
    ExportEncoderPreflight preflight(
        [&](ExportCodec codec, std::int64_t width, std::int64_t height) {
            asked.emplace_back(codec, width, height);
            return true;
        },
        [](ExportCodec) { return true; });
    ExportSettings settings;
    settings.codec = ExportCodec::mvhevc10;
    settings.outputFormat = ProjectionFormat::halfEquirectangular;
    settings.stereoLayout = StereoVideoLayout::sideBySide;
    settings.customWidth = 8192;
    settings.customHeight = 4096;
    EXPECT_TRUE(preflight.isSupported(settings));
    EXPECT_THAT(asked, ElementsAre(std::tuple(ExportCodec::hevc10, 4096, 4096)));
    settings.customWidth = 8200;
    settings.customHeight = 4100;
    EXPECT_FALSE(preflight.isSupported(settings)) << "an eye has at most 4096 pixels on a side";
    settings.outputFormat = ProjectionFormat::mirrorDome;
    EXPECT_FALSE(preflight.isSupported(settings));
}

TEST(ExportJobCoordinatorTests, LetsOneJobAtATimeOwnTheExporter) {
    ExportJobCoordinator coordinator;
    const auto first = UUID::random(), second = UUID::random();
    EXPECT_FALSE(coordinator.finish(first));
    EXPECT_TRUE(coordinator.begin(first));
    EXPECT_TRUE(coordinator.begin(first));
    EXPECT_FALSE(coordinator.begin(second));
    EXPECT_FALSE(coordinator.finish(second));
    EXPECT_TRUE(coordinator.isCurrent(first));
    EXPECT_TRUE(coordinator.finish(first));
    EXPECT_TRUE(coordinator.begin(second));
}

} // namespace
} // namespace panoveer
