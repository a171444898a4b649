#include "Panoveer/Services/Intake/GrayPictures.h"
#include "Panoveer/Services/Intake/GrayscaleImage.h"
#include "Panoveer/Services/Intake/Majority.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>

namespace panoveer {
namespace {

using testing::ElementsAre;
using Layout = StereoVideoLayout;

GrayscaleImage ramp(int width, int height = 1) {
    return test::painted(width, height, [=](int x, int y) { return x + width * y; });
}

TEST(GrayscaleImage, AlwaysHasAsManyPixelsAsItsSizeSays) {
    EXPECT_THAT(GrayscaleImage(2, 2, {1}).pixels(), ElementsAre(1, 0, 0, 0));
    EXPECT_THAT(GrayscaleImage(1, 1, {1, 2, 3}).pixels(), ElementsAre(1));
    for (const auto& empty : {GrayscaleImage(0, 4, {1}), GrayscaleImage(4, -1, {1}), GrayscaleImage()}) {
        EXPECT_TRUE(empty.isEmpty());
        EXPECT_EQ(empty.width() + empty.height(), 0);
        EXPECT_TRUE(empty.resampled(4, 4).isEmpty());
        EXPECT_EQ(empty.bilinear(1, 1), 0);
        EXPECT_EQ(empty.meanAndDeviation().mean, 0);
    }
    EXPECT_TRUE(ramp(4).resampled(0, 1).isEmpty());
}

TEST(GrayscaleImage, ResamplesByTheMeanOfWholePixels) {
    EXPECT_THAT(ramp(6).resampled(3, 1).pixels(), ElementsAre(0.5, 2.5, 4.5));
    EXPECT_THAT(ramp(5).resampled(2, 1).pixels(), ElementsAre(0.5, 3)); // columns 0-1 and 2-4
    EXPECT_THAT(ramp(2).resampled(5, 1).pixels(), ElementsAre(0, 0, 0, 1, 1));
    EXPECT_THAT(ramp(2, 3).resampled(1, 2).pixels(), ElementsAre(0.5, 3.5)); // rows 0 and 1-2
    // Where the quotient of the sizes cannot be written down exactly, no column is lost either.
    EXPECT_EQ(ramp(1000).resampled(256, 1).pixels().back(), (996 + 997 + 998 + 999) / 4.0f);
}

TEST(GrayscaleImage, InterpolatesBetweenTheMiddlesOfPixels) {
    const auto image = ramp(2, 2); // 0 1 over 2 3
    EXPECT_EQ(image.bilinear(0.5, 0.5), 0);
    EXPECT_EQ(image.bilinear(1.5, 1.5), 3);
    EXPECT_EQ(image.bilinear(1, 1), 1.5);
    EXPECT_EQ(image.bilinear(0.75, 0.5), 0.25);
    EXPECT_EQ(image.bilinear(-9, 99), 2);
    EXPECT_EQ(image.bilinear(std::numeric_limits<double>::quiet_NaN(), 0.5), 0);
}

TEST(GrayscaleImage, CutsTheViewsOfBothEyes) {
    const auto wide = ramp(5).views(Layout::sideBySide);
    ASSERT_TRUE(wide);
    EXPECT_THAT((*wide)[0].pixels(), ElementsAre(0, 1));
    EXPECT_THAT((*wide)[1].pixels(), ElementsAre(2, 3));
    const auto tall = ramp(2, 3).views(Layout::overUnder);
    ASSERT_TRUE(tall);
    EXPECT_THAT((*tall)[0].pixels(), ElementsAre(0, 1));
    EXPECT_THAT((*tall)[1].pixels(), ElementsAre(2, 3));
    EXPECT_FALSE(ramp(4, 4).views(Layout::mono));
    EXPECT_FALSE(ramp(1, 4).views(Layout::sideBySide));
    EXPECT_FALSE(ramp(4, 1).views(Layout::overUnder));
}

TEST(GrayscaleImage, MeasuresMeanAndDeviation) {
    const auto image = test::painted(4, 2, [](int x, int) { return x < 2 ? 0 : 1; });
    EXPECT_EQ(image.meanAndDeviation().mean, 0.5);
    EXPECT_EQ(image.meanAndDeviation().deviation, 0.5);
    EXPECT_EQ(image.meanAndDeviation({-5, -5, 7, 7}).mean, 0) << "only what lies within the picture counts";
    EXPECT_EQ(image.meanAndDeviation({2, 0, 9, 9}).mean, 1);
    EXPECT_EQ(image.meanAndDeviation({4, 0, 2, 2}).mean, 0);
}

TEST(Majority, IsMoreThanHalfOfTheVotes) {
    EXPECT_EQ(majority(std::vector<int>{}), std::nullopt);
    EXPECT_EQ(majority(std::vector{7}), 7);
    EXPECT_EQ(majority(std::vector{1, 2}), std::nullopt);
    EXPECT_EQ(majority(std::vector{2, 1, 2}), 2);
    EXPECT_EQ(majority(std::vector{1, 1, 2, 3}), std::nullopt);
    EXPECT_EQ(majority(std::vector<bool>{false, true, false}), false);
}

} // namespace
} // namespace panoveer
