#pragma once

#include "Platform/Core/URL.h"
#include "Platform/Media/AudioChannelLayout.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <stop_token>
#include <vector>

namespace panoveer {

class MediaAsset;

// A decoded block of sound: interleaved 32-bit float at 48,000 Hz.
struct AudioBlock {
    std::vector<float> samples;
    std::int64_t frames = 0;
    int channelCount = 0;
    std::optional<double> seconds; // in the source, of the first frame; absent: right behind the block before
};

// The sound of one track from a time on, from either road. One thread at a time.
class AudioBlockSource {
public:
    virtual ~AudioBlockSource() = default;

    // None at the end. Throws an Error when the source cannot be read on, and Cancelled soon after a stop, even from
    // the middle of a long search for more sound.
    virtual std::optional<AudioBlock> next() = 0;
};

// The native road. It looks into a file once for all the segments of it that follow each other. One thread at a time.
class NativeAudioRoad {
public:
    // The track of that stream index, with its own channels or, with `convertTo`, in that layout. Throws an Error when
    // it cannot be read, and Cancelled.
    std::unique_ptr<AudioBlockSource> operator()(const URL& url, std::int32_t trackID, double startSeconds,
                                                 const std::optional<AudioChannelLayout>& convertTo,
                                                 const std::stop_token& stop = {});

private:
    std::shared_ptr<const MediaAsset> asset_; // looked into last
};

// The FFmpeg road: a stream with its own channels or, with a mask, in that native layout. A negative index means the
// best stream, a duration of 0 up to the end. Times that wander by less than 10 ms are evened out. Packets that do not
// decode are passed over; only when many follow each other is the source given up. Throws FFmpegReaderError.
std::unique_ptr<AudioBlockSource> openFFmpegAudio(const URL& url, std::int32_t streamIndex, double startSeconds,
                                                  double durationSeconds, std::uint64_t channelMask,
                                                  const std::stop_token& stop = {});

// The two roads of an export's sound; tests bring their own. Each thread takes a copy.
struct AudioRoads {
    std::function<std::unique_ptr<AudioBlockSource>(const URL&, std::int32_t, double,
                                                    const std::optional<AudioChannelLayout>&, const std::stop_token&)>
        openNative = NativeAudioRoad();
    std::function<std::unique_ptr<AudioBlockSource>(const URL&, std::int32_t, double, double, std::uint64_t,
                                                    const std::stop_token&)>
        openFFmpeg = openFFmpegAudio;
};

} // namespace panoveer
