#pragma once

#include "Platform/Media/AudioChannelLayout.h"

#include <cstdint>
#include <optional>
#include <string>

namespace panoveer {

// What an audio track is to be encoded as; always at 48,000 Hz.
struct AudioSettings {
    enum class Codec { aac, linearPCM24 }; // linearPCM24: signed, little-endian
    Codec codec = Codec::aac;
    int channelCount = 2;
    AudioChannelLayout inputLayout;          // of the buffers
    AudioChannelLayout writerLayout;         // what the track is said to hold, and the order in which it is stored
    std::int64_t bitRate = 0;                // AAC: bits per second, of all channels
    std::optional<std::string> languageCode; // ISO 639-2/T: "ita"
    std::optional<std::string> extendedLanguageTag; // BCP 47: "pt-BR"
};

} // namespace panoveer
