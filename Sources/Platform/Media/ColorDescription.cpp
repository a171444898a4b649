#include "Platform/Media/ColorDescription.h"

#include <algorithm>
#include <cmath>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/mastering_display_metadata.h>
}

namespace panoveer {

namespace {

void appendBigEndian(std::vector<std::uint8_t>& bytes, std::uint32_t value, int count) {
    for (int shift = 8 * (count - 1); shift >= 0; shift -= 8)
        bytes.push_back(std::uint8_t(value >> shift));
}

std::uint32_t scaled(AVRational value, double scale, double limit) {
    return std::uint32_t(std::clamp(std::round(av_q2d(value) * scale), 0.0, limit));
}

// A code point of 0 for primaries or transfer is reserved and says as little as 2.
int codePoint(int value) { return value == 0 ? 2 : value; }

} // namespace

std::vector<std::uint8_t> masteringDisplayPayload(const AVMasteringDisplayMetadata& metadata) {
    std::vector<std::uint8_t> bytes;
    if (!metadata.has_primaries || !metadata.has_luminance)
        return bytes;
    const auto appendChromaticity = [&](const AVRational(&point)[2]) {
        for (const auto& coordinate : point)
            appendBigEndian(bytes, scaled(coordinate, 50000, 65535), 2);
    };
    constexpr int greenBlueRed[] = {1, 2, 0};
    for (int component : greenBlueRed)
        appendChromaticity(metadata.display_primaries[component]);
    appendChromaticity(metadata.white_point);
    appendBigEndian(bytes, scaled(metadata.max_luminance, 10000, UINT32_MAX), 4);
    appendBigEndian(bytes, scaled(metadata.min_luminance, 10000, UINT32_MAX), 4);
    return bytes;
}

std::vector<std::uint8_t> contentLightPayload(const AVContentLightMetadata& metadata) {
    std::vector<std::uint8_t> bytes;
    appendBigEndian(bytes, std::min(metadata.MaxCLL, 65535U), 2);
    appendBigEndian(bytes, std::min(metadata.MaxFALL, 65535U), 2);
    return bytes;
}

ColorAttachments colorAttachments(const AVCodecParameters& parameters) {
    ColorAttachments color{
        codePoint(parameters.color_primaries), codePoint(parameters.color_trc), parameters.color_space, {}, {}};
    const auto find = [&](AVPacketSideDataType type) {
        return av_packet_side_data_get(parameters.coded_side_data, parameters.nb_coded_side_data, type);
    };
    if (const auto* entry = find(AV_PKT_DATA_MASTERING_DISPLAY_METADATA))
        color.masteringDisplayColorVolume =
            masteringDisplayPayload(*reinterpret_cast<const AVMasteringDisplayMetadata*>(entry->data));
    if (const auto* entry = find(AV_PKT_DATA_CONTENT_LIGHT_LEVEL))
        color.contentLightLevelInfo =
            contentLightPayload(*reinterpret_cast<const AVContentLightMetadata*>(entry->data));
    return color;
}

ColorAttachments colorAttachments(const AVFrame& frame) {
    ColorAttachments color{codePoint(frame.color_primaries), codePoint(frame.color_trc), frame.colorspace, {}, {}};
    if (const auto* entry = av_frame_get_side_data(&frame, AV_FRAME_DATA_MASTERING_DISPLAY_METADATA))
        color.masteringDisplayColorVolume =
            masteringDisplayPayload(*reinterpret_cast<const AVMasteringDisplayMetadata*>(entry->data));
    if (const auto* entry = av_frame_get_side_data(&frame, AV_FRAME_DATA_CONTENT_LIGHT_LEVEL))
        color.contentLightLevelInfo =
            contentLightPayload(*reinterpret_cast<const AVContentLightMetadata*>(entry->data));
    return color;
}

ColorAttachments completed(ColorAttachments preferred, const ColorAttachments& fallback) {
    const auto complete = [](int& value, int other) { value = value == 2 ? other : value; };
    complete(preferred.primaries, fallback.primaries);
    complete(preferred.transfer, fallback.transfer);
    complete(preferred.matrix, fallback.matrix);
    if (preferred.masteringDisplayColorVolume.empty())
        preferred.masteringDisplayColorVolume = fallback.masteringDisplayColorVolume;
    if (preferred.contentLightLevelInfo.empty())
        preferred.contentLightLevelInfo = fallback.contentLightLevelInfo;
    return preferred;
}

} // namespace panoveer
