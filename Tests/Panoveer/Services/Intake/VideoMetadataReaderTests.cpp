#include "Panoveer/Services/Intake/CanonRawMetadataReader.h"
#include "Panoveer/Services/Intake/FFmpegReaderError.h"
#include "Panoveer/Services/Intake/FFmpegRuntime.h"
#include "Panoveer/Services/Intake/VideoMetadataReader.h"
#include "Support/MediaFactory.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <cmath>

namespace panoveer {
namespace {

namespace fs = std::filesystem;
using Backend = VideoDecodingBackend;
using Orientation = SourceVideoOrientation;

constexpr Backend native = Backend::avFoundation;

VideoAsset read(const fs::path& file) { return VideoMetadataReader::readStreams(URL::fromFilePath(file)); }

void writeText(const fs::path& file, std::string_view text) {
    test::writeFile(file, std::vector<std::uint8_t>(text.begin(), text.end()));
}

struct MadeMovie {
    const char* name;
    test::MovieSpec spec;
    Backend backend;
    CGSizeValue size;
    Orientation orientation = Orientation::up;
    bool containsAlpha = false;
};

void PrintTo(const MadeMovie& movie, std::ostream* stream) { *stream << movie.name; }

class MadeMovies : public testing::TestWithParam<MadeMovie> {};

TEST_P(MadeMovies, AreReadByTheRoadThatDecodesThem) {
    const auto& expected = GetParam();
    const test::TemporaryFolder folder;
    const auto file = test::makeMovie(folder, expected.spec);
    const auto asset = read(file);
    EXPECT_EQ(asset.url, URL::fromFilePath(file));
    EXPECT_EQ(asset.displayName, file.stem().string());
    EXPECT_EQ(asset.videoDecodingBackend, expected.backend);
    EXPECT_EQ(asset.naturalSize, expected.size);
    EXPECT_EQ(asset.sourceOrientation, expected.orientation);
    EXPECT_EQ(asset.containsAlphaChannel, expected.containsAlpha);
    EXPECT_NEAR(asset.frameRate, 30, 1e-3);
    const auto duration = test::ffprobeJSON(file)["format"]["duration"].get<std::string>();
    EXPECT_NEAR(asset.duration, std::stod(duration), 0.001);
    EXPECT_EQ(asset.playbackStatus, VideoPlaybackStatus::playable);
    const bool isCompatible = expected.backend == native && file.extension() != ".avi" && file.extension() != ".mkv";
    EXPECT_EQ(asset.liveSyphonCompatibility,
              isCompatible ? LiveSyphonCompatibility::compatible : LiveSyphonCompatibility::transcodeRecommended);
    EXPECT_FALSE(asset.formatDetection || asset.securityScopedBookmark || asset.ffmpegPlaybackClockURL);
    EXPECT_NE(asset.id, read(file).id);
}

INSTANTIATE_TEST_SUITE_P(
    Intake, MadeMovies,
    testing::Values(
        MadeMovie{"MovH264", {.name = "a.mov"}, native, {160, 96}},
        MadeMovie{"Mp4Hevc", {.name = "a.mp4", .codec = "libx265", .pixelFormat = "yuv420p10le"}, native, {160, 96}},
        MadeMovie{"MkvH264", {.name = "a.mkv"}, native, {160, 96}},
        MadeMovie{"AviMjpeg", {.name = "a.avi", .codec = "mjpeg", .pixelFormat = "yuvj420p"}, native, {160, 96}},
        MadeMovie{"ProResWithAlpha",
                  {.name = "a.mov", .codec = "prores_ks", .pixelFormat = "yuva444p10le"},
                  native,
                  {160, 96},
                  Orientation::up,
                  true},
        MadeMovie{"WebmVp9", {.name = "a.webm", .codec = "libvpx-vp9"}, Backend::ffmpeg, {160, 96}},
        MadeMovie{"MovAnimationWithAlpha",
                  {.name = "a.mov", .codec = "qtrle", .pixelFormat = "argb"},
                  Backend::ffmpeg,
                  {160, 96},
                  Orientation::up,
                  true},
        MadeMovie{"Mp4Vp9", {.name = "a.mp4", .codec = "libvpx-vp9"}, Backend::ffmpeg, {160, 96}},
        MadeMovie{"TransportStreamInUpperCase",
                  {.name = "a.MTS", .outputOptions = {"-f", "mpegts"}},
                  Backend::ffmpeg,
                  {160, 96}},
        MadeMovie{"MpegProgramStream", {.name = "a.mpg", .codec = "mpeg2video"}, Backend::ffmpeg, {160, 96}},
        MadeMovie{
            "PhoneMovieOnItsSide", {.name = "a.mov", .rotationDegrees = 90}, native, {96, 160}, Orientation::right},
        MadeMovie{
            "PhoneMovieOnItsHead", {.name = "a.mov", .rotationDegrees = 180}, native, {160, 96}, Orientation::down},
        MadeMovie{"Vp9MovieOnItsOtherSide",
                  {.name = "a.mp4", .codec = "libvpx-vp9", .rotationDegrees = 270},
                  Backend::ffmpeg,
                  {96, 160},
                  Orientation::left}),
    [](const auto& parameter) { return parameter.param.name; });

TEST(VideoMetadataReader, GuessesTheProjectionFromTheDisplayedShape) {
    const test::TemporaryFolder folder;
    const auto wide = test::makeMovie(folder, {.name = "wide.mov", .width = 256, .height = 128, .frameCount = 2});
    const auto turned = test::makeMovie(
        folder, {.name = "turned.mov", .width = 128, .height = 256, .frameCount = 2, .rotationDegrees = 90});
    EXPECT_EQ(read(wide).detectedFormat, ProjectionFormat::equirectangular);
    EXPECT_EQ(read(turned).detectedFormat, ProjectionFormat::equirectangular);
}

TEST(VideoMetadataReader, KeepsColoursOnBothRoads) {
    struct Row {
        const char* codec;
        const char *primaries, *transfer, *matrix;
        VideoColorMetadata expected;
    };
    const Row rows[] = {
        {"libx265",
         "bt2020",
         "smpte2084",
         "bt2020nc",
         {VideoColorPrimaries::bt2020, VideoTransferFunction::pq, VideoYCbCrMatrix::bt2020, {}, {}}},
        {"libvpx-vp9",
         "bt2020",
         "arib-std-b67",
         "bt2020nc",
         {VideoColorPrimaries::bt2020, VideoTransferFunction::hlg, VideoYCbCrMatrix::bt2020, {}, {}}},
        {"libx264",
         "smpte432",
         "iec61966-2-1",
         "smpte170m",
         {VideoColorPrimaries::p3D65, VideoTransferFunction::sRGB, VideoYCbCrMatrix::bt601, {}, {}}},
        {"libx264", "", "", "", VideoColorMetadata::rec709},
    };
    for (const auto& row : rows) {
        const test::TemporaryFolder folder;
        EXPECT_EQ(read(test::makeMovie(folder, {.name = "a.mp4",
                                                .frameCount = 3,
                                                .codec = row.codec,
                                                .primaries = row.primaries,
                                                .transfer = row.transfer,
                                                .matrix = row.matrix}))
                      .colorMetadata,
                  row.expected)
            << row.codec << ' ' << row.transfer;
    }
}

// A movie whose pictures are destroyed while its index is whole: it opens everywhere and decodes nowhere.
std::vector<std::uint8_t> movieWithoutPictures(const test::TemporaryFolder& folder) {
    auto bytes = test::readFile(test::makeMovie(folder, {.name = "whole.mp4", .frameCount = 5}));
    const std::string_view tag = "mdat";
    const auto media = std::ranges::search(bytes, tag);
    const auto size = std::size_t(media.begin()[-4]) << 24 | std::size_t(media.begin()[-3]) << 16 |
                      std::size_t(media.begin()[-2]) << 8 | std::size_t(media.begin()[-1]);
    std::fill_n(media.end(), size - 8, std::uint8_t(0xff));
    return bytes;
}

TEST(VideoMetadataReader, TriesAPictureOnlyInContainersThatAreKnownToDeceive) {
    const test::TemporaryFolder folder;
    const auto broken = movieWithoutPictures(folder);
    test::writeFile(folder / "broken.mp4", broken);
    test::writeFile(folder / "broken.MKV", broken);
    EXPECT_EQ(read(folder / "broken.mp4").videoDecodingBackend, native);
    EXPECT_EQ(read(folder / "broken.MKV").videoDecodingBackend, Backend::ffmpeg);
}

TEST(VideoMetadataReader, KeepsInMindWhatFFmpegReads) {
    const test::TemporaryFolder folder;
    const auto webm = test::makeMovie(folder, {.name = "a.webm", .frameCount = 3, .codec = "libvpx-vp9"});
    read(webm);
    fs::remove(webm);
    EXPECT_TRUE(FFmpegRuntime::requiresSoftwarePreview(URL::fromFilePath(webm)));
    EXPECT_FALSE(FFmpegRuntime::requiresSoftwarePreview(URL::fromFilePath(folder / "other.webm")));
}

TEST(VideoMetadataReader, GivesTheUsefulErrorOfTheRoadsThatFailed) {
    const test::TemporaryFolder folder;
    for (const auto* name : {"note.mov", "note.mkv", "note.ts", "note.crm"})
        writeText(folder / name, "This is no movie.");
    const auto sound =
        test::makeMovie(folder, {.name = "sound.mov", .frameCount = 0, .audio = {{}}, .audioSeconds = 0.2});

    // Two roads, and FFmpeg's cannot even inspect the file: the native failure says more.
    for (const auto* name : {"missing.mov", "note.mov", "note.mkv"}) {
        try {
            read(folder / name);
            FAIL() << name << " was read";
        } catch (const Error& failure) {
            EXPECT_EQ(failure.domain(), name == std::string("missing.mov") ? posixErrorDomain : mediaErrorDomain)
                << name;
        }
    }
    EXPECT_THROW(read(sound), VideoMetadataError);
    // One road only.
    EXPECT_THROW(read(folder / "note.ts"), FFmpegReaderError);
    EXPECT_THROW(read(folder / "missing.ts"), FFmpegReaderError);
    // Three roads, the last of which has the last word.
    EXPECT_THROW(read(folder / "note.crm"), CanonRawMetadataError);
}

TEST(VideoMetadataReader, ReadsCanonRawMoviesByWhicheverRoadKnowsThem) {
    const test::TemporaryFolder folder;
    // To every decoder an unknown codec; to the box walk a movie like any other.
    auto raw = test::readFile(test::makeMovie(folder, {.name = "raw.mp4", .width = 256, .height = 128}));
    const std::string_view codec = "avc1";
    for (auto rest = std::ranges::subrange(raw); !rest.empty();) {
        const auto found = std::ranges::search(rest, codec);
        if (!found.empty())
            std::ranges::copy(std::string_view("CRAW"), found.begin());
        rest = std::ranges::subrange(found.end(), raw.end());
    }
    test::writeFile(folder / "raw.CRM", raw);
    const auto asset = read(folder / "raw.CRM");
    EXPECT_EQ(asset.videoDecodingBackend, Backend::ffmpeg);
    EXPECT_EQ(asset.playbackStatus, VideoPlaybackStatus::conversionRequired);
    EXPECT_EQ(asset.liveSyphonCompatibility, LiveSyphonCompatibility::compatible);
    EXPECT_EQ(asset.naturalSize, (CGSizeValue{256, 128}));
    EXPECT_EQ(asset.detectedFormat, ProjectionFormat::equirectangular);
    EXPECT_NEAR(asset.duration, 1, 1e-3);
    EXPECT_NEAR(asset.frameRate, 30, 1e-3);

    // A known codec under the same extension takes the usual road, and still has to be converted first.
    fs::rename(test::makeMovie(folder, {.name = "known.mov"}), folder / "known.crm");
    const auto known = read(folder / "known.crm");
    EXPECT_EQ(known.videoDecodingBackend, native);
    EXPECT_EQ(known.playbackStatus, VideoPlaybackStatus::conversionRequired);
}

TEST(VideoMetadataReader, AsksForAPlaybackClockOnTheFFmpegRoadAlone) {
    const test::TemporaryFolder folder;
    const auto clock = URL::fromFilePath(folder / "clock.m4a");
    struct Call {
        URL url;
        double duration;
        bool hasAudio;
    };
    std::vector<Call> calls;
    const auto build = [&](const URL& url, double duration, bool hasAudio, const std::stop_token&) {
        calls.push_back({url, duration, hasAudio});
        return std::optional(clock);
    };
    const auto readWithClock = [&](const fs::path& file) {
        return VideoMetadataReader::readStreams(URL::fromFilePath(file), {}, build).ffmpegPlaybackClockURL;
    };
    EXPECT_EQ(readWithClock(test::makeMovie(folder, {.name = "native.mov"})), std::nullopt);
    EXPECT_TRUE(calls.empty());
    const auto silent = test::makeMovie(folder, {.name = "a.webm", .codec = "libvpx-vp9"});
    const auto sounding = test::makeMovie(folder, {.name = "b.mkv", .codec = "libvpx-vp9", .audio = {{}}});
    EXPECT_EQ(readWithClock(silent), clock);
    EXPECT_EQ(readWithClock(sounding), clock);
    ASSERT_EQ(calls.size(), 2u);
    EXPECT_EQ(calls[0].url, URL::fromFilePath(silent));
    EXPECT_NEAR(calls[0].duration, 1, 0.02);
    EXPECT_FALSE(calls[0].hasAudio);
    EXPECT_TRUE(calls[1].hasAudio);

    // A builder's own failure fails the road and is told as it is, not as the native road's.
    const auto fail = [](const URL&, double, bool, const std::stop_token&) -> std::optional<URL> {
        throw Error("disk full");
    };
    try {
        VideoMetadataReader::readStreams(URL::fromFilePath(silent), {}, fail);
        FAIL() << "was read";
    } catch (const Error& failure) {
        EXPECT_STREQ(failure.what(), "disk full");
    }
}

TEST(VideoMetadataReader, StopsBetweenItsSteps) {
    const test::TemporaryFolder folder;
    const auto file =
        URL::fromFilePath(test::makeMovie(folder, {.name = "a.webm", .frameCount = 3, .codec = "libvpx-vp9"}));
    std::stop_source source;
    const auto stopping = [&](const URL&, double, bool, const std::stop_token& stop) -> std::optional<URL> {
        source.request_stop();
        if (stop.stop_requested())
            throw Cancelled();
        return std::nullopt;
    };
    EXPECT_THROW(VideoMetadataReader::readStreams(file, source.get_token(), stopping), Cancelled);
    EXPECT_THROW(VideoMetadataReader::readStreams(file, source.get_token()), Cancelled);
}

} // namespace
} // namespace panoveer
