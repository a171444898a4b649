#pragma once

#include "Panoveer/Model/Records/VRClipSegment.h"

#include <algorithm>
#include <span>

namespace panoveer {

// Seconds of source; 0 for a clip that ends before it starts.
inline double segmentDuration(const VRClipSegment& segment) { return std::max(0.0, segment.end - segment.start); }

inline double totalDuration(std::span<const VRClipSegment> segments) {
    double total = 0;
    for (const auto& segment : segments)
        total += segmentDuration(segment);
    return total;
}

} // namespace panoveer
