#include "FFmpegBridge/Common.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstdio>

extern "C" {
#include <libavutil/log.h>
#include <libavutil/pixdesc.h>
#include <libavutil/stereo3d.h>
}

int pnv_set_error(ErrorText error, const char* text, int code) {
    if (error)
        std::snprintf(error.buffer, size_t(error.length), "%s", text);
    return code;
}

int pnv_set_av_error(ErrorText error, const char* text, int code) {
    char reason[64] = {};
    av_strerror(code, reason, sizeof reason);
    if (error)
        std::snprintf(error.buffer, size_t(error.length), "%s: %s", text, reason);
    return code;
}

namespace {

// Whoever opens one of these may wait for ever, and it can be read only once.
bool isPipeOrDevice(const char* path) {
    struct stat status{};
    return stat(path, &status) == 0 && !S_ISREG(status.st_mode) && !S_ISDIR(status.st_mode);
}

} // namespace

int pnv_open_input(const char* path, FormatContextPtr& format, OpeningTexts texts, ErrorText error,
                   std::atomic<bool>* interrupt) {
    if (isPipeOrDevice(path))
        return pnv_set_av_error(error, texts.open, AVERROR(EINVAL));
    AVFormatContext* opened = avformat_alloc_context();
    if (!opened)
        return pnv_set_av_error(error, texts.open, AVERROR(ENOMEM));
    if (interrupt)
        opened->interrupt_callback = {[](void* flag) { return int(static_cast<std::atomic<bool>*>(flag)->load()); },
                                      interrupt};
    AVDictionary* options = nullptr;
    // Playlists must not reach out to the network.
    av_dict_set(&options, "protocol_whitelist", "file", 0);
    const int result = avformat_open_input(&opened, path, nullptr, &options);
    av_dict_free(&options);
    if (result < 0)
        return pnv_set_av_error(error, texts.open, result);
    format.reset(opened);
    return 0;
}

int pnv_read_stream_info(AVFormatContext& format, OpeningTexts texts, ErrorText error) {
    const int result = avformat_find_stream_info(&format, nullptr);
    return result < 0 ? pnv_set_av_error(error, texts.streamInfo, result) : 0;
}

int pnv_open_video_input(const char* path, FormatContextPtr& format, const AVCodec*& decoder, ErrorText error) {
    if (const int result = pnv_open_input(path, format, videoOpeningTexts, error); result < 0)
        return result;
    if (const int result = pnv_read_stream_info(*format, videoOpeningTexts, error); result < 0)
        return result;
    const int index = av_find_best_stream(format.get(), AVMEDIA_TYPE_VIDEO, -1, -1, &decoder, 0);
    return index < 0 ? pnv_set_av_error(error, "Could not find video stream", index) : index;
}

double pnv_start_offset(const AVFormatContext& format) {
    return format.start_time >= 1 ? double(format.start_time) / AV_TIME_BASE : 0;
}

bool pnv_is_stereo_multiview(const AVStream* stream) {
    if (!stream || stream->codecpar->codec_id != AV_CODEC_ID_HEVC ||
        (stream->disposition & AV_DISPOSITION_MULTILAYER) == 0)
        return false;
    const auto* data = av_packet_side_data_get(stream->codecpar->coded_side_data, stream->codecpar->nb_coded_side_data,
                                               AV_PKT_DATA_STEREO3D);
    if (!data || data->size < sizeof(AVStereo3D))
        return false;
    // Where both eyes share each picture, the other layer is none of them: it holds alpha.
    const auto type = reinterpret_cast<const AVStereo3D*>(data->data)->type;
    return type != AV_STEREO3D_SIDEBYSIDE && type != AV_STEREO3D_TOPBOTTOM;
}

bool pnv_has_alpha(int pixelFormat) {
    const auto* description = av_pix_fmt_desc_get(AVPixelFormat(pixelFormat));
    return description && (description->flags & AV_PIX_FMT_FLAG_ALPHA) != 0;
}
