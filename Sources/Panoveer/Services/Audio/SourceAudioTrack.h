#pragma once

#include "Platform/Media/AudioChannelLayout.h"

#include <cstdint>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace panoveer {

// How the spherical harmonics of an ambisonic track are scaled. FuMa also has an order of its own: W, X, Y, Z.
enum class AmbisonicNormalization { sn3d, n3d, fuma };

// One audio track of a source file, as an export sees it. A value.
struct SourceAudioTrack {
    // Which road reads the track.
    struct AVFoundationBackend {
        std::int32_t trackID = 0; // the stream's index in the container
        friend bool operator==(const AVFoundationBackend&, const AVFoundationBackend&) = default;
    };
    struct FFmpegBackend {
        std::int32_t streamIndex = 0;
        friend bool operator==(const FFmpegBackend&, const FFmpegBackend&) = default;
    };
    using Backend = std::variant<AVFoundationBackend, FFmpegBackend>;

    // What its channels are.
    struct Speakers {
        std::vector<AudioChannelLabel> labels; // one for each canonical channel
        friend bool operator==(const Speakers&, const Speakers&) = default;
    };
    struct Ambisonic {
        int order = 1;
        AmbisonicNormalization normalization = AmbisonicNormalization::sn3d;
        int extraChannels = 0; // behind the (order + 1)^2 ambisonic ones: head-locked sound
        friend bool operator==(const Ambisonic&, const Ambisonic&) = default;
    };
    struct Discrete {
        friend bool operator==(const Discrete&, const Discrete&) = default;
    };
    using Kind = std::variant<Speakers, Ambisonic, Discrete>;

    Backend backend = AVFoundationBackend{};
    int channelCount = 0;
    Kind kind = Discrete{};
    std::vector<int> canonicalOrder; // for each canonical channel, its position in the decoded source
    std::optional<std::int32_t> ffmpegFallbackStreamIndex; // the FFmpeg stream of a track of the native road
    std::optional<std::string> languageCode;               // ISO 639-2/T
    std::optional<std::string> extendedLanguageTag;        // BCP 47
    std::string codecDescription;

    friend bool operator==(const SourceAudioTrack&, const SourceAudioTrack&) = default;
};

} // namespace panoveer
