#include "Panoveer/Services/Audio/FFmpegAudioPipelineError.h"

#include <format>

namespace panoveer {

FFmpegAudioPipelineError FFmpegAudioPipelineError::cannotCreateSampleBuffer(std::int32_t status) {
    return {Case::cannotCreateSampleBuffer, std::format("Could not create an FFmpeg audio sample buffer ({}).", status),
            status};
}

FFmpegAudioPipelineError FFmpegAudioPipelineError::cannotCreateWriterInput() {
    return {Case::cannotCreateWriterInput, "Could not configure the FFmpeg audio writer."};
}

FFmpegAudioPipelineError FFmpegAudioPipelineError::writerFailed() {
    return {Case::writerFailed, "Could not create the FFmpeg playback audio track."};
}

} // namespace panoveer
