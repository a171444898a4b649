#include "FFmpegBridge/BridgeFixture.h"
#include "Support/Thrown.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cmath>
#include <numeric>
#include <thread>

namespace panoveer::test {
namespace {

using testing::ElementsAre;

std::vector<int> upTo(int count, int first = 0) {
    std::vector<int> numbers(std::size_t(count - first));
    std::iota(numbers.begin(), numbers.end(), first);
    return numbers;
}

TEST(FFmpegVideoReader, GivesEveryFrameInOrderWithItsTime) {
    const TemporaryFolder folder;
    BridgeReader reader(makeMovie(folder, {.name = "reordered.mp4", .frameCount = 40}));
    for (int index = 0; index < 40; ++index) {
        const auto frame = index % 2 == 0 ? reader.next() : reader.nextNV12();
        ASSERT_EQ(frame.result, 1);
        EXPECT_EQ(frame.index(), index);
        EXPECT_NEAR(frame.seconds, index / 30.0, 1e-4);
    }
    EXPECT_EQ(reader.next().result, 0);
    EXPECT_EQ(reader.record().data, nullptr);
    EXPECT_EQ(reader.next().result, 0);
    reader.seek(0);
    EXPECT_EQ(reader.next().index(), 0);
}

TEST(FFmpegVideoReader, WaitsForATimeAndSeeksToTheKeyframeBeforeOne) {
    const TemporaryFolder folder;
    BridgeReader reader(makeMovie(folder, {.frameRate = "10", .frameCount = 50, .keyFrameInterval = 10}));
    EXPECT_EQ(reader.atOrAfter(1.25).index(), 13);
    EXPECT_EQ(reader.atOrAfter(0).index(), 14); // never goes back by itself
    reader.seek(2.55);
    EXPECT_EQ(reader.next().index(), 20);
    EXPECT_EQ(reader.atOrAfter(2.5).index(), 25);
    reader.seek(-3);
    EXPECT_EQ(reader.atOrAfter(-1).index(), 0);
    EXPECT_EQ(reader.atOrAfter(std::nan("")).index(), 1);
    EXPECT_EQ(reader.atOrAfter(100).result, 0);
}

TEST(FFmpegVideoReader, EndsItsWindowHalfAFrameLater) {
    const TemporaryFolder folder;
    const auto movie = makeMovie(folder, {.frameRate = "10", .frameCount = 30, .keyFrameInterval = 5});
    EXPECT_THAT(BridgeReader(movie, {.duration = 0.45}).remainingFrames(), ElementsAre(0, 1, 2, 3, 4, 5));
    EXPECT_THAT(BridgeReader(movie, {.duration = 0.4499}).remainingFrames(), ElementsAre(0, 1, 2, 3, 4));
    // The start only positions: frames from its key frame on come first.
    BridgeReader reader(movie, {.start = 1.2, .duration = 0.3});
    EXPECT_THAT(reader.remainingFrames(), ElementsAre(10, 11, 12, 13, 14, 15));
    reader.seek(1.4); // the end stays where it was
    EXPECT_THAT(reader.remainingFrames(), ElementsAre(10, 11, 12, 13, 14, 15));
}

struct Cap {
    int width, height, maximumWidth, maximumHeight, expectedWidth, expectedHeight;
};

class FFmpegVideoReaderSizes : public testing::TestWithParam<Cap> {};

TEST_P(FFmpegVideoReaderSizes, FitTheMaximumWithEvenSides) {
    const auto& cap = GetParam();
    const TemporaryFolder folder;
    BridgeReader reader(makeMovie(folder, {.name = "sized.mkv",
                                           .width = cap.width,
                                           .height = cap.height,
                                           .frameCount = 2,
                                           .codec = "ffv1",
                                           .pixelFormat = "yuv444p"}),
                        {.maximumWidth = cap.maximumWidth, .maximumHeight = cap.maximumHeight});
    EXPECT_EQ(reader.width(), cap.expectedWidth);
    EXPECT_EQ(reader.height(), cap.expectedHeight);
    EXPECT_EQ(reader.next().result, 1);
    EXPECT_EQ(reader.nextNV12().result, 1);
}

INSTANTIATE_TEST_SUITE_P(All, FFmpegVideoReaderSizes,
                         testing::Values(Cap{161, 97, 0, 0, 161, 97},    // as it is, even if odd
                                         Cap{161, 97, 161, 97, 161, 97}, // nothing exceeded
                                         Cap{161, 97, 160, 0, 161, 97},  // one maximum alone is none
                                         Cap{1200, 600, 1001, 1001, 1000, 500}, Cap{300, 100, 100, 100, 100, 32},
                                         Cap{100, 300, 100, 100, 32, 100},
                                         Cap{147, 49, 49, 49, 48, 16}, // 49/147*147 is not 49 in doubles
                                         Cap{4000, 8, 100, 100, 100, 2}));

TEST(FFmpegVideoReader, DecodesForPreviewsIntoItsOwnPicture) {
    const TemporaryFolder folder;
    BridgeReader reader(makeMovie(folder, {.name = "preview.webm", .frameCount = 12, .codec = "libvpx-vp9"}),
                        {.maximumWidth = 100, .maximumHeight = 100, .fastDecode = true});
    EXPECT_EQ(PNVFFmpegCanUseVideoToolboxDecode(reader.get()), 0);
    int untouched = 0;
    for (const double target : {-1.0, 0.2}) {
        PNVFFmpegFrame frame{};
        void* pixelBuffer = &untouched;
        ASSERT_EQ(target < 0 ? PNVFFmpegReadFramePreferVideoToolbox(reader.get(), &pixelBuffer, &frame, nullptr, 0)
                             : PNVFFmpegReadFrameAtOrAfterPreferVideoToolbox(reader.get(), &pixelBuffer, &frame,
                                                                             nullptr, 0, nullptr, target),
                  1);
        EXPECT_EQ(pixelBuffer, nullptr);
        ASSERT_NE(frame.data, nullptr);
        EXPECT_EQ(frame.width, 100);
        EXPECT_EQ(frame.height, 60);
        EXPECT_EQ(frameIndex(frame.data, std::size_t(frame.stride), frame.width, frame.height, 4), target < 0 ? 0 : 6);
    }
    EXPECT_EQ(PNVFFmpegUsesVideoToolboxDecode(reader.get()), 0);
}

TEST(FFmpegVideoReader, ACancelStopsTheReadUnderWayAndNoLaterOne) {
    const TemporaryFolder folder;
    BridgeReader reader(makeMovie(folder, {.name = "long.mp4", .frameRate = "60", .frameCount = 1200}));
    auto* token = PNVFFmpegCancellationTokenCreate();
    PNVFFmpegCancellationTokenCancel(token);
    EXPECT_EQ(reader.atOrAfter(0, token).index(), 0);

    std::atomic<bool> isReading = true;
    std::atomic<int> cancels = 0;
    std::jthread canceller([&] {
        for (; isReading; ++cancels)
            PNVFFmpegCancellationTokenCancel(token);
    });
    while (cancels == 0)
        std::this_thread::yield();
    EXPECT_EQ(reader.atOrAfter(1000, token).result, 0);
    isReading = false;
    canceller.join();

    EXPECT_EQ(reader.atOrAfter(0, token).result, 1); // the movie had not ended
    PNVFFmpegCancellationTokenClose(token);
}

struct ColorCase {
    const char* name;
    std::string matrix, range, codec, pixelFormat;
};

class FFmpegVideoReaderColors : public testing::TestWithParam<ColorCase> {};

TEST_P(FFmpegVideoReaderColors, FollowTheMatrixAndRangeOfTheStream) {
    const TemporaryFolder folder;
    const auto& color = GetParam();
    // Red, green and blue stand in a picture of one colour each, wide apart in every matrix.
    constexpr std::array<std::array<int, 3>, 3> colors = {{{200, 40, 60}, {50, 180, 40}, {240, 240, 240}}};
    BridgeReader reader(
        makeMovie(folder, {.name = "colour.mkv",
                           .frameCount = 6,
                           .codec = color.codec,
                           .pixelFormat = color.pixelFormat,
                           .matrix = color.matrix,
                           .range = color.range,
                           .painter = [&](int index, int, int, std::span<std::uint8_t> rgba) {
                               for (std::size_t at = 0; at < rgba.size(); ++at)
                                   rgba[at] = at % 4 == 3 ? 255 : std::uint8_t(colors[std::size_t(index % 3)][at % 4]);
                           }}));
    constexpr std::size_t pixel = 40 * 160 + 80;
    for (const auto& [red, green, blue] : colors) {
        const auto bgra = reader.next().pixels;
        EXPECT_NEAR(bgra[pixel * 4 + 2], red, 4);
        EXPECT_NEAR(bgra[pixel * 4 + 1], green, 4);
        EXPECT_NEAR(bgra[pixel * 4], blue, 4);
        EXPECT_EQ(bgra[pixel * 4 + 3], 255);
    }
    // NV12 is in video range whatever the source is: ITU-R BT.709, item 6.10, and BT.2020 and BT.601 alike.
    const double redWeight = color.matrix == "smpte170m" ? 0.299 : color.matrix == "bt2020nc" ? 0.2627 : 0.2126;
    const double blueWeight = color.matrix == "smpte170m" ? 0.114 : color.matrix == "bt2020nc" ? 0.0593 : 0.0722;
    for (const auto& [red, green, blue] : colors) {
        const double luma = redWeight * red + (1 - redWeight - blueWeight) * green + blueWeight * blue;
        EXPECT_NEAR(reader.nextNV12().pixels[pixel], 16 + luma * 219 / 255, 3);
    }
}

INSTANTIATE_TEST_SUITE_P(All, FFmpegVideoReaderColors,
                         testing::Values(ColorCase{"BT709", "bt709", "tv", "ffv1", "yuv420p"},
                                         ColorCase{"BT601", "smpte170m", "tv", "ffv1", "yuv420p"},
                                         ColorCase{"BT2020TenBit", "bt2020nc", "tv", "ffv1", "yuv420p10le"},
                                         ColorCase{"FullRange", "bt709", "pc", "ffv1", "yuv420p"},
                                         ColorCase{"FullRangeTenBit", "bt709", "pc", "ffv1", "yuv420p10le"},
                                         ColorCase{"FullRangeMotionJPEG", "smpte170m", "pc", "mjpeg", "yuvj420p"},
                                         ColorCase{"RGB", "", "", "ffv1", "bgr0"}),
                         [](const auto& test) { return std::string(test.param.name); });

// The vector code beneath works on groups of pixels: a width that is no multiple of them must neither lose pixels nor
// cost the memory behind the picture.
TEST(FFmpegVideoReader, WritesAllOfAPictureAndNothingElse) {
    const TemporaryFolder folder;
    for (const int width : {160, 162, 164, 166, 168, 174}) {
        BridgeReader reader(makeMovie(folder, {.name = "width.mkv",
                                               .width = width,
                                               .height = 32,
                                               .frameCount = 4,
                                               .codec = "ffv1",
                                               .painter = [](int, int, int, std::span<std::uint8_t> rgba) {
                                                   std::ranges::fill(rgba, std::uint8_t(180));
                                               }}));
        const auto size = std::size_t(width) * 4 * 32;
        std::vector<std::uint8_t> memory(size + 256, 1);
        PNVFFmpegFrame frame;
        ASSERT_EQ(PNVFFmpegReadFrameIntoBGRA(reader.get(), memory.data(), width * 4, &frame, nullptr, 0), 1);
        for (std::size_t at = 0; at < size; ++at)
            ASSERT_GT(memory[at], 170) << width << " wide, byte " << at;
        ASSERT_EQ(PNVFFmpegReadFrameIntoNV12(reader.get(), memory.data(), width, memory.data() + size / 2, width,
                                             &frame, nullptr, 0),
                  1);
        EXPECT_TRUE(std::all_of(memory.begin() + std::ptrdiff_t(size), memory.end(), [](int byte) {
            return byte == 1;
        })) << width;
    }
}

TEST(FFmpegVideoReader, SurvivesAMovieThatWasCutShort) {
    const TemporaryFolder folder;
    for (const char* name : {"cut.mp4", "cut.mkv", "cut.ts"}) {
        const auto movie = makeMovie(
            folder,
            {.name = name, .frameCount = 60, .keyFrameInterval = 10, .outputOptions = {"-movflags", "+faststart"}});
        const auto bytes = readFile(movie);
        writeFile(movie, std::span(bytes).first(bytes.size() * 6 / 10));
        BridgeReader reader(movie);
        std::vector<int> shown;
        // Reads go on after a failure, and come to an end.
        bool hasEnded = false;
        for (int reads = 0; !hasEnded && reads < 200; ++reads)
            thrown<std::runtime_error>([&] {
                const auto frame = reader.next();
                hasEnded = frame.result == 0;
                if (!hasEnded)
                    shown.push_back(frame.index());
            });
        EXPECT_TRUE(hasEnded) << name;
        ASSERT_GE(shown.size(), 10u) << name;
        EXPECT_THAT(std::vector<int>(shown.begin(), shown.begin() + 10), testing::ElementsAreArray(upTo(10))) << name;
        EXPECT_LT(shown.size(), 60u) << name;
    }
}

} // namespace
} // namespace panoveer::test
