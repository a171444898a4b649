#include "Panoveer/Services/Export/MarkedRangeTrimmer.h"

#include "Panoveer/Services/Export/QueueFileSegmentGroups.h"
#include "Panoveer/Services/Export/SegmentDuration.h"

#include <algorithm>

namespace panoveer {

namespace {

using Group = std::span<const VRClipSegment>;

template<class Value>
std::optional<Value> firstPresent(Group group, std::optional<Value> VRClipSegment::* member) {
    const auto found = std::ranges::find_if(group, [&](const auto& clip) { return (clip.*member).has_value(); });
    return found == group.end() ? std::nullopt : (*found).*member;
}

void appendTrimmed(Group group, std::vector<VRClipSegment>& result) {
    const double total = totalDuration(group);
    if (!(total > 0))
        return;
    const auto markOr = [&](std::optional<double> VRClipSegment::* mark, double otherwise) {
        return std::clamp(firstPresent(group, mark).value_or(otherwise), 0.0, total);
    };
    const double in = markOr(&VRClipSegment::markedInPoint, 0);
    const double out = markOr(&VRClipSegment::markedOutPoint, total);
    if (!(in < out))
        return;

    const auto firstKept = result.size();
    double offset = 0;
    for (const auto& clip : group) {
        const double duration = segmentDuration(clip);
        const double low = std::max(in, offset);
        const double high = std::min(offset + duration, out);
        if (low < high) {
            auto& kept = result.emplace_back(clip);
            kept.start = clip.start + (low - offset);
            kept.end = clip.start + (high - offset);
            kept.markedInPoint.reset();
            kept.markedOutPoint.reset();
        }
        offset += duration;
    }
    if (result.size() > firstKept)
        result[firstKept].exportFileName = firstPresent(group, &VRClipSegment::exportFileName);
}

} // namespace

std::vector<VRClipSegment> MarkedRangeTrimmer::trimmedSegments(std::span<const VRClipSegment> segments) {
    std::vector<VRClipSegment> result;
    for (const auto group : queueFileSegmentGroups(segments))
        appendTrimmed(group, result);
    return result;
}

double MarkedRangeTrimmer::markedDuration(std::span<const VRClipSegment> segments) {
    return totalDuration(trimmedSegments(segments));
}

} // namespace panoveer
