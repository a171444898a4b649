#pragma once

#include "Panoveer/Services/Audio/SpatialAudioDescriptor.h"
#include "Platform/Media/AudioSettings.h"

#include <cstdint>
#include <optional>
#include <string>
#include <variant>

namespace panoveer {

// What one audio track of a movie is to be: 48,000 Hz, in this encoding, with these channels. A value.
struct ExportAudioTrackPlan {
    struct AAC {
        std::int64_t bitRate = 0; // bits per second
        friend bool operator==(const AAC&, const AAC&) = default;
    };
    struct PCM24 { // little-endian
        friend bool operator==(const PCM24&, const PCM24&) = default;
    };
    using Encoding = std::variant<AAC, PCM24>;

    struct Speakers {
        std::uint64_t ffmpegMask = 0; // places of the channels, which come in the order of its bits
        friend bool operator==(const Speakers&, const Speakers&) = default;
    };
    struct Ambisonic {
        int order = 1;
        int extraChannels = 0; // head-locked, behind the ambisonic ones
        friend bool operator==(const Ambisonic&, const Ambisonic&) = default;
    };
    struct Discrete {
        friend bool operator==(const Discrete&, const Discrete&) = default;
    };
    using Content = std::variant<Speakers, Ambisonic, Discrete>;

    Encoding encoding = AAC{};
    Content content = Speakers{};
    int channelCount = 0;
    AudioChannelLayout bufferLayout; // of the samples that the writer is fed
    AudioChannelLayout writerLayout; // of the track that it writes
    std::optional<SpatialAudioDescriptor> spatialAudio;
    std::optional<std::string> languageCode;        // ISO 639-2/T
    std::optional<std::string> extendedLanguageTag; // BCP 47

    AudioSettings writerSettings() const;

    friend bool operator==(const ExportAudioTrackPlan&, const ExportAudioTrackPlan&) = default;
};

} // namespace panoveer
