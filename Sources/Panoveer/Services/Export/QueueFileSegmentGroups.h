#pragma once

#include "Panoveer/Model/Records/VRClipSegment.h"

#include <span>
#include <vector>

namespace panoveer {

// The runs of neighbours that were cut from one queue entry: equal queueItemID and equal sourceURL. The groups are
// views of the list given, in its order; each has at least one clip.
std::vector<std::span<const VRClipSegment>> queueFileSegmentGroups(std::span<const VRClipSegment> segments);

} // namespace panoveer
