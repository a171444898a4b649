#include "FFmpegBridge/Common.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>

extern "C" {
#include <libavutil/display.h>
#include <libavutil/pixdesc.h>
#include <libavutil/spherical.h>
#include <libavutil/stereo3d.h>
}

namespace {

// The header repeats FFmpeg's numbers, so that those who include it need no FFmpeg headers.
constexpr bool same(int ours, int theirs) { return ours == theirs; }
static_assert(same(PNVSphericalEquirectangular, AV_SPHERICAL_EQUIRECTANGULAR));
static_assert(same(PNVSphericalCubemap, AV_SPHERICAL_CUBEMAP));
static_assert(same(PNVSphericalEquirectangularTile, AV_SPHERICAL_EQUIRECTANGULAR_TILE));
static_assert(same(PNVSphericalHalfEquirectangular, AV_SPHERICAL_HALF_EQUIRECTANGULAR));
static_assert(same(PNVSphericalRectilinear, AV_SPHERICAL_RECTILINEAR));
static_assert(same(PNVSphericalFisheye, AV_SPHERICAL_FISHEYE));
#if LIBAVUTIL_VERSION_MAJOR >= 60
static_assert(same(PNVSphericalParametricImmersive, AV_SPHERICAL_PARAMETRIC_IMMERSIVE));
#endif
static_assert(same(PNVStereo2D, AV_STEREO3D_2D));
static_assert(same(PNVStereoSideBySide, AV_STEREO3D_SIDEBYSIDE));
static_assert(same(PNVStereoTopBottom, AV_STEREO3D_TOPBOTTOM));

// A display matrix, a spherical mapping and a stereo description all take at least this much.
constexpr size_t minimumSideDataSize = 36;

double durationOf(const AVFormatContext& format, const AVStream& stream) {
    double seconds = -1;
    if (format.duration >= 1)
        seconds = double(format.duration) / AV_TIME_BASE;
    else if (stream.duration != AV_NOPTS_VALUE)
        seconds = double(stream.duration) * av_q2d(stream.time_base);

    // Matroska's duration counts from time 0 and not from where the movie starts.
    if (format.duration >= 1 && format.start_time >= 1 &&
        format.duration_estimation_method != AVFMT_DURATION_FROM_PTS && std::strstr(format.iformat->name, "matroska"))
        seconds -= double(format.start_time) / AV_TIME_BASE;
    return std::max(seconds, 0.0);
}

double frameRateOf(const AVStream& stream) {
    const AVRational rate = stream.avg_frame_rate.num >= 1 ? stream.avg_frame_rate : stream.r_frame_rate;
    return rate.den >= 1 ? av_q2d(rate) : 0;
}

template<size_t size>
void copyName(char (&destination)[size], const char* name) {
    std::snprintf(destination, size, "%s", name ? name : "");
}

const uint8_t* sideData(const AVCodecParameters& parameters, AVPacketSideDataType type) {
    const auto* entry = av_packet_side_data_get(parameters.coded_side_data, parameters.nb_coded_side_data, type);
    return entry && entry->size >= minimumSideDataSize ? entry->data : nullptr;
}

void readSideData(const AVCodecParameters& parameters, PNVFFmpegVideoInfo& info) {
    if (const auto* matrix = reinterpret_cast<const int32_t*>(sideData(parameters, AV_PKT_DATA_DISPLAYMATRIX))) {
        const double counterclockwise = av_display_rotation_get(matrix);
        if (!std::isnan(counterclockwise))
            info.rotationDegrees = int32_t(std::lround(-counterclockwise));
    }
    if (const auto* mapping =
            reinterpret_cast<const AVSphericalMapping*>(sideData(parameters, AV_PKT_DATA_SPHERICAL))) {
        info.sphericalProjection = mapping->projection;
        info.boundLeft = mapping->bound_left;
        info.boundTop = mapping->bound_top;
        info.boundRight = mapping->bound_right;
        info.boundBottom = mapping->bound_bottom;
    }
    if (const auto* stereo = reinterpret_cast<const AVStereo3D*>(sideData(parameters, AV_PKT_DATA_STEREO3D))) {
        info.stereoType = stereo->type;
        info.stereoInverted = stereo->flags & AV_STEREO3D_FLAG_INVERT;
        info.stereoBaseline = stereo->baseline;
        if (const AVRational angle = stereo->horizontal_field_of_view; angle.num >= 1 && angle.den >= 1)
            info.stereoHorizontalFieldOfView = av_q2d(angle);
    }
}

} // namespace

int32_t PNVFFmpegProbe(const char* path, PNVFFmpegVideoInfo* info, char* errorBuffer, int32_t errorLength) {
    const ErrorText error{errorBuffer, errorLength};
    av_log_set_level(AV_LOG_ERROR);
    if (!path || !info)
        return pnv_set_error(error, "Invalid FFmpeg probe arguments", AVERROR(EINVAL));
    *info = {};
    info->sphericalProjection = -1;
    info->stereoType = -1;

    FormatContextPtr format;
    const AVCodec* decoder = nullptr;
    const int index = pnv_open_video_input(path, format, decoder, error);
    if (index < 0)
        return index;
    const AVStream& stream = *format->streams[index];
    const AVCodecParameters& parameters = *stream.codecpar;

    info->videoStreamIndex = index;
    info->audioStreamIndex = av_find_best_stream(format.get(), AVMEDIA_TYPE_AUDIO, -1, -1, nullptr, 0);
    info->width = parameters.width;
    info->height = parameters.height;
    info->duration = durationOf(*format, stream);
    info->frameRate = frameRateOf(stream);
    info->hasAlpha = pnv_has_alpha(parameters.format);
    info->colorPrimaries = parameters.color_primaries;
    info->colorTransfer = parameters.color_trc;
    info->colorSpace = parameters.color_space;
    copyName(info->codecName, decoder ? decoder->name : avcodec_get_name(parameters.codec_id));
    copyName(info->codecLongName, decoder && decoder->long_name ? decoder->long_name : info->codecName);
    copyName(info->pixelFormatName, av_get_pix_fmt_name(AVPixelFormat(parameters.format)));
    readSideData(parameters, *info);
    if (pnv_is_stereo_multiview(&stream)) {
        info->isStereoMultiview = 1;
        info->width *= 2;
    }
    return 0;
}

int32_t PNVFFmpegPreviousKeyframeTime(const char* path, double* seconds, char* errorBuffer, int32_t errorLength,
                                      double targetSeconds) {
    const ErrorText error{errorBuffer, errorLength};
    av_log_set_level(AV_LOG_ERROR);
    if (!path || !seconds || !(targetSeconds >= 0))
        return pnv_set_error(error, "Invalid FFmpeg keyframe lookup arguments", AVERROR(EINVAL));
    *seconds = 0;

    FormatContextPtr format;
    const AVCodec* decoder = nullptr;
    const int index = pnv_open_video_input(path, format, decoder, error);
    if (index < 0)
        return index;
    AVStream& stream = *format->streams[index];

    const double startOffset = pnv_start_offset(*format);
    const int64_t microseconds = pnv_truncated(std::round((targetSeconds + startOffset) * AV_TIME_BASE));
    const auto* entry = avformat_index_get_entry_from_timestamp(
        &stream, av_rescale_q(microseconds, AV_TIME_BASE_Q, stream.time_base), AVSEEK_FLAG_BACKWARD);
    if (!entry || (entry->flags & AVINDEX_KEYFRAME) == 0)
        return 0;
    *seconds =
        entry->timestamp == AV_NOPTS_VALUE ? -1 : double(entry->timestamp) * av_q2d(stream.time_base) - startOffset;
    return *seconds >= 0 ? 1 : 0;
}
