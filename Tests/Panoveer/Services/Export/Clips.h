#pragma once

#include "Panoveer/Model/Records/VRClipSegment.h"

namespace panoveer {

// A clip that is a queue entry of its own.
inline VRClipSegment clipOf(const char* path, double start, double end) {
    VRClipSegment clip;
    clip.id = UUID::random();
    clip.queueItemID = UUID::random();
    clip.sourceURL = URL::fromFilePath(path);
    clip.start = start;
    clip.end = end;
    return clip;
}

// Another clip of the same queue entry.
inline VRClipSegment nextOf(const VRClipSegment& clip, double start, double end) {
    auto next = clip;
    next.id = UUID::random();
    next.start = start;
    next.end = end;
    return next;
}

} // namespace panoveer
