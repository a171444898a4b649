#pragma once

#include "Panoveer/Model/Records/VRClipSegment.h"

#include <span>
#include <vector>

namespace panoveer {

// The beginning of a queue, for a short test export.
struct ExportSamplePlanner {
    // The clips as they will be exported, cut off after `duration` seconds; nothing for a duration that is not
    // positive.
    static std::vector<VRClipSegment> prefix(std::span<const VRClipSegment> segments, double duration);
};

} // namespace panoveer
