#include "Panoveer/Services/Export/ExportSegmentFrameSlots.h"

#include <algorithm>
#include <cmath>

namespace panoveer {

ExportSegmentFrameSlots ExportSegmentFrameSlots::between(const ExportFrameClock& clock, double startSeconds,
                                                         double endSeconds) {
    const auto startFrame = clock.frameIndex(startSeconds);
    const auto endFrame = clock.frameIndex(endSeconds);
    return {.clock = clock, .startFrame = startFrame, .frameCount = std::max<std::int64_t>(endFrame - startFrame, 0)};
}

std::optional<std::int64_t> ExportSegmentFrameSlots::frameIndex(double relativeSeconds) {
    const double seconds = std::isfinite(relativeSeconds) ? std::max(relativeSeconds, 0.0) : 0.0;
    const auto slot = std::max(clock.frameIndex(seconds), lastIndex + 1);
    if (slot >= frameCount)
        return std::nullopt;
    lastIndex = slot;
    return slot;
}

} // namespace panoveer
