#include "Panoveer/Services/Audio/PCMSampleBuffers.h"

#include <utility>

namespace panoveer::PCMSampleBuffers {

std::shared_ptr<const AudioFormatDescription> formatDescription(int channelCount, const AudioChannelLayout& layout) {
    return std::make_shared<AudioFormatDescription>(
        AudioFormatDescription{.channelCount = channelCount, .layout = layout});
}

AudioSampleBuffer make(std::vector<float> samples, std::int64_t frames,
                       std::shared_ptr<const AudioFormatDescription> format, MediaTime presentationTime) {
    return {.format = std::move(format),
            .samples = std::move(samples),
            .frames = frames,
            .presentationTime = presentationTime};
}

} // namespace panoveer::PCMSampleBuffers
