#pragma once

#include "Platform/Core/MediaTime.h"
#include "Platform/Media/AudioChannelLayout.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

namespace panoveer {

// The rate of all audio inside the program, in frames (one sample of every channel) per second.
inline constexpr std::int32_t audioSampleRate = 48'000;

// Linear PCM, 32-bit float, interleaved, 48,000 Hz.
struct AudioFormatDescription {
    int channelCount = 0;
    AudioChannelLayout layout;

    bool operator==(const AudioFormatDescription&) const = default;
};

// A block of sound.
struct AudioSampleBuffer {
    std::shared_ptr<const AudioFormatDescription> format;
    std::vector<float> samples; // interleaved, full scale -1 to 1
    std::int64_t frames = 0;
    std::optional<MediaTime> presentationTime; // of the first frame; absent: right behind the block before
};

} // namespace panoveer
