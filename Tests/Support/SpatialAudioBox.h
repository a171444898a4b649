#pragma once

#include "Support/MediaFactory.h"

namespace panoveer::test {

// Marks the sound of a movie of one picture and one audio track as ambisonic (`SA3D`): `entry` is its sample entry.
inline void appendSpatialAudio(const std::filesystem::path& movie, const std::string& entry, int order, int channels,
                               bool headLocked = false) {
    std::vector<std::uint8_t> payload = {0, std::uint8_t(headLocked ? 0x80 : 0), 0, 0, 0, std::uint8_t(order)};
    payload.insert(payload.end(), {0, 0, 0, 0, 0, std::uint8_t(channels)}); // ACN, SN3D
    for (int channel = 0; channel < channels; ++channel)
        payload.insert(payload.end(), {0, 0, 0, std::uint8_t(channel)});
    appendBox(movie, {"moov", "trak:1", "mdia", "minf", "stbl", "stsd", entry}, "SA3D", payload);
}

} // namespace panoveer::test
