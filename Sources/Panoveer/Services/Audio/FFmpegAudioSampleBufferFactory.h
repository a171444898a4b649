#pragma once

#include "Platform/Media/AudioSampleBuffer.h"

#include <cstdint>
#include <memory>
#include <vector>

namespace panoveer {

// Makes the stereo buffers of playback clocks, all of one format. One thread at a time.
class FFmpegAudioSampleBufferFactory {
public:
    FFmpegAudioSampleBufferFactory();

    // Throws FFmpegAudioPipelineError::cannotCreateSampleBuffer unless there are two samples for each frame.
    AudioSampleBuffer makeBuffer(std::vector<float> samples, std::int64_t sampleCount,
                                 MediaTime presentationTime) const;

private:
    std::shared_ptr<const AudioFormatDescription> format_;
};

} // namespace panoveer
