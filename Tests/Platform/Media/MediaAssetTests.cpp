#include "Platform/Media/AssetReader.h"
#include "Platform/Media/MediaAsset.h"
#include "Support/MediaFactory.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>

namespace panoveer::test {
namespace {

using testing::ElementsAre;

std::shared_ptr<const MediaAsset> loaded(const std::filesystem::path& path) {
    return MediaAsset::load(URL::fromFilePath(path));
}

struct CodecCase {
    const char* name;
    MovieSpec movie;
    const char* codecType;
    const char* codecName;
    const char* pixelFormat;
    bool containsAlpha = false;
};

class NativeCodec : public testing::TestWithParam<CodecCase> {};

TEST_P(NativeCodec, IsListedWithItsDescription) {
    const TemporaryFolder folder;
    auto spec = GetParam().movie;
    spec.frameCount = 6;
    const auto asset = loaded(makeMovie(folder, spec));
    ASSERT_EQ(asset->videoTracks().size(), 1u);
    const auto& track = asset->videoTracks()[0];
    const auto& description = track.formatDescriptions.at(0);
    EXPECT_TRUE(track.isDecodable);
    EXPECT_TRUE(asset->isPlayable());
    EXPECT_EQ(description.codecType.text(), GetParam().codecType);
    EXPECT_EQ(description.codecName, GetParam().codecName);
    EXPECT_EQ(description.pixelFormatName, GetParam().pixelFormat);
    EXPECT_EQ(description.containsAlpha, GetParam().containsAlpha);
    EXPECT_EQ(description.width, spec.width);
    EXPECT_EQ(description.height, spec.height);
    EXPECT_FALSE(description.hasLeftStereoEyeView || description.hasRightStereoEyeView);
    EXPECT_EQ(track.naturalHeight, spec.height);
    const bool isNTSC = spec.frameRate == "30000/1001";
    EXPECT_NEAR(track.nominalFrameRate, isNTSC ? 30000.0 / 1001 : std::stod(spec.frameRate), 1e-6);
    EXPECT_NEAR(asset->durationSeconds(), 6 / track.nominalFrameRate, 0.0021); // Matroska counts milliseconds
}

INSTANTIATE_TEST_SUITE_P(
    Codecs, NativeCodec,
    testing::Values(
        CodecCase{"H264", {.name = "a.mp4"}, "avc1", "h264", "yuv420p"},
        CodecCase{"H264Ntsc", {.name = "a.mov", .frameRate = "30000/1001"}, "avc1", "h264", "yuv420p"},
        CodecCase{"H264InMatroska", {.name = "a.mkv", .frameRate = "25"}, "avc1", "h264", "yuv420p"},
        CodecCase{"H264InAvi", {.name = "a.avi", .frameRate = "25"}, "H264", "h264", "yuv420p"},
        CodecCase{
            "Hevc10",
            {.name = "a.mov", .codec = "libx265", .pixelFormat = "yuv420p10le", .outputOptions = {"-tag:v", "hvc1"}},
            "hvc1",
            "hevc",
            "yuv420p10le"},
        CodecCase{"ProRes422",
                  {.name = "a.mov", .codec = "prores_ks", .pixelFormat = "yuv422p10le"},
                  "apch",
                  "prores",
                  "yuv422p10le"},
        CodecCase{"ProRes4444Alpha",
                  {.name = "a.mov", .codec = "prores_ks", .pixelFormat = "yuva444p10le"},
                  "ap4h",
                  "prores",
                  "yuva444p12le",
                  true},
        CodecCase{
            "MotionJpeg", {.name = "a.mov", .codec = "mjpeg", .pixelFormat = "yuvj420p"}, "jpeg", "mjpeg", "yuvj420p"},
        CodecCase{"Mpeg4InAvi", {.name = "a.avi", .codec = "mpeg4"}, "FMP4", "mpeg4", "yuv420p"},
        CodecCase{"Dv",
                  {.name = "a.mov",
                   .width = 720,
                   .height = 480,
                   .frameRate = "30000/1001",
                   .codec = "dvvideo",
                   .pixelFormat = "yuv411p"},
                  "dvc ",
                  "dvvideo",
                  "yuv411p"}),
    [](const auto& test) { return test.param.name; });

TEST(MediaAsset, LeavesOtherCodecsOutButListsTheirSound) {
    const TemporaryFolder folder;
    const auto asset =
        loaded(makeMovie(folder, {.name = "vp9.webm", .codec = "libvpx-vp9", .audio = {{.codec = "libopus"}}}));
    EXPECT_TRUE(asset->videoTracks().empty());
    EXPECT_FALSE(asset->isPlayable());
    ASSERT_EQ(asset->audioTracks().size(), 1u);
    EXPECT_EQ(asset->audioTracks()[0].channelCount, 2);
    EXPECT_EQ(asset->audioTracks()[0].sampleRate, 48000);
}

TEST(MediaAsset, ListsEveryAudioTrackInOrder) {
    const TemporaryFolder folder;
    const auto asset =
        loaded(makeMovie(folder, {.name = "a.mov", .audio = {{.layout = "mono"}, {.codec = "aac", .layout = "5.1"}}}));
    ASSERT_EQ(asset->audioTracks().size(), 2u);
    EXPECT_EQ(asset->audioTracks()[0].codecType, FourCC("sowt"));
    EXPECT_EQ(asset->audioTracks()[0].channelCount, 1);
    EXPECT_EQ(asset->audioTracks()[1].codecType, FourCC("mp4a"));
    EXPECT_EQ(asset->audioTracks()[1].channelCount, 6);
}

// A cover is a Motion JPEG stream to the demuxer; a second video track would make a finished movie invalid.
TEST(MediaAsset, TakesACoverPictureForNoVideoTrack) {
    const TemporaryFolder folder;
    const auto movie = makeMovie(folder, {.name = "plain.mp4"});
    const auto cover = makeMovie(folder, {.name = "cover.jpg",
                                          .frameCount = 1,
                                          .codec = "mjpeg",
                                          .pixelFormat = "yuvj420p",
                                          .outputOptions = {"-update", "1"}});
    const auto result = folder / "covered.mp4";
    ASSERT_EQ(runProgram({"ffmpeg", "-v", "error", "-i", movie, "-i", cover, "-map", "0", "-map", "1", "-c", "copy",
                          "-disposition:v:1", "attached_pic", result})
                  .exitCode,
              0);
    EXPECT_EQ(loaded(result)->videoTracks().size(), 1u);
}

struct RotationCase {
    int degrees;
    AffineTransform transform; // without its translation
};

class Rotation : public testing::TestWithParam<RotationCase> {};

TEST_P(Rotation, BecomesThePreferredTransform) {
    const TemporaryFolder folder;
    const auto asset =
        loaded(makeMovie(folder, {.name = "a.mp4", .frameCount = 2, .rotationDegrees = GetParam().degrees}));
    auto transform = asset->videoTracks().at(0).preferredTransform;
    transform.tx = transform.ty = 0;
    EXPECT_EQ(transform, GetParam().transform);
    EXPECT_EQ(asset->videoTracks()[0].naturalWidth, 160); // before the transform
}

INSTANTIATE_TEST_SUITE_P(QuarterTurns, Rotation,
                         testing::Values(RotationCase{0, {}}, RotationCase{90, {0, 1, -1, 0, 0, 0}},
                                         RotationCase{180, {-1, 0, 0, -1, 0, 0}},
                                         RotationCase{270, {0, -1, 1, 0, 0, 0}}),
                         [](const auto& test) { return "By" + std::to_string(test.param.degrees); });

TEST(MediaAsset, WidensNaturalSizeByThePixelAspectRatio) {
    const TemporaryFolder folder;
    const auto asset =
        loaded(makeMovie(folder, {.name = "a.mov", .frameCount = 2, .outputOptions = {"-aspect", "2:1"}}));
    const auto& track = asset->videoTracks().at(0);
    EXPECT_EQ(track.formatDescriptions[0].width, 160);
    EXPECT_NEAR(track.naturalWidth, 192, 0.01);
    EXPECT_EQ(track.naturalHeight, 96);
}

TEST(MediaAsset, TellsColoursAsTheMovieStatesThem) {
    const TemporaryFolder folder;
    const auto tagged = loaded(makeMovie(folder, {.name = "hlg.mov",
                                                  .frameCount = 2,
                                                  .codec = "prores_ks",
                                                  .pixelFormat = "yuv422p10le",
                                                  .primaries = "bt2020",
                                                  .transfer = "arib-std-b67",
                                                  .matrix = "bt2020nc"}));
    EXPECT_EQ(tagged->videoTracks().at(0).formatDescriptions[0].color, (ColorAttachments{9, 18, 9, {}, {}}));
    const auto plain = loaded(makeMovie(folder, {.name = "plain.mov", .frameCount = 2}));
    EXPECT_EQ(plain->videoTracks().at(0).formatDescriptions[0].color, ColorAttachments());
    EXPECT_FALSE(plain->videoTracks()[0].formatDescriptions[0].isFullRange);
    const auto full =
        loaded(makeMovie(folder, {.name = "f.mov", .frameCount = 2, .pixelFormat = "yuvj420p", .range = "pc"}));
    EXPECT_TRUE(full->videoTracks().at(0).formatDescriptions[0].isFullRange);
}

// The payloads are the boxes' own, whichever way the file carries the values: in boxes or in the stream alone.
TEST(MediaAsset, RebuildsHdrPayloadsFromTheContainerOrTheStream) {
    const std::vector<std::uint8_t> mastering = {0x33, 0xc2, 0x86, 0xc4, 0x1d, 0x4c, 0x0b, 0xb8,
                                                 0x84, 0xd0, 0x3e, 0x80, 0x3d, 0x13, 0x40, 0x42,
                                                 0x00, 0x98, 0x96, 0x80, 0x00, 0x00, 0x00, 0x32};
    const std::vector<std::uint8_t> light = {0x03, 0xe8, 0x01, 0x90};
    const TemporaryFolder folder;
    MovieSpec spec{.name = "stream.mp4",
                   .frameCount = 4,
                   .codec = "libx265",
                   .pixelFormat = "yuv420p10le",
                   .primaries = "bt2020",
                   .transfer = "smpte2084",
                   .matrix = "bt2020nc",
                   .outputOptions = {"-tag:v", "hvc1", "-x265-params",
                                     "log-level=none:master-display=G(13250,34500)B(7500,3000)R(34000,16000)"
                                     "WP(15635,16450)L(10000000,50):max-cll=1000,400"}};
    const auto inStream = makeMovie(folder, spec);
    const auto inBoxes = makeMovie(folder, {.name = "boxes.mov",
                                            .frameCount = 2,
                                            .codec = "prores_ks",
                                            .pixelFormat = "yuv422p10le",
                                            .primaries = "bt2020",
                                            .transfer = "smpte2084",
                                            .matrix = "bt2020nc"});
    const std::vector<std::string> entry = {"moov", "trak", "mdia", "minf", "stbl", "stsd", "apch"};
    appendBox(inBoxes, entry, "mdcv", mastering);
    appendBox(inBoxes, entry, "clli", light);
    for (const auto& movie : {inStream, inBoxes}) {
        const auto asset = loaded(movie);
        const auto& color = asset->videoTracks().at(0).formatDescriptions[0].color;
        EXPECT_EQ(color.masteringDisplayColorVolume, mastering) << movie;
        EXPECT_EQ(color.contentLightLevelInfo, light) << movie;
    }
}

TEST(MediaAsset, SaysWhyAFileIsNoMovie) {
    const TemporaryFolder folder;
    const auto failure = [](const std::filesystem::path& path) {
        try {
            loaded(path);
        } catch (const Error& error) {
            return std::pair(error.domain(), error.code());
        }
        return std::pair(std::string("opened"), 0);
    };
    EXPECT_EQ(failure(folder / "absent.mov"), std::pair(std::string(posixErrorDomain), ENOENT));
    EXPECT_EQ(failure(folder.path()), std::pair(std::string(posixErrorDomain), EISDIR));
    std::ofstream(folder / "text.mov") << "not a movie";
    EXPECT_EQ(failure(folder / "text.mov"), std::pair(std::string(mediaErrorDomain), -11828));
    // A movie in a container of the other road, whatever its name says.
    const auto stream = makeMovie(folder, {.name = "a.ts"});
    std::filesystem::rename(stream, folder / "disguised.mp4");
    EXPECT_EQ(failure(folder / "disguised.mp4"), std::pair(std::string(mediaErrorDomain), -11828));
    // A colon in a name is not a protocol.
    std::filesystem::rename(makeMovie(folder, {.name = "b.mp4"}), folder / "http:b.mp4");
    EXPECT_EQ(loaded(folder / "http:b.mp4")->videoTracks().size(), 1u);
}

} // namespace
} // namespace panoveer::test
