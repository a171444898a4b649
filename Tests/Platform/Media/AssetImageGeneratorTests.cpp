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

// Four quarters of different colours tell where each corner of the stored picture has gone.
TEST(AssetImageGenerator, TurnsAsTheTrackAsks) {
    const auto paintQuarters = [](int, int width, int height, std::span<std::uint8_t> rgba) {
        for (int y = 0; y < height; ++y)
            for (int x = 0; x < width; ++x) {
                auto* pixel = &rgba[std::size_t(y * width + x) * 4];
                pixel[0] = x < width / 2 ? 40 : 200;  // red grows to the right
                pixel[1] = y < height / 2 ? 40 : 200; // green grows downwards
                pixel[2] = 40;
                pixel[3] = 255;
            }
    };
    const TemporaryFolder folder;
    for (const auto& [degrees, redGrows, greenGrows] :
         {std::tuple{0, "right", "down"}, std::tuple{90, "down", "left"}, std::tuple{180, "left", "up"},
          std::tuple{270, "up", "right"}}) {
        AssetImageGenerator generator(loaded(makeMovie(folder, {.name = "turned.mp4",
                                                                .frameCount = 1,
                                                                .rotationDegrees = degrees,
                                                                .matrix = "bt709",
                                                                .painter = paintQuarters})));
        generator.setAppliesPreferredTrackTransform(true);
        const auto picture = generator.copyImage(0).picture;
        const auto channelAt = [&](int quarterX, int quarterY, int channel) {
            const auto& plane = picture->plane(0);
            return int(plane.data[std::size_t((2 * quarterY + 1) * plane.height / 4) * plane.rowBytes +
                                  std::size_t((2 * quarterX + 1) * plane.width / 4 * 4 + channel)]);
        };
        const auto growth = [&](int channel) -> std::string {
            const int acrossX = channelAt(1, 0, channel) - channelAt(0, 0, channel);
            const int acrossY = channelAt(0, 1, channel) - channelAt(0, 0, channel);
            if (std::abs(acrossX) > std::abs(acrossY))
                return acrossX > 0 ? "right" : "left";
            return acrossY > 0 ? "down" : "up";
        };
        EXPECT_EQ(growth(2), redGrows) << degrees;
        EXPECT_EQ(growth(1), greenGrows) << degrees;
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
