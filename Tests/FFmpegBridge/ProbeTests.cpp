#include "FFmpegBridge/BridgeFixture.h"

#include <gtest/gtest.h>

namespace panoveer::test {
namespace {

TEST(FFmpegProbe, CountsAMatroskaDurationFromWhereTheMovieStarts) {
    const TemporaryFolder folder;
    const MovieSpec late{.name = "late.mkv", .frameCount = 30, .startSeconds = 2};
    const auto movie = makeMovie(folder, late);
    EXPECT_NEAR(probeVideo(movie).duration, 1, 0.05);

    // The frames count from the start of the container, too.
    BridgeReader reader(movie, {.start = 0.5});
    const auto frame = reader.atOrAfter(0.5);
    EXPECT_EQ(frame.index(), 15);
    EXPECT_NEAR(frame.seconds, 0.5, 0.001);

    auto broadcast = late;
    broadcast.name = "late.ts";
    broadcast.codec = "mpeg2video";
    EXPECT_NEAR(probeVideo(makeMovie(folder, broadcast)).duration, 1, 0.05);
}

TEST(FFmpegProbe, FindsThePreviousKeyframeInAnIndexOnly) {
    const TemporaryFolder folder;
    MovieSpec spec{.frameRate = "10", .frameCount = 30, .keyFrameInterval = 10, .outputOptions = {"-bf", "0"}};
    const auto movie = makeMovie(folder, spec);
    const auto keyframe = [](const std::filesystem::path& path, double target) {
        double seconds = -1;
        const int result = PNVFFmpegPreviousKeyframeTime(path.c_str(), &seconds, nullptr, 0, target);
        return result == 1 ? seconds : -double(result) - 1;
    };
    EXPECT_DOUBLE_EQ(keyframe(movie, 0), 0);
    EXPECT_DOUBLE_EQ(keyframe(movie, 0.99), 0);
    EXPECT_DOUBLE_EQ(keyframe(movie, 1), 1);
    EXPECT_DOUBLE_EQ(keyframe(movie, 2.5), 2);
    EXPECT_DOUBLE_EQ(keyframe(movie, 1e9), 2);

    spec.name = "broadcast.ts";
    spec.codec = "mpeg2video";
    spec.startSeconds = 3600;
    EXPECT_DOUBLE_EQ(keyframe(makeMovie(folder, spec), 2.5), -1); // found none
}

} // namespace
} // namespace panoveer::test
