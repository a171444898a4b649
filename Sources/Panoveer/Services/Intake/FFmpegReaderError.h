#pragma once

#include "Platform/Core/Error.h"

#include <cstdint>
#include <string>

namespace panoveer {

// The one failure of all access to FFmpeg. The texts are literal English: they go to logs and reports.
class FFmpegReaderError : public Error {
public:
    enum class Case {
        probeFailed,
        openFailed,
        readFailed,
        pixelBufferCreationFailed,
        pixelBufferCopyFailed,
        unavailable
    };

    // `reason` is what the bridge left in its error buffer.
    static FFmpegReaderError probeFailed(const std::string& reason);
    static FFmpegReaderError openFailed(const std::string& reason);
    static FFmpegReaderError readFailed(const std::string& reason);
    // `status` is the platform's code, as Error::code() tells it.
    static FFmpegReaderError pixelBufferCreationFailed(std::int32_t status);
    static FFmpegReaderError pixelBufferCopyFailed(std::int32_t status);
    // A reader whose bridge reader is gone.
    static FFmpegReaderError unavailable();

    Case errorCase() const noexcept { return case_; }
    // The payload of the first three cases; empty for the others.
    const std::string& reason() const noexcept { return reason_; }
    std::string errorDescription() const { return what(); }

private:
    FFmpegReaderError(Case errorCase, const std::string& message, std::string reason, int code)
        : Error(message, {}, code), case_(errorCase), reason_(std::move(reason)) {}

    Case case_;
    std::string reason_;
};

} // namespace panoveer
