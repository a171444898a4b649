#include "Platform/Core/Error.h"
#include "Platform/Media/MediaAsset.h"
#include "Support/MediaFactory.h"
#include "Support/Thrown.h"

#include <gtest/gtest.h>

#include <fstream>

namespace panoveer::test {
namespace {

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

TEST(MediaAsset, WidensNaturalSizeByThePixelAspectRatio) {
    const TemporaryFolder folder;
    const auto asset =
        loaded(makeMovie(folder, {.name = "a.mov", .frameCount = 2, .outputOptions = {"-aspect", "2:1"}}));
    const auto& track = asset->videoTracks().at(0);
    EXPECT_EQ(track.formatDescriptions[0].width, 160);
    EXPECT_NEAR(track.naturalWidth, 192, 0.01);
    EXPECT_EQ(track.naturalHeight, 96);
}

// The payloads are the boxes' own, whichever way the file carries the values: in boxes or in the stream alone.
TEST(MediaAsset, RebuildsHdrPayloadsFromTheContainerOrTheStream) {
    const std::vector<std::uint8_t> mastering = {0x33, 0xc2, 0x86, 0xc4, 0x1d, 0x4c, 0x0b, 0xb8,
                                                 0x84, 0xd0, 0x3e, 0x80, 0x3d, 0x13, 0x40, 0x42,
                                                 0x00, 0x98, 0x96, 0x80, 0x00, 0x00, 0x00, 0x32};
    const std::vector<std::uint8_t> light = {0x03, 0xe8, 0x01, 0x90};
    const TemporaryFolder folder;
    MovieSpec spec{.name = "stream.mp4", .frameCount = 4, .codec = "libx265", .pixelFormat = "yuv420p10le"};
    spec.outputOptions = {"-tag:v", "hvc1", "-x265-params",
                          "log-level=none:master-display=G(13250,34500)B(7500,3000)R(34000,16000)"
                          "WP(15635,16450)L(10000000,50):max-cll=1000,400"};
    spec.primaries = "bt2020";
    spec.transfer = "smpte2084";
    spec.matrix = "bt2020nc";
    const auto inStream = makeMovie(folder, spec);
    spec.name = "boxes.mov";
    spec.codec = "prores_ks";
    spec.pixelFormat = "yuv422p10le";
    spec.outputOptions = {};
    const auto inBoxes = makeMovie(folder, spec);
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
        const auto error = thrown<Error>([&] { loaded(path); });
        return error ? std::pair(error->domain(), error->code()) : std::pair(std::string("opened"), 0);
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
