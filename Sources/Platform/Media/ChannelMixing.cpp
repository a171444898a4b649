#include "Platform/Media/ChannelMixing.h"

#include <climits>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <numbers>
#include <optional>
#include <vector>

extern "C" {
#include <libavutil/channel_layout.h>
#include <libswresample/swresample.h>
}

namespace panoveer {

namespace {

// Gains by output and input channel, row by row.
using Mix = std::vector<double>;

// The mask of loudspeakers that are each known and there once.
std::optional<std::uint64_t> maskOf(const AVChannelLayout& layout) {
    constexpr int channelsOfMask = 64;
    std::uint64_t mask = 0;
    for (int i = 0; i < layout.nb_channels; ++i) {
        const int channel = av_channel_layout_channel_from_index(&layout, unsigned(i));
        if (channel < 0 || channel >= channelsOfMask || (mask >> channel & 1) != 0)
            return std::nullopt;
        mask |= std::uint64_t(1) << channel;
    }
    return mask;
}

// libswresample's own mix, with its own gains for centre and surrounds and not normalised, as it is for samples in
// floating point; its columns in the order of `from`.
std::optional<Mix> usualMix(const AVChannelLayout& from, const AVChannelLayout& to) {
    constexpr double level = std::numbers::sqrt2 / 2;
    const auto mask = maskOf(from);
    AVChannelLayout usual{};
    if (!mask || av_channel_layout_from_mask(&usual, *mask) < 0)
        return std::nullopt;
    const auto inputs = std::size_t(from.nb_channels);
    Mix sorted(inputs * std::size_t(to.nb_channels));
    if (swr_build_matrix2(&usual, &to, level, level, 0, INT_MAX, 1, sorted.data(), std::ptrdiff_t(inputs),
                          AV_MATRIX_ENCODING_NONE, nullptr) < 0)
        return std::nullopt;
    Mix mix(sorted.size());
    for (std::size_t i = 0; i < inputs; ++i) {
        const auto channel = av_channel_layout_channel_from_index(&from, unsigned(i));
        const auto column = std::size_t(av_channel_layout_index_from_channel(&usual, channel));
        for (std::size_t row = 0; row < std::size_t(to.nb_channels); ++row)
            mix[row * inputs + i] = sorted[row * inputs + column];
    }
    return mix;
}

Mix mixByPlace(const AVChannelLayout& from, const AVChannelLayout& to) {
    const auto inputs = std::size_t(from.nb_channels);
    Mix mix(inputs * std::size_t(to.nb_channels));
    for (std::size_t i = 0; i < inputs; ++i) {
        const auto channel = av_channel_layout_channel_from_index(&from, unsigned(i));
        const int place = av_channel_layout_index_from_channel(&to, channel);
        const auto row = place >= 0 ? std::size_t(place) : i;
        if (to.nb_channels == 1)
            mix[i] = 1.0 / double(inputs);
        else if (row < std::size_t(to.nb_channels))
            mix[row * inputs + i] = 1;
    }
    return mix;
}

} // namespace

int openResampler(SwrContext& resampler, const AVChannelLayout& from, const AVChannelLayout& to) {
    if (const int code = swr_init(&resampler); code >= 0)
        return code;
    const auto usual = usualMix(from, to);
    const auto mix = usual ? *usual : mixByPlace(from, to);
    const int code = swr_set_matrix(&resampler, mix.data(), from.nb_channels);
    return code < 0 ? code : swr_init(&resampler);
}

} // namespace panoveer
