#include "Panoveer/Services/Export/ExportSamplePlanner.h"

#include "Panoveer/Services/Export/ExportPlanner.h"
#include "Panoveer/Services/Export/SegmentDuration.h"

namespace panoveer {

std::vector<VRClipSegment> ExportSamplePlanner::prefix(std::span<const VRClipSegment> segments, double duration) {
    std::vector<VRClipSegment> result;
    if (!(duration > 0))
        return result;
    double budget = duration;
    for (const auto& segment : ExportPlanner::exportableSegments(segments)) {
        const double segmentSeconds = segmentDuration(segment);
        result.push_back(segment);
        if (segmentSeconds >= budget) {
            if (segmentSeconds > budget)
                result.back().end = segment.start + budget;
            break;
        }
        budget -= segmentSeconds;
    }
    return result;
}

} // namespace panoveer
