#include "Panoveer/Services/Export/ExportFrameClock.h"
#include "Panoveer/Services/Export/ExportSegmentFrameSlots.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <numeric>
#include <ostream>

namespace panoveer {

void PrintTo(const ExportFrameClock& clock, std::ostream* out) {
    *out << clock.timescale << "/" << clock.frameDuration;
}

namespace {

struct Rate {
    double framesPerSecond;
    std::int32_t timescale;
    std::int64_t frameDuration;
};

TEST(ExportFrameClock, IsTheExactTimeBaseOfARate) {
    constexpr double infinity = std::numeric_limits<double>::infinity();
    const Rate rates[] = {
        {30, 600, 20},    {25, 600, 24},        {24, 600, 25},           {120, 600, 5},         {12.5, 600, 48},
        {7, 4200, 600},   {29.97, 30000, 1001}, {23.976, 24000, 1001},   {23.98, 24000, 1001},  {59.94, 60000, 1001},
        {29.99, 600, 20}, {30.01, 600, 20},     {15.5, 18600, 1200},     {0.0001, 600, 600000}, {0, 600, 20},
        {-24, 600, 20},   {infinity, 600, 20},  {std::nan(""), 600, 20}, {1e300, 600, 20},
    };
    for (const auto& [rate, timescale, frameDuration] : rates) {
        const ExportFrameClock clock(rate);
        EXPECT_EQ(clock.timescale, timescale) << rate;
        EXPECT_EQ(clock.frameDuration, frameDuration) << rate;
    }
}

// Every integer rate and its 1000/1001 relative are met exactly, however the rate was rounded on its way here.
TEST(ExportFrameClock, IntegerAndNTSCRatesAreExactRationals) {
    for (std::int64_t n = 1; n <= 240; ++n) {
        const ExportFrameClock integer{double(n)};
        EXPECT_EQ(integer.timescale, n * integer.frameDuration) << n;
        EXPECT_EQ(integer.timescale % 600, 0) << n;

        const double ntsc = double(n) * 1000 / 1001;
        // Three decimals of a low rate do not tell the two apart.
        for (const double spelled : {ntsc, n < 10 ? ntsc : std::round(ntsc * 1000) / 1000}) {
            const ExportFrameClock clock(spelled);
            EXPECT_EQ(clock.timescale, n * 1000) << spelled;
            EXPECT_EQ(clock.frameDuration, 1001) << spelled;
        }
    }
}

TEST(ExportFrameClock, AnyRateIsMetWithinItsToleranceAndCountsItsOwnFrames) {
    for (double rate = 1; rate <= 240; rate += 0.0137) {
        const ExportFrameClock clock(rate);
        const double met = double(clock.timescale) / double(clock.frameDuration);
        // Half a thousandth from the notation, or the distance to the integer beside it.
        ASSERT_NEAR(met, rate, std::max(0.0006, 0.0006 * std::ceil(rate))) << rate;
        for (const std::int64_t frame : {0, 1, 999, 1000000})
            ASSERT_EQ(clock.frameIndex(clock.time(frame).seconds()), frame) << rate;
    }
}

TEST(ExportFrameClock, RoundsHalfAFrameAwayFromZero) {
    const ExportFrameClock clock(10);
    EXPECT_EQ(clock.frameIndex(0.05), 1);
    EXPECT_EQ(clock.frameIndex(-0.05), -1);
    EXPECT_EQ(clock.frameIndex(0.049), 0);
}

TEST(ExportSegmentFrameSlots, OfNeighboursMeetWithoutGapOrOverlap) {
    const ExportFrameClock clock(29.97);
    double start = 0;
    std::int64_t nextFrame = 0;
    for (const double duration : {0.01, 1.0 / 3, 2.71828, 0.016, 100.005}) {
        const auto slots = ExportSegmentFrameSlots::between(clock, start, start + duration);
        EXPECT_EQ(slots.startFrame, nextFrame);
        nextFrame += slots.frameCount;
        start += duration;
    }
    EXPECT_EQ(nextFrame, clock.frameIndex(start));
    EXPECT_EQ(ExportSegmentFrameSlots::between(clock, 5, 4).frameCount, 0);
}

} // namespace
} // namespace panoveer
