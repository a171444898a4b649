#pragma once

#include "Platform/Media/AudioChannelLayout.h"

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace panoveer {

// The speaker places that the program tells apart. Raw values are libavutil's AVChannel numbers, and their order is the
// one in which libavcodec gives channels out.
enum class FFmpegChannel : std::int32_t {
    frontLeft = 0,
    frontRight = 1,
    frontCenter = 2,
    lowFrequency = 3,
    backLeft = 4,
    backRight = 5,
    frontLeftOfCenter = 6,
    frontRightOfCenter = 7,
    backCenter = 8,
    sideLeft = 9,
    sideRight = 10,
    topCenter = 11,
    topFrontLeft = 12,
    topFrontCenter = 13,
    topFrontRight = 14,
    topBackLeft = 15,
    topBackCenter = 16,
    topBackRight = 17,
    stereoLeft = 29,
    stereoRight = 30,
    wideLeft = 31,
    wideRight = 32,
    surroundDirectLeft = 33,
    surroundDirectRight = 34,
    lowFrequency2 = 35,
};

// In the order of their numbers.
std::span<const FFmpegChannel> allFFmpegChannels();

// None for a number that no case has.
std::optional<FFmpegChannel> ffmpegChannel(std::int32_t channelID);

constexpr std::uint64_t mask(FFmpegChannel channel) { return std::uint64_t(1) << std::int32_t(channel); }

// The label that stands for the place in files that this program writes.
AudioChannelLabel label(FFmpegChannel channel);

// The places that labels stand for, one for each. None when one of them stands for no place or two for the same. Where
// a layout has rear surround speakers, its left and right surround stand at the sides; elsewhere they are the back
// ones.
std::optional<std::vector<FFmpegChannel>> ffmpegChannels(std::span<const AudioChannelLabel> labels);

} // namespace panoveer
