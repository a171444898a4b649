#include "Panoveer/Services/Export/QueueFileSegmentGroups.h"

#include <ranges>

namespace panoveer {

std::vector<std::span<const VRClipSegment>> queueFileSegmentGroups(std::span<const VRClipSegment> segments) {
    const auto isSameFile = [](const VRClipSegment& left, const VRClipSegment& right) {
        return left.queueItemID == right.queueItemID && left.sourceURL == right.sourceURL;
    };
    std::vector<std::span<const VRClipSegment>> groups;
    for (const auto group : segments | std::views::chunk_by(isSameFile))
        groups.emplace_back(group);
    return groups;
}

} // namespace panoveer
