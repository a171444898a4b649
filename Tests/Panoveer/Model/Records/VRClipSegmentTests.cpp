#include "Panoveer/Model/Records/VRClipSegment.h"

#include <gtest/gtest.h>

namespace panoveer {
namespace {

VRClipSegment clip(double start, double end) {
    VRClipSegment result;
    result.id = UUID::random();
    result.queueItemID = UUID::random();
    result.sourceURL = URL::fromFilePath("/films/clip.mov");
    result.start = start;
    result.end = end;
    result.transform = result.transform.normalized();
    return result;
}

TEST(VRClipSegmentSplit, HalvesMeetAtTheTimeAndKeepEverythingButTheirIds) {
    auto original = clip(10, 20);
    original.exportFileName = "opening";
    original.markedInPoint = 1.5;
    original.transform.yawDegrees = 700; // normalised in both halves
    const auto halves = original.split(14, 1);
    ASSERT_TRUE(halves);
    auto [left, right] = *halves;
    EXPECT_EQ(left.start, 10);
    EXPECT_EQ(left.end, 14);
    EXPECT_EQ(right.start, 14);
    EXPECT_EQ(right.end, 20);
    EXPECT_EQ(left.transform.yawDegrees, -20);
    EXPECT_TRUE(left.id != right.id && left.id != original.id && right.id != original.id);

    right.id = left.id;
    right.start = left.start;
    right.end = left.end;
    EXPECT_EQ(left, right);
    EXPECT_EQ(left.queueItemID, original.queueItemID);
    EXPECT_EQ(left.exportFileName, original.exportFileName);
    EXPECT_EQ(left.markedInPoint, original.markedInPoint);
}

TEST(VRClipSegmentSplit, NeedsTheMinimumOnBothSides) {
    const auto original = clip(10, 20);
    EXPECT_TRUE(original.split(11, 1)) << "a side of exactly the minimum is allowed";
    EXPECT_TRUE(original.split(19, 1));
    EXPECT_FALSE(original.split(10.5, 1));
    EXPECT_FALSE(original.split(19.5, 1));
    for (const double minimum : {0.0, 0.04})
        for (const double atSeconds : {10.0, 20.0, -5.0, 99.0})
            EXPECT_FALSE(original.split(atSeconds, minimum)) << atSeconds;
}

TEST(VRClipSegmentNormalized, HasAtLeastTheMinimumDuration) {
    const auto result = clip(-3, -5).normalized(0.25);
    EXPECT_EQ(result.start, 0);
    EXPECT_EQ(result.end, 0.25);
}

} // namespace
} // namespace panoveer
