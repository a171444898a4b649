#pragma once

#include "Platform/Media/AudioChannelLayout.h"

#include <cstdint>

namespace panoveer {

// The shape in which AAC delivers so many channels. Samples are supplied in one channel order, and the encoder is told
// another: the one that an AAC stream has.
struct AACSpeakerTarget {
    int channelCount = 0;
    AudioChannelLayoutTag bufferLayout = 0;
    AudioChannelLayoutTag writerLayout = 0;
    std::uint64_t ffmpegMask = 0;
    std::int64_t bitRate = 0; // bits per second

    // At most six channels, whatever the source has.
    static const AACSpeakerTarget& forChannelCount(int sourceChannelCount);
};

} // namespace panoveer
