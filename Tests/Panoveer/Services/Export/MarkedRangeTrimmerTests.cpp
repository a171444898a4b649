#include "Panoveer/Services/Export/Clips.h"
#include "Panoveer/Services/Export/MarkedRangeTrimmer.h"
#include "Panoveer/Services/Export/QueueFileSegmentGroups.h"

#include <gtest/gtest.h>

namespace panoveer {
namespace {

TEST(QueueFileSegmentGroups, AreRunsOfNeighboursFromOneEntryAndOneFile) {
    const auto first = clipOf("/films/a.mov", 0, 1);
    const auto otherEntry = clipOf("/films/a.mov", 1, 2);
    auto otherFile = nextOf(first, 2, 3);
    otherFile.sourceURL = URL::fromFilePath("/films/b.mov");
    const std::vector segments = {first, nextOf(first, 1, 2), otherEntry, otherFile, nextOf(first, 3, 4)};
    std::vector<std::size_t> sizes;
    for (const auto group : queueFileSegmentGroups(segments))
        sizes.push_back(group.size());
    EXPECT_EQ(sizes, (std::vector<std::size_t>{2, 1, 1, 1}));
    EXPECT_TRUE(queueFileSegmentGroups({}).empty());
}

struct Marks {
    const char* what;
    std::optional<double> in, out;
    std::vector<std::pair<double, double>> kept; // ranges of the source
};

// Two pieces of one file with a gap between them: 10 to 14 and 20 to 26 seconds.
TEST(MarkedRangeTrimmer, MarksCountFromTheStartOfTheEntryNotOfTheFile) {
    const Marks table[] = {
        {"no marks", {}, {}, {{10, 14}, {20, 26}}},
        {"in and out in both pieces", 1.5, 5, {{11.5, 14}, {20, 21}}},
        {"in at the border drops the first piece", 4, {}, {{20, 26}}},
        {"out at the border drops the second piece", {}, 4, {{10, 14}}},
        {"marks beyond both ends", -3, 99, {{10, 14}, {20, 26}}},
        {"in equal to out", 5, 5, {}},
        {"in behind out", 6, 5, {}},
        {"in at the end", 10, {}, {}},
        {"out of 0", {}, 0, {}},
        {"out before the start", {}, -1, {}},
    };
    for (const auto& marks : table) {
        auto first = clipOf("/films/a.mov", 10, 14);
        auto second = nextOf(first, 20, 26);
        second.markedInPoint = marks.in; // the first mark that is present counts
        second.markedOutPoint = marks.out;
        double duration = 0;
        std::vector<std::pair<double, double>> kept;
        const std::vector segments = {first, second};
        for (const auto& clip : MarkedRangeTrimmer::trimmedSegments(segments)) {
            kept.emplace_back(clip.start, clip.end);
            duration += clip.end - clip.start;
            EXPECT_FALSE(clip.markedInPoint || clip.markedOutPoint) << marks.what;
        }
        EXPECT_EQ(kept, marks.kept) << marks.what;
        EXPECT_EQ(MarkedRangeTrimmer::markedDuration(segments), duration) << marks.what;
    }
}

TEST(MarkedRangeTrimmer, ANameMovesToTheFirstPieceThatIsLeft) {
    auto first = clipOf("/films/a.mov", 0, 4);
    first.exportFileName = "opening";
    first.markedInPoint = 5;
    auto second = nextOf(first, 10, 14);
    second.exportFileName.reset();
    const std::vector segments = {first, second, nextOf(second, 20, 21)};
    const auto kept = MarkedRangeTrimmer::trimmedSegments(segments);
    ASSERT_EQ(kept.size(), 2u);
    EXPECT_EQ(kept[0].exportFileName, "opening");
    EXPECT_EQ(kept[1].exportFileName, std::nullopt);
}

TEST(MarkedRangeTrimmer, APieceThatEndsBeforeItStartsHasNoLength) {
    const auto backwards = clipOf("/films/a.mov", 9, 3);
    const auto forwards = nextOf(backwards, 0, 2);
    const std::vector segments = {backwards, forwards};
    EXPECT_EQ(MarkedRangeTrimmer::trimmedSegments(segments), std::vector{forwards});
    EXPECT_TRUE(MarkedRangeTrimmer::trimmedSegments(std::vector{backwards}).empty());
}

} // namespace
} // namespace panoveer
