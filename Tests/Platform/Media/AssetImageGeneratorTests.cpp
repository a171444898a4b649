#include "Platform/Media/AssetImageGenerator.h"
#include "Support/MediaFactory.h"

#include <gtest/gtest.h>

namespace panoveer::test {
namespace {

// 100 pictures at 25 per second with a key frame every second.
MovieSpec fourSeconds(const std::string& name = "a.mp4") {
    return {.name = name,
            .frameRate = "25",
            .frameCount = 100,
            .keyFrameInterval = 25,
            .outputOptions = {"-sc_threshold", "0"}};
}

TEST(AssetImageGenerator, ShowsTheFrameDisplayedAtTheTimeInAnyOrder) {
    const TemporaryFolder folder;
    for (const auto* name : {"a.mp4", "a.mkv"}) {
        AssetImageGenerator generator(loaded(makeMovie(folder, fourSeconds(name))));
        for (const auto& [seconds, index] :
             {std::pair{0.0, 0}, std::pair{2.0, 50}, std::pair{2.1, 52}, std::pair{2.1, 52}, std::pair{2.11, 52},
              std::pair{2.13, 53}, std::pair{3.99, 99}, std::pair{0.5, 12}, std::pair{-1.0, 0}}) {
            const auto image = generator.copyImage(seconds);
            EXPECT_EQ(frameIndex(*image.picture), index) << name << " at " << seconds;
            EXPECT_NEAR(image.actualSeconds, index / 25.0, 0.0011);
            EXPECT_EQ(image.picture->format(), pixelFormat::bgra);
        }
    }
}

TEST(AssetImageGenerator, TakesAKeyFrameWithinTheToleranceAndNoneBeyond) {
    const TemporaryFolder folder;
    AssetImageGenerator generator(loaded(makeMovie(folder, fourSeconds())));
    struct Case {
        double seconds, before, after;
        int index;
    };
    for (const auto& [seconds, before, after, index] :
         {Case{1.6, 1, 1, 25}, Case{1.6, 0.2, 0.5, 50}, Case{1.6, 0.2, 0.2, 40}, Case{1.6, 0.7, 0, 25},
          Case{3.9, 0.2, 9, 97}}) {
        generator.setRequestedTimeTolerance(before, after);
        const auto image = generator.copyImage(seconds);
        EXPECT_EQ(frameIndex(*image.picture), index) << before << ", " << after;
        EXPECT_NEAR(image.actualSeconds, index / 25.0, 1e-6);
    }
}

TEST(AssetImageGenerator, FitsTheMaximumSizeAfterTurningThePicture) {
    const TemporaryFolder folder;
    const auto asset = loaded(
        makeMovie(folder, {.name = "a.mp4", .width = 320, .height = 192, .frameCount = 2, .rotationDegrees = 90}));
    AssetImageGenerator generator(asset);
    auto size = [&] {
        const auto picture = generator.copyImage(0).picture;
        return std::pair(picture->width(), picture->height());
    };
    EXPECT_EQ(size(), std::pair(320, 192));
    generator.setAppliesPreferredTrackTransform(true);
    EXPECT_EQ(size(), std::pair(192, 320));
    generator.setMaximumSize(160, 160);
    EXPECT_EQ(size(), std::pair(96, 160));
    generator.setMaximumSize(0, 1000);
    EXPECT_EQ(size(), std::pair(192, 320));
}

// Two corners of the stored picture tell where it has gone: the right one above is red, the one below it yellow.
TEST(AssetImageGenerator, TurnsAsTheTrackAsks) {
    const auto paintQuarters = [](int, int width, int height, std::span<std::uint8_t> rgba) {
        for (std::size_t i = 0; i < rgba.size() / 4; ++i) {
            const bool isRight = int(i) % width >= width / 2, isBelow = int(i) / width >= height / 2;
            const std::array<std::uint8_t, 4> color{isRight ? std::uint8_t(200) : std::uint8_t(40),
                                                    isRight && isBelow ? std::uint8_t(200) : std::uint8_t(40), 40, 255};
            std::ranges::copy(color, rgba.begin() + std::ptrdiff_t(4 * i));
        }
    };
    const TemporaryFolder folder;
    // The quarters, counted from the left above along the rows, that are red and yellow.
    for (const auto& [degrees, red, yellow] :
         {std::tuple(0, 1, 3), std::tuple(90, 3, 2), std::tuple(180, 2, 0), std::tuple(270, 0, 1)}) {
        MovieSpec spec{.name = "turned.mp4", .frameCount = 1, .rotationDegrees = degrees};
        spec.matrix = "bt709";
        spec.painter = paintQuarters;
        AssetImageGenerator generator(loaded(makeMovie(folder, spec)));
        generator.setAppliesPreferredTrackTransform(true);
        const auto picture = generator.copyImage(0).picture;
        for (int quarter = 0; quarter < 4; ++quarter) {
            const auto& plane = picture->plane(0);
            const auto* pixel = plane.data + std::size_t((2 * (quarter / 2) + 1) * plane.height / 4) * plane.rowBytes +
                                std::size_t((2 * (quarter % 2) + 1) * plane.width / 4 * 4);
            EXPECT_EQ(int(pixel[2]) > 120, quarter == red || quarter == yellow) << degrees << ", " << quarter;
            EXPECT_EQ(int(pixel[1]) > 120, quarter == yellow) << degrees << ", " << quarter;
        }
    }
}

TEST(AssetImageGenerator, SaysSoWhenThereIsNoPicture) {
    const TemporaryFolder folder;
    const auto asset = loaded(makeMovie(folder, fourSeconds()));
    AssetImageGenerator generator(asset);
    EXPECT_THROW(generator.copyImage(5), Error);
    EXPECT_THROW(generator.copyImage(std::numeric_limits<double>::quiet_NaN()), Error);
    std::stop_source stop;
    stop.request_stop();
    EXPECT_THROW(generator.copyImage(1, stop.get_token()), Cancelled);
    EXPECT_EQ(frameIndex(*generator.copyImage(1).picture), 25); // usable again
    AssetImageGenerator silent(loaded(
        makeMovie(folder, {.name = "sound.m4a", .frameCount = 0, .audio = {{.codec = "aac"}}, .audioSeconds = 1})));
    EXPECT_THROW(silent.copyImage(0), Error);
}

} // namespace
} // namespace panoveer::test
