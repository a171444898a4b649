#include "Panoveer/Services/Audio/FFmpegAudioSampleBufferFactory.h"

#include "Panoveer/Services/Audio/AudioChannelLayouts.h"
#include "Panoveer/Services/Audio/FFmpegAudioPipelineError.h"
#include "Panoveer/Services/Audio/PCMSampleBuffers.h"

namespace panoveer {

namespace {

constexpr int channelCount = 2;
constexpr std::int32_t requiredParameterMissing = -12731; // as the platform's sample buffers number it

} // namespace

FFmpegAudioSampleBufferFactory::FFmpegAudioSampleBufferFactory()
    : format_(PCMSampleBuffers::formatDescription(channelCount,
                                                  AudioChannelLayouts::ofTag(AudioChannelLayoutTags::stereo))) {}

AudioSampleBuffer FFmpegAudioSampleBufferFactory::makeBuffer(std::vector<float> samples, std::int64_t sampleCount,
                                                             MediaTime presentationTime) const {
    if (sampleCount < 1 || samples.size() != std::size_t(sampleCount) * channelCount)
        throw FFmpegAudioPipelineError::cannotCreateSampleBuffer(requiredParameterMissing);
    return PCMSampleBuffers::make(std::move(samples), sampleCount, format_, presentationTime);
}

} // namespace panoveer
