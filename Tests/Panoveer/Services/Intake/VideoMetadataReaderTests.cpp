#include "Panoveer/Services/Intake/CanonRawMetadataReader.h"
#include "Panoveer/Services/Intake/FFmpegReaderError.h"
#include "Panoveer/Services/Intake/FFmpegRuntime.h"
#include "Panoveer/Services/Intake/VideoMetadataReader.h"
#include "Support/MediaFactory.h"
#include "Support/Thrown.h"

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

struct MadeMovie {
    const char* name;
    Backend backend;
    const char *file, *codec, *pixelFormat;
    int rotationDegrees = 0;
    Orientation orientation = Orientation::up;
    bool containsAlpha = false;
};

void PrintTo(const MadeMovie& movie, std::ostream* stream) { *stream << movie.name; }

class MadeMovies : public testing::TestWithParam<MadeMovie> {};

TEST_P(MadeMovies, AreReadByTheRoadThatDecodesThem) {
    const auto& expected = GetParam();
    const test::TemporaryFolder folder;
    test::MovieSpec spec{.name = expected.file, .codec = expected.codec, .pixelFormat = expected.pixelFormat};
    spec.rotationDegrees = expected.rotationDegrees;
    if (spec.name.ends_with("MTS"))
        spec.outputOptions = {"-f", "mpegts"};
    const auto file = test::makeMovie(folder, spec);
    const auto asset = read(file);
    EXPECT_EQ(asset.url, URL::fromFilePath(file));
    EXPECT_EQ(asset.displayName, file.stem().string());
    EXPECT_EQ(asset.videoDecodingBackend, expected.backend);
    const bool isOnItsSide = expected.rotationDegrees % 180 != 0;
    EXPECT_EQ(asset.naturalSize, (isOnItsSide ? CGSizeValue{96, 160} : CGSizeValue{160, 96}));
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

constexpr auto ffmpeg = Backend::ffmpeg;
constexpr auto x264 = "libx264", vp9 = "libvpx-vp9", eightBits = "yuv420p";

INSTANTIATE_TEST_SUITE_P(
    Intake, MadeMovies,
    testing::Values(MadeMovie{"MovH264", native, "a.mov", x264, eightBits},
                    MadeMovie{"Mp4Hevc", native, "a.mp4", "libx265", "yuv420p10le"},
                    MadeMovie{"MkvH264", native, "a.mkv", x264, eightBits},
                    MadeMovie{"AviMjpeg", native, "a.avi", "mjpeg", "yuvj420p"},
                    MadeMovie{"ProResWithAlpha", native, "a.mov", "prores_ks", "yuva444p10le", 0, Orientation::up,
                              true},
                    MadeMovie{"WebmVp9", ffmpeg, "a.webm", vp9, eightBits},
                    MadeMovie{"MovAnimationWithAlpha", ffmpeg, "a.mov", "qtrle", "argb", 0, Orientation::up, true},
                    MadeMovie{"Mp4Vp9", ffmpeg, "a.mp4", vp9, eightBits},
                    MadeMovie{"TransportStreamInUpperCase", ffmpeg, "a.MTS", x264, eightBits},
                    MadeMovie{"MpegProgramStream", ffmpeg, "a.mpg", "mpeg2video", eightBits},
                    MadeMovie{"PhoneMovieOnItsSide", native, "a.mov", x264, eightBits, 90, Orientation::right},
                    MadeMovie{"PhoneMovieOnItsHead", native, "a.mov", x264, eightBits, 180, Orientation::down},
                    MadeMovie{"Vp9MovieOnItsOtherSide", ffmpeg, "a.mp4", vp9, eightBits, 270, Orientation::left}),
    [](const auto& parameter) { return parameter.param.name; });

TEST(VideoMetadataReader, KeepsColoursOnBothRoads) {
    using P = VideoColorPrimaries;
    using T = VideoTransferFunction;
    using M = VideoYCbCrMatrix;
    struct Row {
        const char *codec, *primaries, *transfer, *matrix;
        VideoColorMetadata expected;
    };
    for (const auto& row : {Row{"libx265", "bt2020", "smpte2084", "bt2020nc", {P::bt2020, T::pq, M::bt2020, {}, {}}},
                            Row{vp9, "bt2020", "arib-std-b67", "bt2020nc", {P::bt2020, T::hlg, M::bt2020, {}, {}}},
                            Row{x264, "smpte432", "iec61966-2-1", "smpte170m", {P::p3D65, T::sRGB, M::bt601, {}, {}}},
                            Row{x264, "", "", "", VideoColorMetadata::rec709}}) {
        const test::TemporaryFolder folder;
        test::MovieSpec spec{.name = "a.mp4", .frameCount = 3, .codec = row.codec};
        spec.primaries = row.primaries;
        spec.transfer = row.transfer;
        spec.matrix = row.matrix;
        EXPECT_EQ(read(test::makeMovie(folder, spec)).colorMetadata, row.expected) << row.codec << ' ' << row.transfer;
    }
}

// A movie whose pictures are destroyed while its index is whole: it opens everywhere and decodes nowhere.
std::vector<std::uint8_t> movieWithoutPictures(const test::TemporaryFolder& folder) {
    auto bytes = test::readFile(test::makeMovie(folder, {.name = "whole.mp4", .frameCount = 5}));
    const auto media = test::findBox(bytes, {"mdat"});
    std::fill(bytes.begin() + std::ptrdiff_t(media.content), bytes.begin() + std::ptrdiff_t(media.end),
              std::uint8_t(0xff));
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
        test::writeText(folder / name, "This is no movie.");
    const auto sound =
        test::makeMovie(folder, {.name = "sound.mov", .frameCount = 0, .audio = {{}}, .audioSeconds = 0.2});

    // Two roads, and FFmpeg's cannot even inspect the file: the native failure says more.
    for (const auto* name : {"missing.mov", "note.mov", "note.mkv"}) {
        const auto failure = test::thrown<Error>([&] { read(folder / name); });
        ASSERT_TRUE(failure) << name << " was read";
        EXPECT_EQ(failure->domain(), name == std::string("missing.mov") ? posixErrorDomain : mediaErrorDomain) << name;
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
    const auto readAndFail = [&] { VideoMetadataReader::readStreams(URL::fromFilePath(silent), {}, fail); };
    EXPECT_STREQ(test::thrown<Error>(readAndFail).value().what(), "disk full");
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
