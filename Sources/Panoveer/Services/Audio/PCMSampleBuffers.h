#pragma once

#include "Platform/Media/AudioSampleBuffer.h"

#include <cstdint>
#include <memory>
#include <vector>

// Timed blocks of sound as a writer takes them: interleaved 32-bit float at 48,000 Hz. Pure functions, any thread.
namespace panoveer::PCMSampleBuffers {

std::shared_ptr<const AudioFormatDescription> formatDescription(int channelCount, const AudioChannelLayout& layout);

// `samples` holds `frames` frames of the format's channels.
AudioSampleBuffer make(std::vector<float> samples, std::int64_t frames,
                       std::shared_ptr<const AudioFormatDescription> format, MediaTime presentationTime);

} // namespace panoveer::PCMSampleBuffers
