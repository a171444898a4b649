#include "FFmpegBridge/BridgeFixture.h"
#include "Support/Thrown.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

namespace panoveer::test {
namespace {

class RealFiles : public testing::Test {
protected:
    void SetUp() override {
        if (!corpusFile(""))
            GTEST_SKIP() << "PANOVEER_CORPUS names no folder of real files";
    }
};
class RealMultiviewFile : public RealFiles {};

// The samples of one eye, 8-bit luma, as the decoder's own program gives them.
std::string lumaOfEye(const std::filesystem::path& movie, const std::string& eye) {
    const auto decoded = runProgram({"ffmpeg", "-v", "error", "-i", movie.string(), "-map", "0:v:0:vpos:" + eye, "-f",
                                     "rawvideo", "-pix_fmt", "yuv420p", "pipe:1"});
    EXPECT_EQ(decoded.exitCode, 0) << decoded.standardError;
    return decoded.standardOutput;
}

TEST_F(RealMultiviewFile, ComesWithTheLeftEyeLeftAndTheRightEyeRight) {
    const auto movie = *corpusFile("water_180_mvhevc_5frames.mov");
    const auto info = probeVideo(movie);
    EXPECT_EQ(info.isStereoMultiview, 1);
    EXPECT_EQ(info.width, 3868);
    EXPECT_EQ(info.height, 2160);
    EXPECT_EQ(info.sphericalProjection, PNVSphericalRectilinear);
    EXPECT_EQ(info.stereoBaseline, 19240u);
    EXPECT_DOUBLE_EQ(info.stereoHorizontalFieldOfView, 64);

    constexpr std::size_t width = 1934, height = 2160, eyeFrame = width * height * 3 / 2;
    const auto left = lumaOfEye(movie, "left"), right = lumaOfEye(movie, "right");
    ASSERT_EQ(left.size(), 5 * eyeFrame);
    ASSERT_NE(left, right);
    BridgeReader reader(movie);
    for (std::size_t index = 0; index < 5; ++index) {
        const auto frame = reader.nextNV12(64);
        ASSERT_EQ(frame.result, 1);
        EXPECT_NEAR(frame.seconds, double(index) / 90, 1e-4);
        for (std::size_t row = 0; row < height; ++row) {
            const auto* pixels = frame.pixels.data() + row * std::size_t(frame.stride);
            const auto at = index * eyeFrame + row * width;
            ASSERT_TRUE(std::equal(pixels, pixels + width, left.begin() + std::ptrdiff_t(at),
                                   [](std::uint8_t a, char b) { return a == std::uint8_t(b); }))
                << "left eye, frame " << index << ", row " << row;
            ASSERT_TRUE(std::equal(pixels + width, pixels + 2 * width, right.begin() + std::ptrdiff_t(at),
                                   [](std::uint8_t a, char b) { return a == std::uint8_t(b); }))
                << "right eye, frame " << index << ", row " << row;
        }
    }
    EXPECT_EQ(reader.next().result, 0);
}

TEST_F(RealMultiviewFile, KeepsEachEyeEvenAndApartAtAnySize) {
    const auto movie = *corpusFile("water_180_mvhevc_5frames.mov");
    for (const int maximum : {1001, 1002, 1004, 996, 972, 3800}) {
        const OpenOptions options{.maximumWidth = maximum, .maximumHeight = 4000};
        BridgeReader tight(movie, options), padded(movie, options);
        EXPECT_EQ(tight.width(), maximum / 4 * 4);
        // The end of the right eye and the start of the next row's left eye lie side by side in tight rows.
        for (const bool isNV12 : {false, true}) {
            const auto narrow = isNV12 ? tight.nextNV12() : tight.next();
            const auto wide = isNV12 ? padded.nextNV12(256) : padded.next(256);
            const auto rowBytes = std::size_t(tight.width()) * (isNV12 ? 1 : 4);
            for (std::size_t row = 0; row < std::size_t(tight.height()); ++row)
                ASSERT_TRUE(std::equal(narrow.pixels.begin() + std::ptrdiff_t(row * rowBytes),
                                       narrow.pixels.begin() + std::ptrdiff_t((row + 1) * rowBytes),
                                       wide.pixels.begin() + std::ptrdiff_t(row * std::size_t(wide.stride))))
                    << "at " << maximum << ", row " << row;
        }
    }
}

TEST_F(RealFiles, WithABrokenBitstreamFailFrameByFrameAndEnd) {
    BridgeReader reader(*corpusFile("invalid-bitstream.webm"));
    int failures = 0, reads = 0;
    for (bool hasEnded = false; !hasEnded && reads < 1000; ++reads) {
        if (const auto failure = thrown<std::runtime_error>([&] { hasEnded = reader.next().result == 0; })) {
            EXPECT_THAT(failure->what(), testing::AnyOf(testing::StartsWith("Could not send packet to decoder: "),
                                                        testing::StartsWith("Could not decode video frame: ")));
            ++failures;
        }
    }
    EXPECT_GT(failures, 0);
    EXPECT_LT(reads, 1000);
}

} // namespace
} // namespace panoveer::test
