#pragma once

#include "Platform/Core/Error.h"

#include <cstdint>

namespace panoveer {

// Why the sound of a file could not be written out for the preview. The texts are literal English: they go to logs and
// reports.
class FFmpegAudioPipelineError : public Error {
public:
    enum class Case { cannotCreateSampleBuffer, cannotCreateWriterInput, writerFailed };

    static FFmpegAudioPipelineError cannotCreateSampleBuffer(std::int32_t status);
    static FFmpegAudioPipelineError cannotCreateWriterInput();
    static FFmpegAudioPipelineError writerFailed();

    Case which() const noexcept { return case_; }

private:
    FFmpegAudioPipelineError(Case which, const std::string& message, int code = 0)
        : Error(message, {}, code), case_(which) {}

    Case case_;
};

} // namespace panoveer
