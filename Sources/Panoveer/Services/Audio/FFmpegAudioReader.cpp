#include "Panoveer/Services/Audio/FFmpegAudioReader.h"

#include "FFmpegBridge/FFmpegBridge.h"
#include "Panoveer/Services/Audio/FFmpegChannel.h"

#include <array>

namespace panoveer {

namespace {

using ErrorBuffer = std::array<char, 1024>;

constexpr std::int32_t bestStream = -1;
constexpr auto stereoMask = mask(FFmpegChannel::frontLeft) | mask(FFmpegChannel::frontRight);

} // namespace

void FFmpegAudioReader::CloseReader::operator()(PNVFFmpegAudioReader* reader) const noexcept {
    PNVFFmpegCloseAudio(reader);
}

FFmpegAudioReader::FFmpegAudioReader(const URL& url, double start, double duration)
    : FFmpegAudioReader(url, bestStream, start, duration, stereoMask) {}

FFmpegAudioReader::FFmpegAudioReader(const URL& url, std::int32_t streamIndex, double start, double duration,
                                     std::uint64_t outputChannelMask) {
    PNVFFmpegAudioReader* reader = nullptr;
    ErrorBuffer error{};
    const auto result = PNVFFmpegOpenAudioStream(url.path().c_str(), streamIndex, outputChannelMask, &reader,
                                                 error.data(), std::int32_t(error.size()), start, duration);
    reader_.reset(reader);
    if (result < 0 || !reader_)
        throw FFmpegReaderError::soundOpenFailed(error.data());
    channelCount_ = PNVFFmpegAudioReaderChannelCount(reader);
}

std::optional<FFmpegDecodedAudioFrame> FFmpegAudioReader::copyNextFrame() {
    if (!reader_)
        return std::nullopt;
    PNVFFmpegAudioFrame frame{};
    ErrorBuffer error{};
    const auto result = PNVFFmpegReadAudio(reader_.get(), &frame, error.data(), std::int32_t(error.size()));
    if (result < 0)
        throw FFmpegReaderError::soundReadFailed(error.data());
    if (result == 0 || !frame.samples || frame.sampleCount < 1 || frame.channelCount < 1)
        return std::nullopt;
    const auto values = std::size_t(frame.sampleCount) * std::size_t(frame.channelCount);
    return FFmpegDecodedAudioFrame{.samples = {frame.samples, frame.samples + values},
                                   .sampleCount = frame.sampleCount,
                                   .sampleRate = frame.sampleRate,
                                   .channelCount = frame.channelCount,
                                   .ptsSeconds = frame.ptsSeconds};
}

void FFmpegAudioReader::cancelReading() { PNVFFmpegCancelAudio(reader_.get()); }

} // namespace panoveer
