#include "Panoveer/Model/Records/MirrorDomeProjectorAspect.h"
#include "Panoveer/Model/Records/OutputResolution.h"
#include "Panoveer/Model/Records/RecordEnums.h"

#include <gtest/gtest.h>

#include <limits>
#include <ostream>

namespace panoveer {

void PrintTo(const OutputResolution& size, std::ostream* out) { *out << size.width << "x" << size.height; }

namespace {

using enum ProjectionFormat;
using enum StereoVideoLayout;

struct Request {
    ProjectionFormat format;
    StereoVideoLayout layout;
    OutputResolution asked;
};

void PrintTo(const Request& request, std::ostream* out) {
    *out << rawValue(request.format) << " " << rawValue(request.layout) << " " << request.asked.width << "x"
         << request.asked.height;
}

OutputResolution validated(ProjectionFormat format, StereoVideoLayout layout, OutputResolution size,
                           std::int64_t maximum = OutputResolution::maximumDimension) {
    return OutputResolution::validated(format, layout, maximum, size.width, size.height);
}

// Whatever is asked for, the answer can be encoded; and it does not creep when it is validated again.
TEST(ValidatedResolution, IsEvenWithinBoundsAndStableForEveryFormatAndLayout) {
    for (const auto format : allCases<ProjectionFormat>)
        for (const auto layout : allCases<StereoVideoLayout>)
            for (std::int64_t width = -7; width < 40000; width = width < 600 ? width + 1 : width * 21 / 20 + 1)
                for (const std::int64_t height : {std::int64_t(-1), width / 2, width * 9 / 16, width, width * 3}) {
                    SCOPED_TRACE(testing::PrintToString(Request{format, layout, {width, height}}));
                    const auto size = validated(format, layout, {width, height});
                    ASSERT_EQ(size.width % 2, 0);
                    ASSERT_EQ(size.height % 2, 0);
                    ASSERT_GE(std::min(size.width, size.height), 64);
                    ASSERT_LE(std::max(size.width, size.height), 16384);
                    // An odd width is evened up after the height is found, so one more round may be due.
                    const auto settled = validated(format, layout, size);
                    ASSERT_LE(std::abs(settled.height - size.height), 4);
                    ASSERT_EQ(validated(format, layout, settled), settled);
                    const bool isEvenRequest = width % 4 == 0 && height % 4 == 0;
                    ASSERT_TRUE(settled == size || !isEvenRequest) << settled.width << "x" << settled.height;
                }
}

TEST(ValidatedResolution, ObeysASmallerMaximum) {
    EXPECT_EQ(validated(equirectangular, mono, {8000, 4000}, 4096), (OutputResolution{4096, 2048}));
    EXPECT_EQ(validated(cubemap, mono, {8000, 4000}, 100), (OutputResolution{126, 84}));
}

TEST(OutputResolution, EyeIsHalfOfTheDoubledSideAndAtLeastOnePixel) {
    const OutputResolution frame{3841, 1};
    EXPECT_EQ(frame.eyeResolution(mono), frame);
    EXPECT_EQ(frame.eyeResolution(sideBySide), (OutputResolution{1920, 1}));
    EXPECT_EQ(frame.eyeResolution(overUnder), (OutputResolution{3841, 1}));
}

TEST(MirrorDomeProjectorAspect, IsTheNearerOneAndSixteenNineInDoubt) {
    using enum MirrorDomeProjectorAspect;
    EXPECT_EQ(matchingProjectorAspect({1920, 1200}), sixteenTen);
    EXPECT_EQ(matchingProjectorAspect({1920, 1080}), sixteenNine);
    EXPECT_EQ(matchingProjectorAspect({0, 0}), sixteenNine);
    EXPECT_EQ(nearestProjectorAspect((1.6 + 1.7777777777777777) / 2), sixteenNine);
    EXPECT_EQ(nearestProjectorAspect(std::numeric_limits<double>::quiet_NaN()), sixteenNine);
}

TEST(ProjectionFormat, IsGuessedFromThePixelSize) {
    EXPECT_EQ(detectedProjectionFormat(3840, 1920), equirectangular);
    EXPECT_EQ(detectedProjectionFormat(2080, 1000), standard) << "the tolerance itself is outside";
    EXPECT_EQ(detectedProjectionFormat(4096, 4096), domemaster);
    EXPECT_EQ(detectedProjectionFormat(3072, 2048), eac) << "a cubemap is never guessed";
    EXPECT_EQ(detectedProjectionFormat(1920, 1080), standard);
    EXPECT_EQ(detectedProjectionFormat(1920, 0), standard);
}

struct Turn {
    AffineTransform transform;
    SourceVideoOrientation orientation;
};

TEST(SourceVideoOrientation, IsTheNearestQuarterTurn) {
    using enum SourceVideoOrientation;
    const Turn turns[] = {
        {{1, 0, 0, 1, 0, 0}, up},         {{0, 1, -1, 0, 1080, 0}, right},   {{-1, 0, 0, -1, 1920, 1080}, down},
        {{0, -2, 0.5, 0, 0, 1920}, left}, {{0.9, 0.3, -0.3, 0.9, 0, 0}, up}, {{0, 0, 0, 1, 0, 0}, up},
        {{1, 1, -1, 1, 0, 0}, up}, // half way between up and right
    };
    for (const auto& [transform, orientation] : turns)
        EXPECT_EQ(detectedOrientation(transform), orientation) << transform.a << " " << transform.b;
    EXPECT_TRUE(swapsDimensions(left) && swapsDimensions(right) && !swapsDimensions(up) && !swapsDimensions(down));
}

} // namespace
} // namespace panoveer
