#pragma once

#include "Panoveer/Model/Records/VRClipSegment.h"

#include <span>
#include <vector>

namespace panoveer {

// Cuts clips to the range that is marked on their queue entry. Pure functions, any thread.
//
//   group     |---- a ----|---- b ----|-- c --|
//   marks           in >-------------------< out        seconds from the group's first frame
//   result          |- a -|---- b ----|-c-|             marks cleared
struct MarkedRangeTrimmer {
    // Groups are those of queueFileSegmentGroups; one with nothing between its marks vanishes. A name for the output
    // moves to the first clip that is left.
    static std::vector<VRClipSegment> trimmedSegments(std::span<const VRClipSegment> segments);

    // Seconds that are left of the clips after trimming.
    static double markedDuration(std::span<const VRClipSegment> segments);
};

} // namespace panoveer
