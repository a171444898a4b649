#pragma once

#include "Panoveer/Model/Records/ExportCodec.h"
#include "Platform/Core/Error.h"
#include "Platform/Core/URL.h"

#include <cstdint>
#include <string>

namespace panoveer {

// What is wrong with a staged export. The texts are literal English: the exporter wraps them in a localised failure.
class ExportArtifactValidationError : public Error {
public:
    enum class Kind {
        missingOrEmptyFile,
        unplayableMovie,
        invalidVideoTrackCount,
        invalidAudioTrackCount,
        invalidDuration,
        invalidDimensions,
        unexpectedCodec,
        ffmpegProbeFailed,
        invalidPNG,
        missingVideoFormatDescription,
        missingStereoLayers,
        ffmpegMetadataMismatch,
        ffmpegAudioMismatch,
        colorMetadataMismatch,
        invalidPNGSet,
    };

    static ExportArtifactValidationError missingOrEmptyFile(const URL& url);
    static ExportArtifactValidationError unplayableMovie(const URL& url);
    static ExportArtifactValidationError invalidVideoTrackCount(std::int64_t count);
    static ExportArtifactValidationError invalidAudioTrackCount(std::int64_t expected, std::int64_t actual);
    // Seconds.
    static ExportArtifactValidationError invalidDuration(double expected, double actual, double tolerance);
    static ExportArtifactValidationError invalidDimensions(std::int64_t expectedWidth, std::int64_t expectedHeight,
                                                           std::int64_t actualWidth, std::int64_t actualHeight);
    // Four-character codes as text.
    static ExportArtifactValidationError unexpectedCodec(const std::string& expected, const std::string& actual);
    static ExportArtifactValidationError ffmpegProbeFailed(const std::string& text);
    static ExportArtifactValidationError invalidPNG(const URL& url);
    // A case without a payload.
    static ExportArtifactValidationError of(Kind kind);

    Kind kind() const noexcept { return kind_; }

private:
    ExportArtifactValidationError(Kind kind, const std::string& message) : Error(message), kind_(kind) {}

    Kind kind_;
};

} // namespace panoveer
