#include "FFmpegBridge/Common.h"

#include <algorithm>
#include <array>
#include <cstdio>

extern "C" {
#include <libavutil/channel_layout.h>
#include <libavutil/log.h>
}

namespace {

// Ambisonic orders as the container states them, -1 for none. Reading stream info decodes a little, and a decoder may
// replace an ambisonic layout by the native one of as many channels, so they are noted before.
struct ContainerOrders {
    std::array<int, 64> order;
    unsigned count;
};

ContainerOrders ordersOf(const AVFormatContext& format) {
    ContainerOrders orders{};
    orders.count = std::min(format.nb_streams, unsigned(orders.order.size()));
    for (unsigned index = 0; index < orders.count; ++index)
        orders.order[index] =
            std::max(av_channel_layout_ambisonic_order(&format.streams[index]->codecpar->ch_layout), -1);
    return orders;
}

PNVFFmpegAudioStreamInfo describe(const AVStream& stream, int bestStream, const ContainerOrders& orders) {
    const AVCodecParameters& parameters = *stream.codecpar;
    const AVChannelLayout& layout = parameters.ch_layout;
    PNVFFmpegAudioStreamInfo info{};
    info.streamIndex = stream.index;
    info.streamID = stream.id;
    info.channelCount = layout.nb_channels;
    info.sampleRate = parameters.sample_rate;
    info.ambisonicOrder = std::max(av_channel_layout_ambisonic_order(&layout), -1);
    info.isDefault = (stream.disposition & AV_DISPOSITION_DEFAULT) != 0 || stream.index == bestStream;
    info.channelMask = layout.order == AV_CHANNEL_ORDER_NATIVE ? layout.u.mask : 0;
    if (const auto index = unsigned(stream.index);
        info.ambisonicOrder < 0 && index < orders.count && orders.order[index] >= 0) {
        info.ambisonicOrder = orders.order[index];
        info.channelMask = 0;
    }
    const int listed = std::min(layout.nb_channels, int(std::size(info.channelIDs)));
    for (int channel = 0; channel < listed; ++channel)
        info.channelIDs[channel] = av_channel_layout_channel_from_index(&layout, unsigned(channel));
    std::snprintf(info.codecName, sizeof info.codecName, "%s", avcodec_get_name(parameters.codec_id));
    return info;
}

} // namespace

int32_t PNVFFmpegProbeAudioStreams(const char* path, PNVFFmpegAudioStreamInfo* streams, int32_t capacity,
                                   int32_t* count, char* errorBuffer, int32_t errorLength) {
    const ErrorText error{errorBuffer, errorLength};
    av_log_set_level(AV_LOG_ERROR);
    if (!path || !count || (!streams && capacity >= 1))
        return pnv_set_error(error, "Invalid FFmpeg audio probe arguments", AVERROR(EINVAL));
    *count = 0;

    FormatContextPtr format;
    if (const int result = pnv_open_input(path, format, videoOpeningTexts, error); result < 0)
        return result;
    const ContainerOrders orders = ordersOf(*format);
    if (const int result = pnv_read_stream_info(*format, videoOpeningTexts, error); result < 0)
        return result;

    const int bestStream = av_find_best_stream(format.get(), AVMEDIA_TYPE_AUDIO, -1, -1, nullptr, 0);
    for (unsigned index = 0; index < format->nb_streams; ++index) {
        const AVStream& stream = *format->streams[index];
        if (stream.codecpar->codec_type != AVMEDIA_TYPE_AUDIO || stream.codecpar->ch_layout.nb_channels < 1)
            continue;
        if (*count < capacity)
            streams[*count] = describe(stream, bestStream, orders);
        ++*count;
    }
    return 0;
}
