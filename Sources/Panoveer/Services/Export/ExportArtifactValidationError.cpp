#include "Panoveer/Services/Export/ExportArtifactValidationError.h"

#include <format>

namespace panoveer {

namespace {

using Failure = ExportArtifactValidationError;

const char* text(Failure::Kind kind) {
    switch (kind) {
    case Failure::Kind::missingVideoFormatDescription: return "The staged export has no video format description.";
    case Failure::Kind::missingStereoLayers:
        return "The staged MV-HEVC export does not contain a left and a right eye layer.";
    case Failure::Kind::ffmpegMetadataMismatch:
        return "FFmpeg reported invalid duration or dimensions for the staged export.";
    case Failure::Kind::ffmpegAudioMismatch:
        return "FFmpeg reported an unexpected audio-track layout in the staged export.";
    case Failure::Kind::colorMetadataMismatch:
        return "The staged export color metadata does not match the selected HDR/SDR mode.";
    case Failure::Kind::invalidPNGSet: return "The staged Alpha Masks folder is incomplete.";
    default: return "";
    }
}

} // namespace

Failure Failure::missingOrEmptyFile(const URL& url) {
    return {Kind::missingOrEmptyFile,
            std::format("The staged export is missing or empty ({}).", url.lastPathComponent())};
}

Failure Failure::unplayableMovie(const URL& url) {
    return {Kind::unplayableMovie,
            std::format("AVFoundation cannot play the staged export ({}).", url.lastPathComponent())};
}

Failure Failure::invalidVideoTrackCount(std::int64_t count) {
    return {Kind::invalidVideoTrackCount,
            std::format("The staged export contains {} video tracks instead of one.", count)};
}

Failure Failure::invalidAudioTrackCount(std::int64_t expected, std::int64_t actual) {
    return {Kind::invalidAudioTrackCount,
            std::format("The staged export contains {} audio tracks; expected {}.", actual, expected)};
}

Failure Failure::invalidDuration(double expected, double actual, double tolerance) {
    return {Kind::invalidDuration,
            std::format("The staged export duration is {:.3f} s; expected {:.3f} s (tolerance {:.3f} s).", actual,
                        expected, tolerance)};
}

Failure Failure::invalidDimensions(std::int64_t expectedWidth, std::int64_t expectedHeight, std::int64_t actualWidth,
                                   std::int64_t actualHeight) {
    return {Kind::invalidDimensions, std::format("The staged export is {}x{}; expected {}x{}.", actualWidth,
                                                 actualHeight, expectedWidth, expectedHeight)};
}

Failure Failure::unexpectedCodec(const std::string& expected, const std::string& actual) {
    return {Kind::unexpectedCodec, std::format("The staged export uses codec {}; expected {}.", actual, expected)};
}

Failure Failure::ffmpegProbeFailed(const std::string& text) {
    return {Kind::ffmpegProbeFailed, "FFmpeg could not validate the staged export: " + text};
}

Failure Failure::invalidPNG(const URL& url) {
    return {Kind::invalidPNG, std::format("The staged Alpha Mask is invalid ({}).", url.lastPathComponent())};
}

Failure Failure::of(Kind kind) { return {kind, text(kind)}; }

} // namespace panoveer
