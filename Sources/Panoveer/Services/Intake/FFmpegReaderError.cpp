#include "Panoveer/Services/Intake/FFmpegReaderError.h"

#include <format>

namespace panoveer {

FFmpegReaderError FFmpegReaderError::probeFailed(const std::string& payload) {
    return {Case::probeFailed, "FFmpeg could not inspect the video: " + payload, payload, 0};
}

FFmpegReaderError FFmpegReaderError::openFailed(const std::string& payload) {
    return {Case::openFailed, "FFmpeg could not open the video: " + payload, payload, 0};
}

FFmpegReaderError FFmpegReaderError::readFailed(const std::string& payload) {
    return {Case::readFailed, "FFmpeg could not decode the video frame: " + payload, payload, 0};
}

FFmpegReaderError FFmpegReaderError::soundOpenFailed(const std::string& payload) {
    return {Case::openFailed, "FFmpeg could not open the sound: " + payload, payload, 0};
}

FFmpegReaderError FFmpegReaderError::soundReadFailed(const std::string& payload) {
    return {Case::readFailed, "FFmpeg could not decode the sound: " + payload, payload, 0};
}

FFmpegReaderError FFmpegReaderError::pixelBufferCreationFailed(std::int32_t status) {
    return {Case::pixelBufferCreationFailed,
            std::format("Could not create a video pixel buffer ({}).", status),
            {},
            status};
}

FFmpegReaderError FFmpegReaderError::pixelBufferCopyFailed(std::int32_t status) {
    return {Case::pixelBufferCopyFailed, std::format("Could not copy decoded video pixels ({}).", status), {}, status};
}

FFmpegReaderError FFmpegReaderError::unavailable() {
    return {Case::unavailable, "Bundled FFmpeg libraries are unavailable.", {}, 0};
}

} // namespace panoveer
