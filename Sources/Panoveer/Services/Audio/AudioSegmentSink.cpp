#include "Panoveer/Services/Audio/AudioSegmentSink.h"

#include "Platform/Media/AudioSampleBuffer.h"

#include <algorithm>
#include <cmath>

namespace panoveer {

namespace {

constexpr std::int64_t tolerance = 2; // frames

} // namespace

AudioSegmentSink::Placement AudioSegmentSink::place(std::optional<double> sourceSeconds, std::int64_t frames) {
    Placement placement;
    if (sourceSeconds && std::isfinite(*sourceSeconds)) {
        constexpr double farAway = 1e15; // beyond any length, and within 64 bits
        const double distance =
            (*sourceSeconds - (sourceStart_ + double(written_) / audioSampleRate)) * audioSampleRate;
        const auto gap = std::llround(std::clamp(distance, -farAway, farAway));
        if (gap > tolerance)
            placement.silence = std::min<std::int64_t>(gap, room());
        else if (gap < -tolerance)
            placement.skipped = std::min<std::int64_t>(-gap, frames);
    }
    written_ += placement.silence;
    placement.taken = std::max<std::int64_t>(std::min(frames - placement.skipped, room()), 0);
    written_ += placement.taken;
    return placement;
}

} // namespace panoveer
