#include "FFmpegBridge/VideoReader.h"

#include <algorithm>
#include <new>
#include <utility>

extern "C" {
#include <libavutil/cpu.h>
#include <libavutil/hwcontext.h>
#include <libavutil/imgutils.h>
#include <libavutil/log.h>
}

namespace {

AVPixelFormat pnv_get_hardware_format(AVCodecContext* codec, const AVPixelFormat* offered) {
    const auto* reader = static_cast<const PNVFFmpegReader*>(codec->opaque);
    for (const auto* format = offered; *format != AV_PIX_FMT_NONE; ++format)
        if (*format == reader->hardwarePixelFormat)
            return *format;
    return avcodec_default_get_format(codec, offered);
}

// Software decoding stays when there is no such device. Only VP9 gains: what else VideoToolbox decodes has a better
// road through the platform.
void pnv_configure_videotoolbox_if_available(PNVFFmpegReader& reader, const AVCodec* decoder) {
    if (!decoder || decoder->id != AV_CODEC_ID_VP9)
        return;
    const AVCodecHWConfig* config = nullptr;
    for (int index = 0; (config = avcodec_get_hw_config(decoder, index)); ++index)
        if (config->device_type == AV_HWDEVICE_TYPE_VIDEOTOOLBOX &&
            (config->methods & AV_CODEC_HW_CONFIG_METHOD_HW_DEVICE_CTX) != 0)
            break;
    AVBufferRef* device = nullptr;
    if (!config || av_hwdevice_ctx_create(&device, AV_HWDEVICE_TYPE_VIDEOTOOLBOX, nullptr, nullptr, 0) < 0)
        return;
    BufferPtr owned(device);
    BufferPtr shared(av_buffer_ref(device));
    if (!shared)
        return;
    reader.hardwareDevice = std::move(owned);
    reader.hardwarePixelFormat = config->pix_fmt;
    reader.codec->opaque = &reader;
    reader.codec->get_format = pnv_get_hardware_format;
    reader.codec->hw_device_ctx = shared.release();
}

double readingRate(const AVStream& stream) {
    const AVRational rate = stream.avg_frame_rate.num >= 1 ? stream.avg_frame_rate : stream.r_frame_rate;
    const double value = rate.den >= 1 ? av_q2d(rate) : 0;
    return value > 0 ? value : 30;
}

// Fits the picture into the maxima with its shape kept, in whole numbers: a floating ratio could lose a pixel. The
// width of a multiview picture keeps both eyes even.
void chooseOutputSize(PNVFFmpegReader& reader, int maximumWidth, int maximumHeight) {
    const int64_t width = int64_t(reader.codec->width) * (reader.isStereoMultiview ? 2 : 1);
    const int64_t height = reader.codec->height;
    int64_t fittedWidth = width, fittedHeight = height;
    if (maximumWidth >= 1 && maximumHeight >= 1 && (width > maximumWidth || height > maximumHeight)) {
        const int64_t multiple = reader.isStereoMultiview ? 4 : 2;
        const bool widthDecides = maximumWidth * height <= maximumHeight * width;
        fittedWidth = widthDecides ? maximumWidth : width * maximumHeight / height;
        fittedHeight = widthDecides ? height * maximumWidth / width : maximumHeight;
        fittedWidth = std::max(fittedWidth / multiple * multiple, multiple);
        fittedHeight = std::max<int64_t>(fittedHeight / 2 * 2, 2);
    }
    reader.outputWidth = int(fittedWidth);
    reader.outputHeight = int(fittedHeight);
}

int openDecoder(PNVFFmpegReader& reader, const AVCodec* decoder, const AVStream& stream, bool fastDecode,
                ErrorText error) {
    reader.codec.reset(avcodec_alloc_context3(decoder));
    if (!reader.codec)
        return pnv_set_error(error, "Could not allocate codec context", AVERROR(ENOMEM));
    AVCodecContext& codec = *reader.codec;
    if (const int result = avcodec_parameters_to_context(&codec, stream.codecpar); result < 0)
        return pnv_set_av_error(error, "Could not copy codec parameters", result);
    codec.pkt_timebase = stream.time_base;
    codec.thread_count = 0;
    codec.thread_type = FF_THREAD_FRAME | FF_THREAD_SLICE;
    if (fastDecode) {
        codec.skip_loop_filter = AVDISCARD_ALL;
        if (codec.codec_id == AV_CODEC_ID_AV1) {
            codec.skip_frame = AVDISCARD_BIDIR;
            codec.thread_count = av_cpu_count();
        }
    }

    AVDictionary* options = nullptr;
    if (reader.isStereoMultiview)
        av_dict_set(&options, "view_ids", "-1", 0);
    else
        pnv_configure_videotoolbox_if_available(reader, decoder);
    const int result = avcodec_open2(&codec, decoder, &options);
    av_dict_free(&options);
    return result < 0 ? pnv_set_av_error(error, "Could not open decoder", result) : 0;
}

int allocatePictures(PNVFFmpegReader& reader, ErrorText error) {
    reader.packet.reset(av_packet_alloc());
    reader.decoded.reset(av_frame_alloc());
    reader.scratch.reset(av_frame_alloc());
    reader.spare.reset(av_frame_alloc());
    reader.held.frame.reset(av_frame_alloc());
    if (!reader.packet || !reader.decoded || !reader.scratch || !reader.spare || !reader.held.frame)
        return pnv_set_error(error, "Could not allocate decode buffers", AVERROR(ENOMEM));

    uint8_t* planes[4] = {};
    int strides[4] = {};
    // Rows of whole groups of 16 pixels, as the converter likes them best.
    const int result = av_image_alloc(planes, strides, reader.outputWidth, reader.outputHeight, AV_PIX_FMT_BGRA, 64);
    if (result < 0)
        return pnv_set_av_error(error, "Could not allocate BGRA frame", result);
    reader.image.reset(planes[0]);
    reader.imageStride = strides[0];
    return 0;
}

int seekReader(PNVFFmpegReader& reader, double seconds, ErrorText error) {
    const int64_t timestamp = pnv_truncated((seconds + reader.startOffset) / av_q2d(reader.timeBase));
    const int result = av_seek_frame(reader.format.get(), reader.streamIndex, timestamp, AVSEEK_FLAG_BACKWARD);
    if (result < 0)
        return pnv_set_av_error(error, "Could not seek video", result);
    av_packet_unref(reader.packet.get());
    reader.packetIsWaiting = false;
    avcodec_flush_buffers(reader.codec.get());
    av_frame_unref(reader.held.frame.get());
    reader.inputEnded = false;
    reader.inputEndError = 0;
    reader.startSeconds = std::max(seconds, 0.0);
    reader.frameIndex = 0;
    return 0;
}

} // namespace

int32_t PNVFFmpegOpen(const char* path, int32_t maximumWidth, int32_t maximumHeight, int32_t fastDecode,
                      PNVFFmpegReader** readerOut, char* errorBuffer, int32_t errorLength, double startSeconds,
                      double durationSeconds) {
    const ErrorText error{errorBuffer, errorLength};
    av_log_set_level(AV_LOG_ERROR);
    if (!path || !readerOut)
        return pnv_set_error(error, "Invalid FFmpeg open arguments", AVERROR(EINVAL));
    *readerOut = nullptr;

    // Whatever fails below, the reader's own destructor frees what there is by then.
    std::unique_ptr<PNVFFmpegReader> reader(new (std::nothrow) PNVFFmpegReader);
    if (!reader)
        return pnv_set_error(error, "Could not allocate FFmpeg reader", AVERROR(ENOMEM));
    const AVCodec* decoder = nullptr;
    reader->streamIndex = pnv_open_video_input(path, reader->format, decoder, error);
    if (reader->streamIndex < 0)
        return reader->streamIndex;
    const AVStream& stream = *reader->format->streams[reader->streamIndex];
    if (stream.codecpar->codec_id == AV_CODEC_ID_AV1)
        if (const auto* fast = avcodec_find_decoder_by_name("libdav1d"))
            decoder = fast;

    reader->timeBase = stream.time_base;
    reader->startOffset = pnv_start_offset(*reader->format);
    reader->isStereoMultiview = pnv_is_stereo_multiview(&stream);
    reader->hasAlpha = pnv_has_alpha(stream.codecpar->format);
    reader->frameRate = readingRate(stream);
    if (const int result = openDecoder(*reader, decoder, stream, fastDecode != 0, error); result < 0)
        return result;
    chooseOutputSize(*reader, maximumWidth, maximumHeight);
    if (const int result = allocatePictures(*reader, error); result < 0)
        return result;

    reader->startSeconds = startSeconds > 0 ? startSeconds : 0;
    reader->endSeconds = durationSeconds > 0 ? reader->startSeconds + durationSeconds : -1;
    if (startSeconds > 0)
        if (const int result = seekReader(*reader, startSeconds, error); result < 0)
            return result;
    *readerOut = reader.release();
    return 0;
}

int32_t PNVFFmpegSeek(PNVFFmpegReader* reader, char* errorBuffer, int32_t errorLength, double seconds) {
    const ErrorText error{errorBuffer, errorLength};
    if (!reader)
        return pnv_set_error(error, "Invalid FFmpeg seek reader", AVERROR(EINVAL));
    return seekReader(*reader, seconds, error);
}

int32_t PNVFFmpegOutputWidth(const PNVFFmpegReader* reader) { return reader ? reader->outputWidth : 0; }

int32_t PNVFFmpegOutputHeight(const PNVFFmpegReader* reader) { return reader ? reader->outputHeight : 0; }

int32_t PNVFFmpegHasAlphaChannel(const PNVFFmpegReader* reader) { return reader && reader->hasAlpha; }

int32_t PNVFFmpegCanUseVideoToolboxDecode(const PNVFFmpegReader* reader) {
    return reader && reader->hardwarePixelFormat != AV_PIX_FMT_NONE;
}

int32_t PNVFFmpegUsesVideoToolboxDecode(const PNVFFmpegReader* reader) { return reader && reader->usesVideoToolbox; }

void PNVFFmpegClose(PNVFFmpegReader* reader) { delete reader; }
