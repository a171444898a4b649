#include "Support/MediaFactory.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace panoveer::test {
namespace {

// Decodes a movie with the program itself, as 8-bit luma, and reads the number in each picture.
std::vector<int> framesShown(const std::filesystem::path& movie, int width, int height) {
    const auto decoded = runProgram({"ffmpeg", "-v", "error", "-noautorotate", "-i", movie.string(), "-f", "rawvideo",
                                     "-pix_fmt", "gray", "-fps_mode", "passthrough", "pipe:1"});
    EXPECT_EQ(decoded.exitCode, 0) << decoded.standardError;
    const auto size = std::size_t(width) * std::size_t(height);
    std::vector<int> shown;
    for (std::size_t at = 0; at + size <= decoded.standardOutput.size(); at += size)
        shown.push_back(frameIndex(reinterpret_cast<const std::uint8_t*>(decoded.standardOutput.data()) + at,
                                   std::size_t(width), width, height, 1));
    return shown;
}

TEST(MediaFactory, WritesFramesThatShowTheirNumbersAndTheStreamsAskedFor) {
    const TemporaryFolder folder;
    const auto movie = makeMovie(folder, {.name = "tagged.mov",
                                          .width = 128,
                                          .height = 64,
                                          .frameRate = "30000/1001",
                                          .frameCount = 5,
                                          .rotationDegrees = 90,
                                          .primaries = "bt2020",
                                          .transfer = "smpte2084",
                                          .matrix = "bt2020nc",
                                          .audio = {{}, {.codec = "aac", .layout = "5.1"}}});
    EXPECT_THAT(framesShown(movie, 128, 64), testing::ElementsAre(0, 1, 2, 3, 4));

    auto streams = ffprobeJSON(movie)["streams"];
    ASSERT_EQ(streams.size(), 3u);
    EXPECT_EQ(streams[0]["r_frame_rate"], "30000/1001");
    EXPECT_EQ(streams[0]["color_primaries"], "bt2020");
    EXPECT_EQ(streams[0]["color_transfer"], "smpte2084");
    EXPECT_EQ(streams[0]["color_space"], "bt2020nc");
    EXPECT_EQ(streams[0]["side_data_list"][0]["rotation"], -90);
    EXPECT_EQ(streams[1]["codec_name"], "pcm_s16le");
    EXPECT_EQ(streams[2]["codec_name"], "aac");
    EXPECT_EQ(streams[2]["channels"], 6);
}

TEST(MediaFactory, AppendedBoxesAreReadByADemuxer) {
    const TemporaryFolder folder;
    const auto movie = makeMovie(folder, {.name = "stereo.mp4", .frameCount = 2});
    appendStereoLayout(movie, 1);
    auto stream = ffprobeJSON(movie)["streams"][0];
    EXPECT_EQ(stream["side_data_list"][0]["type"], "top and bottom");
    EXPECT_THAT(framesShown(movie, 160, 96), testing::ElementsAre(0, 1));
}

TEST(MediaFactory, SaysWhatAProgramSaidWhenItFails) {
    const TemporaryFolder folder;
    EXPECT_THROW(makeMovie(folder, {.codec = "no_such_codec"}), std::runtime_error);
    EXPECT_THROW(runProgram({"no-such-program"}), std::runtime_error);
    EXPECT_EQ(runProgram({"sh", "-c", "cat; exit 3"},
                         [left = 2]() mutable { return left-- > 0 ? std::string("line\n") : std::string(); })
                  .standardOutput,
              "line\nline\n");
}

TEST(MediaFactory, ReadsNoNumberFromAPictureThatShowsNone) {
    std::vector<std::uint8_t> pixels(64 * 64 * 4);
    for (int index : {0, 1, 1234, 16383}) {
        paintFrameIndex(index, 64, 64, pixels);
        EXPECT_EQ(frameIndex(pixels.data(), 256, 64, 64, 4), index);
    }
    for (std::uint8_t level : {0, 128, 255}) {
        std::ranges::fill(pixels, level);
        EXPECT_EQ(frameIndex(pixels.data(), 256, 64, 64, 4), -1);
    }
}

} // namespace
} // namespace panoveer::test
