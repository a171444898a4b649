#pragma once

#include <cstdint>

namespace panoveer {

// An ambisonic audio track, channels in ACN order with SN3D normalisation.
struct SpatialAudioDescriptor {
    std::int64_t ambisonicOrder = 1;
    std::int64_t channelCount = 4; // all channels of the track, head-locked ones included
    bool headLockedStereo = false; // the last two channels do not turn with the head

    friend bool operator==(const SpatialAudioDescriptor&, const SpatialAudioDescriptor&) = default;
};

} // namespace panoveer
