#include "Panoveer/Services/Audio/FFmpegChannel.h"

#include <algorithm>
#include <array>

namespace panoveer {

namespace {

namespace Labels = AudioChannelLabels;

// Core Audio's left and right side surround.
constexpr AudioChannelLabel leftSideSurround = 55, rightSideSurround = 56;

struct Place {
    FFmpegChannel channel;
    AudioChannelLabel label;
};

// The labels of the WAVE places are the AVChannel numbers and one.
constexpr std::array<Place, 25> places = {{
    {FFmpegChannel::frontLeft, Labels::left},
    {FFmpegChannel::frontRight, Labels::right},
    {FFmpegChannel::frontCenter, Labels::center},
    {FFmpegChannel::lowFrequency, Labels::lfeScreen},
    {FFmpegChannel::backLeft, Labels::leftSurround},
    {FFmpegChannel::backRight, Labels::rightSurround},
    {FFmpegChannel::frontLeftOfCenter, Labels::leftCenter},
    {FFmpegChannel::frontRightOfCenter, Labels::rightCenter},
    {FFmpegChannel::backCenter, Labels::centerSurround},
    {FFmpegChannel::sideLeft, Labels::leftSurroundDirect},
    {FFmpegChannel::sideRight, Labels::rightSurroundDirect},
    {FFmpegChannel::topCenter, Labels::topCenterSurround},
    {FFmpegChannel::topFrontLeft, Labels::verticalHeightLeft},
    {FFmpegChannel::topFrontCenter, Labels::verticalHeightCenter},
    {FFmpegChannel::topFrontRight, Labels::verticalHeightRight},
    {FFmpegChannel::topBackLeft, Labels::topBackLeft},
    {FFmpegChannel::topBackCenter, Labels::topBackCenter},
    {FFmpegChannel::topBackRight, Labels::topBackRight},
    {FFmpegChannel::stereoLeft, Labels::leftTotal},
    {FFmpegChannel::stereoRight, Labels::rightTotal},
    {FFmpegChannel::wideLeft, Labels::leftWide},
    {FFmpegChannel::wideRight, Labels::rightWide},
    {FFmpegChannel::surroundDirectLeft, leftSideSurround},
    {FFmpegChannel::surroundDirectRight, rightSideSurround},
    {FFmpegChannel::lowFrequency2, Labels::lfe2},
}};

constexpr auto channels = [] {
    std::array<FFmpegChannel, places.size()> result{};
    std::ranges::transform(places, result.begin(), &Place::channel);
    return result;
}();

std::optional<FFmpegChannel> channelOf(AudioChannelLabel label, bool hasRearSurround) {
    switch (label) {
    case Labels::mono: return FFmpegChannel::frontCenter;
    case Labels::rearSurroundLeft: return FFmpegChannel::backLeft;
    case Labels::rearSurroundRight: return FFmpegChannel::backRight;
    case Labels::leftSurround:
        if (hasRearSurround)
            return FFmpegChannel::sideLeft;
        break;
    case Labels::rightSurround:
        if (hasRearSurround)
            return FFmpegChannel::sideRight;
        break;
    default: break;
    }
    const auto found = std::ranges::find(places, label, &Place::label);
    return found == places.end() ? std::nullopt : std::optional(found->channel);
}

} // namespace

std::span<const FFmpegChannel> allFFmpegChannels() { return channels; }

std::optional<FFmpegChannel> ffmpegChannel(std::int32_t channelID) {
    const auto channel = FFmpegChannel(channelID);
    return std::ranges::contains(channels, channel) ? std::optional(channel) : std::nullopt;
}

AudioChannelLabel label(FFmpegChannel channel) { return std::ranges::find(places, channel, &Place::channel)->label; }

std::optional<std::vector<FFmpegChannel>> ffmpegChannels(std::span<const AudioChannelLabel> labels) {
    const bool hasRearSurround = std::ranges::contains(labels, AudioChannelLabel(Labels::rearSurroundLeft));
    std::vector<FFmpegChannel> result;
    for (const auto each : labels) {
        const auto channel = channelOf(each, hasRearSurround);
        if (!channel || std::ranges::contains(result, *channel))
            return std::nullopt;
        result.push_back(*channel);
    }
    return result;
}

} // namespace panoveer
