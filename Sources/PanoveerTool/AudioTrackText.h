#pragma once

#include "Panoveer/Services/Audio/SourceAudioTrack.h"

#include <nlohmann/json_fwd.hpp>

#include <cstdint>
#include <string>

namespace panoveer::tool {

// The stream in the container that the track is.
std::int32_t streamIndex(const SourceAudioTrack& track);

// What a track is: "ambisonic order 3 (SN3D), 16 channels, PCM signed 24-bit little-endian, eng".
std::string describe(const SourceAudioTrack& track);

// Adds the same to the JSON object of the track's stream.
void addKind(nlohmann::ordered_json& stream, const SourceAudioTrack& track);

} // namespace panoveer::tool
