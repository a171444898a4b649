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

    // `payload` is what the bridge left in its error buffer.
    static FFmpegReaderError probeFailed(const std::string& payload);
    static FFmpegReaderError openFailed(const std::string& payload);
    static FFmpegReaderError readFailed(const std::string& payload);
    // The same two cases of a track of sound.
    static FFmpegReaderError soundOpenFailed(const std::string& payload);
    static FFmpegReaderError soundReadFailed(const std::string& payload);
    // `status` is the platform's code, as Error::code() tells it.
    static FFmpegReaderError pixelBufferCreationFailed(std::int32_t status);
    static FFmpegReaderError pixelBufferCopyFailed(std::int32_t status);
    // A reader whose bridge reader is gone.
    static FFmpegReaderError unavailable();

    Case reason() const noexcept { return reason_; }
    // Of the first three cases; empty for the others.
    const std::string& payload() const noexcept { return payload_; }
    std::string errorDescription() const { return what(); }

private:
    FFmpegReaderError(Case reason, const std::string& message, std::string payload, int code)
        : Error(message, {}, code), reason_(reason), payload_(std::move(payload)) {}

    Case reason_;
    std::string payload_;
};

} // namespace panoveer
