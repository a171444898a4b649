#include "Panoveer/Services/Intake/GrayPictures.h"
#include "Panoveer/Services/Intake/ImmersiveImageAnalysis.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace panoveer {
namespace {

using namespace ImmersiveImageAnalysis;
using test::flat;
using test::painted;
using test::whiteNoise;
using test::withSeam;
using Layout = StereoVideoLayout;

// Two eyes that see the same wide picture, the second one so many pixels further to the right of it.
GrayscaleImage pair(Layout layout, int eyeWidth, int eyeHeight, int shift) {
    const auto scene = whiteNoise(eyeWidth + 100, eyeHeight, 0.5, 3).resampled(eyeWidth / 4, eyeHeight / 4);
    const auto at = [&](int x, int y) {
        return scene.bilinear((x + 50) * scene.width() / (eyeWidth + 100.0), y / 4.0);
    };
    if (layout == Layout::sideBySide)
        return painted(2 * eyeWidth, eyeHeight,
                       [&](int x, int y) { return x < eyeWidth ? at(x, y) : at(x - eyeWidth + shift, y); });
    return painted(eyeWidth, 2 * eyeHeight,
                   [&](int x, int y) { return y < eyeHeight ? at(x, y) : at(x + shift, y - eyeHeight); });
}

TEST(StereoMatch, FindsTheEyesAndTheirShift) {
    for (const auto layout : {Layout::sideBySide, Layout::overUnder}) {
        const auto other = layout == Layout::sideBySide ? Layout::overUnder : Layout::sideBySide;
        for (const int shift : {0, 20, -20}) {
            const auto frame = pair(layout, 384, 256, shift);
            const auto match = stereoMatch(frame, layout);
            ASSERT_TRUE(match);
            EXPECT_GT(match->correlation, 0.95);
            EXPECT_NEAR(match->horizontalShift, shift / 384.0, 0.5 / 192);
            EXPECT_LT(stereoMatch(frame, other)->correlation, 0.6);
        }
    }
    EXPECT_FALSE(stereoMatch(flat(200, 100, 0.5), Layout::sideBySide));
    const auto halfFlat =
        painted(200, 100, [](int x, int y) { return x < 100 ? 0.5 : (x % 20 > 10) == (y % 20 > 10); });
    EXPECT_FALSE(stereoMatch(halfFlat, Layout::sideBySide)) << "both eyes must show something";
    EXPECT_FALSE(stereoMatch(pair(Layout::sideBySide, 64, 64, 0), Layout::mono));
}

TEST(WrapsAround, TellsASphereByItsSeam) {
    EXPECT_EQ(wrapsAround(withSeam(64, 1000, 1)), true);
    EXPECT_EQ(wrapsAround(withSeam(64, 1000, 0.75)), true);
    EXPECT_EQ(wrapsAround(withSeam(64, 1000, 0.42)), std::nullopt);
    EXPECT_EQ(wrapsAround(withSeam(64, 1000, 0.1)), false);
    EXPECT_EQ(wrapsAround(withSeam(64, 1000, -0.5)), false);
    // Neighbouring columns must be alike, or the seam says nothing.
    EXPECT_EQ(wrapsAround(whiteNoise(64, 1000, 0.5, 2)), std::nullopt);
    EXPECT_EQ(wrapsAround(flat(64, 64, 0.5)), std::nullopt);
    EXPECT_EQ(wrapsAround(withSeam(15, 64, 1)), std::nullopt);
    EXPECT_EQ(wrapsAround(withSeam(64, 15, 1)), std::nullopt);
    EXPECT_EQ(wrapsAround(withSeam(16, 16, 1)), true);
}

TEST(FirstViewIsLeftEye, ReadsTheDirectionOfParallax) {
    for (const auto layout : {Layout::sideBySide, Layout::overUnder}) {
        // Seen from further right, things lie further left.
        EXPECT_EQ(firstViewIsLeftEye(pair(layout, 512, 512, 12), layout), true);
        EXPECT_EQ(firstViewIsLeftEye(pair(layout, 512, 512, -12), layout), false);
        EXPECT_EQ(firstViewIsLeftEye(pair(layout, 512, 512, 0), layout), std::nullopt);
    }
    // As much of the one as of the other.
    const auto here = pair(Layout::sideBySide, 512, 256, 12), there = pair(Layout::sideBySide, 512, 256, -12);
    const auto both = painted(1024, 512, [&](int x, int y) {
        return y < 256 ? here.row(y)[std::size_t(x)] : there.row(y - 256)[std::size_t(x)];
    });
    EXPECT_EQ(firstViewIsLeftEye(both, Layout::sideBySide), std::nullopt);
    EXPECT_EQ(firstViewIsLeftEye(here, Layout::mono), std::nullopt);
    const auto dark = painted(1024, 256, [&](int x, int y) { return 0.05 * here.row(y)[std::size_t(x)]; });
    EXPECT_EQ(firstViewIsLeftEye(dark, Layout::sideBySide), std::nullopt) << "there is more noise than picture in it";
}

struct Disc {
    const char* name;
    int width, height;
    double x, y, radius; // pixels
    double inside, outside;
    bool isFound = true;

    friend std::ostream& operator<<(std::ostream& stream, const Disc& disc) { return stream << disc.name; }
};

class Discs : public testing::TestWithParam<Disc> {};

TEST_P(Discs, AreFoundWhereTheyAre) {
    const auto& disc = GetParam();
    const auto noise = whiteNoise(disc.width, disc.height, 0.02, 9);
    const auto image = painted(disc.width, disc.height, [&](int x, int y) {
        const double distance = std::hypot(x + 0.5 - disc.x, y + 0.5 - disc.y) - disc.radius;
        const double cover = std::clamp(0.5 - distance, 0.0, 1.0);
        return std::lerp(disc.outside, disc.inside, cover) + noise.row(y)[std::size_t(x)] - 0.5;
    });
    const auto circle = fisheyeCircle(image);
    ASSERT_EQ(circle.has_value(), disc.isFound);
    if (!disc.isFound)
        return;
    EXPECT_NEAR(circle->centerX, disc.x / disc.width, 0.005);
    EXPECT_NEAR(circle->centerY, disc.y / disc.height, 0.005);
    EXPECT_NEAR(circle->radius, disc.radius / std::min(disc.width, disc.height), 0.01);
}

INSTANTIATE_TEST_SUITE_P(Fisheye, Discs,
                         testing::Values(Disc{"InTheMiddle", 512, 512, 256, 256, 230, 0.6, 0.02},
                                         Disc{"Touching", 512, 512, 256, 256, 256, 0.6, 0},
                                         Disc{"OffCentre", 512, 512, 270, 248, 220, 0.6, 0.02},
                                         Disc{"InAWideFrame", 1024, 576, 512, 288, 280, 0.4, 0.01},
                                         Disc{"CutOffAllAround", 512, 512, 256, 256, 275, 0.6, 0.02},
                                         Disc{"Small", 40, 40, 20, 20, 15, 0.6, 0.02},
                                         Disc{"Dim", 512, 512, 256, 256, 230, 0.12, 0.04},
                                         Disc{"WithoutCorners", 512, 512, 256, 256, 400, 0.6, 0.02, false},
                                         Disc{"BeforeGrey", 512, 512, 256, 256, 230, 0.6, 0.12, false},
                                         Disc{"TooDim", 512, 512, 256, 256, 230, 0.05, 0.01, false},
                                         Disc{"TooSmall", 512, 512, 256, 256, 90, 0.6, 0.02, false}),
                         [](const auto& test) { return test.param.name; });

TEST(FisheyeCircle, IsFoundAmongLampsAndIsNoSquare) {
    const auto inDisc = [](int x, int y) { return std::hypot(x - 255.5, y - 255.5) < 220; };
    const auto withLamps = painted(512, 512, [&](int x, int y) {
        const bool isLamp = x > 480 && y > 180 && y < 330;
        return inDisc(x, y) || isLamp ? 0.7 : 0.02;
    });
    const auto circle = fisheyeCircle(withLamps);
    ASSERT_TRUE(circle);
    EXPECT_NEAR(circle->radius, 220 / 512.0, 0.01);
    EXPECT_NEAR(circle->centerX, 0.5, 0.005);
    const auto square =
        painted(512, 512, [](int x, int y) { return x > 60 && x < 450 && y > 60 && y < 450 ? 0.7 : 0.02; });
    EXPECT_FALSE(fisheyeCircle(square));
}

TEST(ImmersiveImageAnalysis, MakesNothingOfPicturesThatShowNothing) {
    const double greys[] = {0, 0.5, 1e30, std::nan(""), std::numeric_limits<double>::infinity()};
    const std::pair<int, int> sizes[] = {{0, 0}, {1, 1}, {1, 9}, {9, 1}, {2, 2}, {17, 3}, {3, 400}, {300, 301}};
    for (const double grey : greys)
        for (const auto& [width, height] : sizes) {
            const auto image = flat(width, height, grey);
            SCOPED_TRACE(testing::Message() << width << "x" << height << " of " << grey);
            for (const auto layout : {Layout::mono, Layout::sideBySide, Layout::overUnder}) {
                EXPECT_FALSE(stereoMatch(image, layout));
                EXPECT_FALSE(firstViewIsLeftEye(image, layout));
            }
            EXPECT_FALSE(wrapsAround(image));
            EXPECT_FALSE(fisheyeCircle(image));
        }
}

} // namespace
} // namespace panoveer
