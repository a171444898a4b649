#include "FFmpegBridge/ViewScaling.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <utility>

extern "C" {
#include <libavutil/imgutils.h>
#include <libavutil/opt.h>
#include <libavutil/pixdesc.h>
}

namespace {

// The matrix in libswscale's numbering. A stream that names none counts as BT.709, as in all of its metadata.
int matrixOf(const AVFrame& frame) {
    switch (frame.colorspace) {
    case AVCOL_SPC_BT470BG:
    case AVCOL_SPC_SMPTE170M: return SWS_CS_ITU601;
    case AVCOL_SPC_BT2020_NCL:
    case AVCOL_SPC_BT2020_CL: return SWS_CS_BT2020;
    case AVCOL_SPC_FCC: return SWS_CS_FCC;
    case AVCOL_SPC_SMPTE240M: return SWS_CS_SMPTE240M;
    default: return SWS_CS_ITU709;
    }
}

bool isFullRange(const AVFrame& frame) {
    const auto* description = av_pix_fmt_desc_get(AVPixelFormat(frame.format));
    if (!description || (description->flags & (AV_PIX_FMT_FLAG_RGB | AV_PIX_FMT_FLAG_PAL)) != 0)
        return false; // the question is one of Y'CbCr
    return frame.color_range == AVCOL_RANGE_JPEG || std::strncmp(description->name, "yuvj", 4) == 0;
}

ScalerPtr makeScaler(const PNVScalerKey& key) {
    ScalerPtr scaler(sws_alloc_context());
    if (!scaler)
        return nullptr;
    const bool isSameSize = key.sourceWidth == key.width && key.sourceHeight == key.height;
    const std::pair<const char*, int64_t> options[] = {
        {"srcw", key.sourceWidth},
        {"srch", key.sourceHeight},
        {"src_format", key.sourceFormat},
        {"src_range", key.isFullRange},
        {"dstw", key.width},
        {"dsth", key.height},
        {"dst_format", key.format},
        {"sws_flags", isSameSize ? SWS_BICUBIC : SWS_BILINEAR},
    };
    for (const auto& [name, value] : options)
        if (av_opt_set_int(scaler.get(), name, value, 0) < 0)
            return nullptr;
    if (sws_init_context(scaler.get(), nullptr, nullptr) < 0)
        return nullptr;
    const int* coefficients = sws_getCoefficients(key.matrix);
    // Not every conversion has a matrix to set, and those that have none say so with a failure.
    sws_setColorspaceDetails(scaler.get(), coefficients, key.isFullRange, coefficients, 0, 0, 1 << 16, 1 << 16);
    return scaler;
}

// libswscale's vector code works on groups of 16 pixels. It writes past the end of a row up to the next full group, and
// leaves pixels out where the row's stride has no room for one.
bool hasRoomForWholeGroups(const PNVViewPlace& place) {
    const int rowBytes = FFALIGN(place.width, 16) * place.bytesPerPixel();
    return place.room[0] >= rowBytes && (!place.planes[1] || place.room[1] >= rowBytes);
}

int scale(SwsContext* scaler, const AVFrame& source, uint8_t* const planes[4], const int strides[4]) {
    return sws_scale(scaler, source.data, source.linesize, 0, source.height, planes, strides);
}

// The way round for a place without that room: through a picture of the reader's own.
int scaleThroughSpare(PNVFFmpegReader& reader, const AVFrame& source, const PNVViewPlace& place) {
    AVFrame* spare = reader.spare.get();
    if (spare->width != place.width || spare->format != place.format) {
        av_frame_unref(spare);
        spare->width = place.width;
        spare->height = reader.outputHeight;
        spare->format = place.format;
        if (const int result = av_frame_get_buffer(spare, 64); result < 0) {
            av_frame_unref(spare);
            return result;
        }
    }
    const int result = scale(reader.scaler.get(), source, spare->data, spare->linesize);
    if (result >= 0)
        av_image_copy2(place.planes, place.strides, spare->data, spare->linesize, place.format, place.width,
                       reader.outputHeight);
    return result;
}

} // namespace

// The scaler is built here and not by sws_getCachedContext, which chooses its converter before it can be told the range
// of the source.
int pnv_scale_view(PNVFFmpegReader& reader, const AVFrame& source, const PNVViewPlace& place, ErrorText error) {
    const PNVScalerKey key{.sourceWidth = source.width,
                           .sourceHeight = source.height,
                           .sourceFormat = source.format,
                           .width = place.width,
                           .height = reader.outputHeight,
                           .format = place.format,
                           .matrix = matrixOf(source),
                           .isFullRange = isFullRange(source)};
    if (!reader.scaler || reader.scalerKey != key) {
        reader.scaler = makeScaler(key);
        reader.scalerKey = key;
    }
    const int result = !reader.scaler                 ? AVERROR(EINVAL)
                       : hasRoomForWholeGroups(place) ? scale(reader.scaler.get(), source, place.planes, place.strides)
                                                      : scaleThroughSpare(reader, source, place);
    return result < 0 ? pnv_set_error(error, "Could not create pixel format converter", AVERROR(EINVAL)) : 0;
}

//  outputWidth
//  +-------------+-------------+
//  |  primary    |  secondary  |   a view that stands alone fills both halves
//  +-------------+-------------+
// The left half comes first: what is written past its end is written over by the right one.
int pnv_scale_picture(PNVFFmpegReader& reader, const PNVPicture& picture, PNVViewPlace place, ErrorText error) {
    place.width = reader.isStereoMultiview ? reader.outputWidth / 2 : reader.outputWidth;
    std::copy_n(place.strides, std::size(place.room), place.room);
    const int result = pnv_scale_view(reader, *picture.primary, place, error);
    if (result < 0 || !reader.isStereoMultiview)
        return result;
    const int halves[] = {place.width * place.bytesPerPixel(), place.width}; // bytes
    for (size_t plane = 0; plane < std::size(halves) && place.planes[plane]; ++plane) {
        place.planes[plane] += halves[plane];
        place.room[plane] -= halves[plane];
    }
    return pnv_scale_view(reader, picture.secondary ? *picture.secondary : *picture.primary, place, error);
}
