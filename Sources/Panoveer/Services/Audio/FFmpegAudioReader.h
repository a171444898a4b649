#pragma once

#include "Panoveer/Services/Intake/FFmpegReaderError.h"
#include "Platform/Core/URL.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

struct PNVFFmpegAudioReader;

namespace panoveer {

// A decoded block of sound. Seconds are those of the container.
struct FFmpegDecodedAudioFrame {
    std::vector<float> samples;   // interleaved
    std::int64_t sampleCount = 0; // frames
    int sampleRate = 0;           // Hz; always 48,000
    int channelCount = 0;
    double ptsSeconds = 0; // of the first frame
};

// Reads one audio stream of any file that FFmpeg knows, from a time on and for so long. One thread at a time, except
// cancelReading(), which any thread may call. Destruction closes the file.
class FFmpegAudioReader {
public:
    // The best stream, as stereo. A duration that is not positive means up to the end. Throws
    // FFmpegReaderError::openFailed.
    FFmpegAudioReader(const URL& url, double start, double duration);
    // A given stream in a given native layout, or with its own channels when the mask is 0. Throws the same.
    FFmpegAudioReader(const URL& url, std::int32_t streamIndex, double start, double duration,
                      std::uint64_t outputChannelMask);

    int channelCount() const { return channelCount_; }

    // The next block; none at the end, and after cancelReading(). Throws FFmpegReaderError::readFailed for a packet
    // that cannot be decoded; the next call goes on behind it.
    std::optional<FFmpegDecodedAudioFrame> copyNextFrame();
    void cancelReading();

private:
    struct CloseReader {
        void operator()(PNVFFmpegAudioReader* reader) const noexcept;
    };

    std::unique_ptr<PNVFFmpegAudioReader, CloseReader> reader_; // null in a reader that was moved from
    int channelCount_ = 0;
};

} // namespace panoveer
