#include "Panoveer/Services/Intake/GrayPictures.h"
#include "Panoveer/Services/Intake/GrayscaleImage.h"
#include "Panoveer/Services/Intake/Majority.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>

namespace panoveer {
namespace {

using testing::ElementsAre;

GrayscaleImage ramp(int width, int height = 1) {
    return test::painted(width, height, [=](int x, int y) { return x + width * y; });
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
