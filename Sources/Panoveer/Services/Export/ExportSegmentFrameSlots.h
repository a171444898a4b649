#pragma once

#include "Panoveer/Services/Export/ExportFrameClock.h"

#include <cstdint>
#include <optional>

namespace panoveer {

// The frame slots of one clip within a movie: each is used at most once, and they only rise. One thread.
struct ExportSegmentFrameSlots {
    ExportFrameClock clock;
    double timelineStart = 0;    // seconds; of the axis that the clip's times are relative to
    std::int64_t startFrame = 0; // of the clip, in the movie
    std::int64_t frameCount = 0; // of the clip
    std::int64_t lastIndex = -1; // the slot used last; -1 before the first

    // The slots of a clip that lies at these seconds of the movie. Neighbours meet without a gap or an overlap, since
    // both round their common border.
    static ExportSegmentFrameSlots between(const ExportFrameClock& clock, double startSeconds, double endSeconds);

    // The slot of a frame at a time from the clip's start: the nearest that is still free. None when the clip is full.
    std::optional<std::int64_t> frameIndex(double relativeSeconds);
};

} // namespace panoveer
