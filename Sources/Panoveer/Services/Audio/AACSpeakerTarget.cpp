#include "Panoveer/Services/Audio/AACSpeakerTarget.h"

#include "Panoveer/Services/Audio/FFmpegChannel.h"

#include <algorithm>
#include <array>

namespace panoveer {

namespace {

namespace Tags = AudioChannelLayoutTags;

constexpr auto frontPair = mask(FFmpegChannel::frontLeft) | mask(FFmpegChannel::frontRight);
constexpr auto center = mask(FFmpegChannel::frontCenter);
constexpr auto quad = frontPair | mask(FFmpegChannel::backLeft) | mask(FFmpegChannel::backRight);
constexpr auto lowFrequency = mask(FFmpegChannel::lowFrequency);

// Above stereo, 96,000 bits per second for each channel.
constexpr std::array<AACSpeakerTarget, 6> targets = {{
    {1, Tags::mono, Tags::mono, center, 128'000},
    {2, Tags::stereo, Tags::stereo, frontPair, 256'000},
    {3, Tags::mpeg30A, Tags::mpeg30B, frontPair | center, 288'000},
    {4, Tags::quadraphonic, Tags::quadraphonic, quad, 384'000},
    {5, Tags::mpeg50A, Tags::mpeg50D, quad | center, 480'000},
    {6, Tags::mpeg51A, Tags::mpeg51D, quad | center | lowFrequency, 576'000},
}};

} // namespace

const AACSpeakerTarget& AACSpeakerTarget::forChannelCount(int sourceChannelCount) {
    return targets[std::size_t(std::clamp(sourceChannelCount, 1, int(targets.size()))) - 1];
}

} // namespace panoveer
