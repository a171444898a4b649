#include "Panoveer/Services/Export/FixedFrameRateVideoRetimer.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace panoveer {
namespace {

// Feeds pictures a, b, c, … at the source's rate and spells which one each slot took.
std::string retimed(double sourceRate, int sourceFrames, double outputRate, double durationSeconds) {
    std::vector<PixelBufferPtr> pictures;
    for (int i = 0; i < sourceFrames; ++i)
        pictures.push_back(PixelBuffer::make(pixelFormat::bgra, 2, 2));
    std::string slots;
    std::int64_t expectedSlot = 0;
    const auto frames = ExportSegmentFrameSlots::between(ExportFrameClock(outputRate), 0, durationSeconds);
    FixedFrameRateVideoRetimer retimer(frames, durationSeconds, [&](const PixelBufferPtr& picture, std::int64_t slot) {
        EXPECT_EQ(slot, expectedSlot++);
        slots += char('a' + (std::ranges::find(pictures, picture) - pictures.begin()));
    });
    for (int i = 0; i < sourceFrames; ++i)
        retimer.append(pictures[std::size_t(i)], i / sourceRate);
    retimer.finish();
    return slots;
}

TEST(FixedFrameRateVideoRetimer, TakesTheNearestPictureForEverySlot) {
    EXPECT_EQ(retimed(24, 4, 60, 4 / 24.0), "aabbcccddd");
    EXPECT_EQ(retimed(120, 12, 60, 0.1), "acegik");
    EXPECT_EQ(retimed(30, 5, 30, 5 / 30.0), "abcde");
    EXPECT_EQ(retimed(60000 / 1001.0, 6, 30000 / 1001.0, 6 * 1001 / 60000.0), "ace");
}

TEST(FixedFrameRateVideoRetimer, StretchesAShortSourceToTheSegmentsEnd) {
    EXPECT_EQ(retimed(30, 3, 30, 0.2), "abcccc");
}

TEST(FixedFrameRateVideoRetimer, AppendsNothingWithoutAPicture) { EXPECT_EQ(retimed(30, 0, 30, 1), ""); }

} // namespace
} // namespace panoveer
