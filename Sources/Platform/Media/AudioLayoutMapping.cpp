#include "Platform/Media/AudioLayoutMapping.h"

#include <algorithm>
#include <new>
#include <numeric>
#include <utility>

extern "C" {
#include <libavutil/channel_layout.h>
}

namespace panoveer {

namespace {

namespace Labels = AudioChannelLabels;

// Both number the classic places alike, but for the offset of one.
constexpr AudioChannelLabel lastClassicLabel = Labels::topBackRight;

constexpr std::pair<AudioChannelLabel, AVChannel> furtherChannels[] = {
    {Labels::leftTotal, AV_CHAN_STEREO_LEFT}, {Labels::rightTotal, AV_CHAN_STEREO_RIGHT},
    {Labels::leftWide, AV_CHAN_WIDE_LEFT},    {Labels::rightWide, AV_CHAN_WIDE_RIGHT},
    {Labels::lfe2, AV_CHAN_LOW_FREQUENCY_2},  {Labels::mono, AV_CHAN_FRONT_CENTER},
};

AVChannel channelOfLabel(AudioChannelLabel label, bool hasRearSurround) {
    // Beside speakers in the rear, the surround speakers are those at the sides.
    if (hasRearSurround && (label == Labels::leftSurround || label == Labels::rightSurround))
        return label == Labels::leftSurround ? AV_CHAN_SIDE_LEFT : AV_CHAN_SIDE_RIGHT;
    if (label == Labels::rearSurroundLeft || label == Labels::rearSurroundRight)
        return label == Labels::rearSurroundLeft ? AV_CHAN_BACK_LEFT : AV_CHAN_BACK_RIGHT;
    if (label >= Labels::left && label <= lastClassicLabel)
        return AVChannel(label - Labels::left);
    const auto* found = std::ranges::find(furtherChannels, label, [](const auto& row) { return row.first; });
    return found == std::end(furtherChannels) ? AV_CHAN_NONE : found->second;
}

AudioChannelLabel labelOfChannel(AVChannel channel) {
    if (channel >= AV_CHAN_FRONT_LEFT && channel < AVChannel(lastClassicLabel))
        return AudioChannelLabel(channel) + Labels::left;
    const auto* found = std::ranges::find(furtherChannels, channel, [](const auto& row) { return row.second; });
    return found == std::end(furtherChannels) ? Labels::unknown : found->first;
}

} // namespace

LibAVChannelLayout::LibAVChannelLayout() : value_(std::make_unique<AVChannelLayout>()) {}

LibAVChannelLayout::LibAVChannelLayout(const AVChannelLayout& other) : LibAVChannelLayout() {
    if (av_channel_layout_copy(value_.get(), &other) < 0)
        throw std::bad_alloc();
}

LibAVChannelLayout::LibAVChannelLayout(const LibAVChannelLayout& other) : LibAVChannelLayout(other.get()) {}

LibAVChannelLayout& LibAVChannelLayout::operator=(const LibAVChannelLayout& other) {
    LibAVChannelLayout copy(other);
    std::swap(value_, copy.value_);
    return *this;
}

LibAVChannelLayout::~LibAVChannelLayout() { av_channel_layout_uninit(value_.get()); }

LibAVChannelLayout LibAVChannelLayout::unspecified(int channelCount) {
    LibAVChannelLayout layout;
    layout.value_->order = AV_CHANNEL_ORDER_UNSPEC;
    layout.value_->nb_channels = channelCount;
    return layout;
}

LibAVChannelLayout LibAVChannelLayout::ofMask(std::uint64_t mask) {
    LibAVChannelLayout layout;
    av_channel_layout_from_mask(layout.value_.get(), mask);
    return layout;
}

LibAVChannelLayout LibAVChannelLayout::ordinary(int channelCount) {
    LibAVChannelLayout layout;
    av_channel_layout_default(layout.value_.get(), channelCount);
    return layout;
}

int LibAVChannelLayout::channelCount() const { return value_->nb_channels; }

bool LibAVChannelLayout::isUnspecified() const { return value_->order == AV_CHANNEL_ORDER_UNSPEC; }

bool LibAVChannelLayout::operator==(const LibAVChannelLayout& other) const {
    return value_->order == other.value_->order && av_channel_layout_compare(value_.get(), other.value_.get()) == 0;
}

std::optional<SpeakerOrder> speakerOrder(const std::vector<AudioChannelLabel>& labels) {
    const bool hasRearSurround = std::ranges::find(labels, Labels::rearSurroundLeft) != labels.end();
    SpeakerOrder order;
    std::vector<AVChannel> channels;
    for (auto label : labels) {
        const auto channel = channelOfLabel(label, hasRearSurround);
        if (channel == AV_CHAN_NONE || (order.mask >> channel & 1) != 0)
            return std::nullopt;
        channels.push_back(channel);
        order.mask |= std::uint64_t(1) << channel;
    }
    if (channels.empty())
        return std::nullopt;
    order.positions.resize(channels.size());
    std::iota(order.positions.begin(), order.positions.end(), 0);
    std::ranges::sort(order.positions, {}, [&](int position) { return channels[std::size_t(position)]; });
    return order;
}

std::optional<AudioChannelLayout> audioChannelLayout(const AVChannelLayout& layout) {
    const auto count = layout.nb_channels;
    if (layout.order == AV_CHANNEL_ORDER_AMBISONIC)
        return AudioChannelLayout{AudioChannelLayoutTags::hoaACNSN3D | std::uint32_t(count), 0, {}};
    if (count == 1)
        return AudioChannelLayout{AudioChannelLayoutTags::mono, 0, {}};
    if (layout.order == AV_CHANNEL_ORDER_UNSPEC)
        return count == 2 ? std::optional(AudioChannelLayout{AudioChannelLayoutTags::stereo, 0, {}}) : std::nullopt;
    std::vector<AudioChannelLabel> labels;
    for (int i = 0; i < count; ++i)
        labels.push_back(labelOfChannel(av_channel_layout_channel_from_index(&layout, unsigned(i))));
    return AudioChannelLayout::ofLabels(std::move(labels));
}

} // namespace panoveer
