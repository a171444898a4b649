#include "Platform/Media/EncoderSupport.h"

#include "Platform/Media/EncoderKernels.h"

#include <algorithm>
#include <new>
#include <string>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/mastering_display_metadata.h>
}

namespace panoveer {

namespace {

std::uint32_t readBigEndian(const std::vector<std::uint8_t>& bytes, std::size_t offset, std::size_t count) {
    std::uint32_t value = 0;
    for (std::size_t i = 0; i < count; ++i)
        value = value << 8 | bytes[offset + i];
    return value;
}

// The payload of an mdcv box: x and y of green, blue, red and the white point in units of 0.00002, then the largest and
// the smallest luminance in units of 0.0001 cd/m² (ISO/IEC 14496-12, 12.1.7).
std::optional<AVMasteringDisplayMetadata> masteringDisplay(const ColorAttachments& color) {
    const auto& bytes = color.masteringDisplayColorVolume;
    if (bytes.size() != 24)
        return std::nullopt;
    AVMasteringDisplayMetadata metadata{};
    constexpr int greenBlueRed[] = {1, 2, 0};
    for (std::size_t i = 0; i < 3; ++i)
        for (std::size_t axis = 0; axis < 2; ++axis)
            metadata.display_primaries[greenBlueRed[i]][axis] = {int(readBigEndian(bytes, 4 * i + 2 * axis, 2)), 50000};
    for (std::size_t axis = 0; axis < 2; ++axis)
        metadata.white_point[axis] = {int(readBigEndian(bytes, 12 + 2 * axis, 2)), 50000};
    metadata.max_luminance = {int(readBigEndian(bytes, 16, 4)), 10000};
    metadata.min_luminance = {int(readBigEndian(bytes, 20, 4)), 10000};
    metadata.has_primaries = metadata.has_luminance = 1;
    return metadata;
}

std::optional<AVContentLightMetadata> contentLight(const ColorAttachments& color) {
    const auto& bytes = color.contentLightLevelInfo;
    if (bytes.size() != 4)
        return std::nullopt;
    return AVContentLightMetadata{readBigEndian(bytes, 0, 2), readBigEndian(bytes, 2, 2)};
}

// From here the encoders make their SEI messages.
template<class Metadata>
void addToStream(AVCodecContext& context, AVFrameSideDataType type, const std::optional<Metadata>& metadata) {
    if (!metadata)
        return;
    auto* entry = av_frame_side_data_new(&context.decoded_side_data, &context.nb_decoded_side_data, type,
                                         sizeof *metadata, AV_FRAME_SIDE_DATA_FLAG_UNIQUE);
    if (!entry)
        throw std::bad_alloc();
    std::copy_n(reinterpret_cast<const std::uint8_t*>(&*metadata), sizeof *metadata, entry->data);
}

// From here the muxer makes its boxes.
template<class Metadata>
void addToContainer(AVCodecParameters& parameters, AVPacketSideDataType type, const std::optional<Metadata>& metadata) {
    if (!metadata)
        return;
    auto* entry =
        av_packet_side_data_new(&parameters.coded_side_data, &parameters.nb_coded_side_data, type, sizeof *metadata, 0);
    if (!entry)
        throw std::bad_alloc();
    std::copy_n(reinterpret_cast<const std::uint8_t*>(&*metadata), sizeof *metadata, entry->data);
}

} // namespace

CodecContextPtr makeEncoderContext(std::string_view encoderName, const EncoderConfiguration& configuration) {
    limitLibAVLog();
    const auto& settings = configuration.settings;
    const auto* codec = avcodec_find_encoder_by_name(std::string(encoderName).c_str());
    if (!codec)
        throw Error("This build of libavcodec has no encoder " + std::string(encoderName),
                    std::string(mediaErrorDomain), mediaErrorCode::encoderNotFound);
    CodecContextPtr context(avcodec_alloc_context3(codec));
    if (!context)
        throw std::bad_alloc();
    context->width = settings.width;
    context->height = settings.height;
    context->time_base = {1, configuration.timescale};
    context->framerate = {configuration.frameDuration.timescale, int(configuration.frameDuration.value)};
    context->color_primaries = AVColorPrimaries(settings.color.primaries);
    context->color_trc = AVColorTransferCharacteristic(settings.color.transfer);
    context->colorspace = AVColorSpace(settings.color.matrix);
    context->color_range = AVCOL_RANGE_MPEG;
    // Parameter sets belong into the sample entry, and into no sample; the length of pictures into their packets.
    context->flags |= AV_CODEC_FLAG_GLOBAL_HEADER | AV_CODEC_FLAG_FRAME_DURATION;
    if (configuration.isProbe)
        context->log_level_offset = AV_LOG_TRACE; // a refusal is an answer
    addToStream(*context, AV_FRAME_DATA_MASTERING_DISPLAY_METADATA, masteringDisplay(settings.color));
    addToStream(*context, AV_FRAME_DATA_CONTENT_LIGHT_LEVEL, contentLight(settings.color));
    return context;
}

CodecParametersPtr containerParameters(const AVCodecContext& context, const EncoderConfiguration& configuration) {
    CodecParametersPtr parameters(avcodec_parameters_alloc());
    if (!parameters || avcodec_parameters_from_context(parameters.get(), &context) < 0)
        throw std::bad_alloc();
    const auto& settings = configuration.settings;
    parameters->codec_tag = __builtin_bswap32(settings.codec.value);
    tellContainer(*parameters, settings);
    return parameters;
}

void tellContainer(AVCodecParameters& parameters, const VideoSettings& settings) {
    addToContainer(parameters, AV_PKT_DATA_MASTERING_DISPLAY_METADATA, masteringDisplay(settings.color));
    addToContainer(parameters, AV_PKT_DATA_CONTENT_LIGHT_LEVEL, contentLight(settings.color));
}

void encodeFrame(AVCodecContext& context, const AVFrame* frame, const VideoEncoder::PacketSink& sink) {
    const auto check = [](int code) {
        if (code < 0)
            throw Error(libavError("The encoder failed", code).what(), std::string(mediaErrorDomain),
                        code == AVERROR(ENOMEM) ? mediaErrorCode::outOfMemory : mediaErrorCode::unknown);
    };
    check(avcodec_send_frame(&context, frame));
    while (true) {
        auto packet = makePacket();
        const int code = avcodec_receive_packet(&context, packet.get());
        if (code == AVERROR(EAGAIN) || code == AVERROR_EOF)
            return;
        check(code);
        sink(std::move(packet));
    }
}

FramePtr makeEncoderFrame(const AVCodecContext& context) {
    auto frame = makeFrame();
    frame->format = context.pix_fmt;
    frame->width = context.width;
    frame->height = context.height;
    frame->color_primaries = context.color_primaries;
    frame->color_trc = context.color_trc;
    frame->colorspace = context.colorspace;
    frame->color_range = context.color_range;
    if (av_frame_get_buffer(frame.get(), 64) < 0)
        throw std::bad_alloc();
    return frame;
}

PlanarPicture planarPicture(const AVFrame& frame) {
    PlanarPicture picture;
    for (std::size_t i = 0; i < picture.data.size(); ++i) {
        picture.data[i] = reinterpret_cast<std::byte*>(frame.data[i]);
        picture.rowBytes[i] = frame.linesize[i];
    }
    return picture;
}

} // namespace panoveer
