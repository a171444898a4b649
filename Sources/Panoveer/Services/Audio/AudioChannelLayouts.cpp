#include "Panoveer/Services/Audio/AudioChannelLayouts.h"

#include <algorithm>

namespace panoveer::AudioChannelLayouts {

AudioChannelLayout ofTag(AudioChannelLayoutTag tag) { return {.tag = tag}; }

AudioChannelLayout ofTag(AudioChannelLayoutTag tag, int channelCount) {
    return {.tag = tag | AudioChannelLayoutTag(channelCount)};
}

AudioChannelLayout ofLabels(std::span<const AudioChannelLabel> labels) {
    for (const auto tag : {AudioChannelLayoutTags::mono, AudioChannelLayoutTags::stereo})
        if (std::ranges::equal(AudioChannelLayout{.tag = tag}.expandedLabels(), labels))
            return ofTag(tag);
    return AudioChannelLayout::ofLabels({labels.begin(), labels.end()});
}

std::vector<AudioChannelLabel> labels(const AudioChannelLayout& layout) { return layout.expandedLabels(); }

std::uint64_t ffmpegMask(std::span<const AudioChannelLabel> labels) {
    std::uint64_t result = 0;
    if (const auto channels = ffmpegChannels(labels))
        for (const auto channel : *channels)
            result |= mask(channel);
    return result;
}

} // namespace panoveer::AudioChannelLayouts
