#include "FFmpegBridge/VideoReader.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <iterator>
#include <new>
#include <utility>

extern "C" {
#include <libavutil/hwcontext.h>
#include <libavutil/imgutils.h>
#include <libavutil/opt.h>
#include <libavutil/pixdesc.h>
#include <libavutil/stereo3d.h>
}

struct PNVFFmpegCancellationToken {
    std::atomic<uint64_t> cancellations{0};
};

namespace {

// What one read asks for. Without a destination the reader's own image takes the frame.
struct ReadRequest {
    PNVFFmpegReader* reader = nullptr;
    uint8_t* destination = nullptr; // first plane
    int32_t stride = 0;
    uint8_t* chroma = nullptr; // second plane, NV12 only
    int32_t chromaStride = 0;
    AVPixelFormat format = AV_PIX_FMT_BGRA;
    void** pixelBuffer = nullptr;
    PNVFFmpegFrame* frame = nullptr;
    ErrorText error{};
    // At or after this time when `waitsForTarget`; the next frame otherwise.
    bool waitsForTarget = false;
    const PNVFFmpegCancellationToken* token = nullptr;
    double targetSeconds = 0;
};

// A complete picture in the reader's frames, which are released with it.
struct Picture {
    AVFrame* primary = nullptr;
    AVFrame* secondary = nullptr; // the right eye; null when the primary stands for both
    double seconds = 0;

    Picture() = default;
    Picture(const Picture&) = delete;
    Picture& operator=(const Picture&) = delete;
    ~Picture() {
        if (primary)
            av_frame_unref(primary);
        if (secondary)
            av_frame_unref(secondary);
    }
};

double pnv_frame_pts(PNVFFmpegReader& reader, const AVFrame& frame) {
    const auto index = double(reader.frameIndex++);
    const double seconds = frame.best_effort_timestamp == AV_NOPTS_VALUE
                               ? -1
                               : double(frame.best_effort_timestamp) * av_q2d(reader.timeBase) - reader.startOffset;
    return seconds < 0 ? reader.startSeconds + index / reader.frameRate : seconds;
}

// 0 for the left eye, 1 for the right, -1 when the frame does not say.
int pnv_view_eye(const AVFrame& frame) {
    constexpr size_t minimumSize = 36;
    const auto* data = av_frame_get_side_data(&frame, AV_FRAME_DATA_STEREO3D);
    if (!data || data->size < minimumSize)
        return -1;
    switch (reinterpret_cast<const AVStereo3D*>(data->data)->view) {
    case AV_STEREO3D_VIEW_LEFT: return 0;
    case AV_STEREO3D_VIEW_RIGHT: return 1;
    default: return -1;
    }
}

void holdDecodedView(PNVFFmpegReader& reader, double seconds, int eye) {
    reader.held.timestamp = reader.decoded->best_effort_timestamp;
    reader.held.seconds = seconds;
    reader.held.eye = eye;
    av_frame_move_ref(reader.held.frame.get(), reader.decoded.get());
}

bool holdsView(const PNVFFmpegReader& reader) { return reader.held.frame->buf[0] != nullptr; }

// The held view becomes a picture of its own.
void releaseHeldView(PNVFFmpegReader& reader, Picture& picture) {
    av_frame_move_ref(reader.scratch.get(), reader.held.frame.get());
    picture.primary = reader.scratch.get();
    picture.seconds = reader.held.seconds;
}

// Makes a picture of the frame just decoded. False when it only became the held view, whose partner is to come.
bool takeDecodedFrame(PNVFFmpegReader& reader, Picture& picture) {
    const AVFrame& decoded = *reader.decoded;
    const double seconds = pnv_frame_pts(reader, decoded);
    if (!reader.isStereoMultiview) {
        picture.primary = reader.decoded.get();
        picture.seconds = seconds;
        return true;
    }

    const int eye = pnv_view_eye(decoded);
    if (!holdsView(reader)) {
        holdDecodedView(reader, seconds, eye);
        return false;
    }
    const bool isSameKnownEye = eye >= 0 && eye == reader.held.eye;
    if (reader.held.timestamp != decoded.best_effort_timestamp || isSameKnownEye) {
        releaseHeldView(reader, picture);
        holdDecodedView(reader, seconds, eye);
        return true;
    }
    const bool decodedIsLeft = reader.held.eye == 1 || eye == 0;
    picture.primary = decodedIsLeft ? reader.decoded.get() : reader.held.frame.get();
    picture.secondary = decodedIsLeft ? reader.held.frame.get() : reader.decoded.get();
    picture.seconds = reader.held.seconds;
    return true;
}

// Gives the decoder one more packet, or tells it that there are none. 0, or what went wrong.
int feedDecoder(PNVFFmpegReader& reader, ErrorText error) {
    AVPacket* packet = reader.packet.get();
    if (!reader.packetIsWaiting) {
        if (const int result = av_read_frame(reader.format.get(), packet); result < 0) {
            reader.inputEnded = true;
            reader.inputEndError = result;
            avcodec_send_packet(reader.codec.get(), nullptr);
            return 0;
        }
        if (packet->stream_index != reader.streamIndex) {
            av_packet_unref(packet);
            return 0;
        }
        reader.packetIsWaiting = true;
    }
    const int result = avcodec_send_packet(reader.codec.get(), packet);
    if (result == AVERROR(EAGAIN))
        return 0;
    av_packet_unref(packet);
    reader.packetIsWaiting = false;
    return result < 0 ? pnv_set_av_error(error, "Could not send packet to decoder", result) : 0;
}

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

// Where one view goes. `room` is how many bytes of a row may be written from the view's first byte on.
struct ViewPlace {
    uint8_t* planes[4] = {};
    int strides[4] = {};
    int room[2] = {};
    int width = 0; // pixels
    AVPixelFormat format = AV_PIX_FMT_NONE;

    int bytesPerPixel() const { return format == AV_PIX_FMT_NV12 ? 1 : 4; }
};

// libswscale's vector code works on groups of 16 pixels. It writes past the end of a row up to the next full group, and
// leaves pixels out where the row's stride has no room for one.
bool hasRoomForWholeGroups(const ViewPlace& place) {
    const int rowBytes = FFALIGN(place.width, 16) * place.bytesPerPixel();
    return place.room[0] >= rowBytes && (!place.planes[1] || place.room[1] >= rowBytes);
}

int scale(SwsContext* scaler, const AVFrame& source, uint8_t* const planes[4], const int strides[4]) {
    return sws_scale(scaler, source.data, source.linesize, 0, source.height, planes, strides);
}

// The way round for a place without that room: through a picture of the reader's own.
int scaleThroughSpare(PNVFFmpegReader& reader, const AVFrame& source, const ViewPlace& place) {
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

// Converts one view into its place. The scaler is kept from frame to frame. It is built here and not by
// sws_getCachedContext, which chooses its converter before it can be told the range of the source.
int pnv_scale_view(PNVFFmpegReader& reader, const AVFrame& source, const ViewPlace& place, ErrorText error) {
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

// VideoToolbox frames carry a CVPixelBuffer, which only CoreVideo can retain for the caller. There is none here, so a
// hardware frame is always copied down.
int copyDownHardwareFrame(PNVFFmpegReader& reader, Picture& picture, ErrorText error) {
    if (reader.hardwarePixelFormat == AV_PIX_FMT_NONE || picture.primary->format != reader.hardwarePixelFormat)
        return 0;
    AVFrame* copy = reader.scratch.get();
    if (const int result = av_hwframe_transfer_data(copy, picture.primary, 0); result < 0)
        return pnv_set_av_error(error, "Could not transfer VideoToolbox frame", result);
    reader.usesVideoToolbox = true;
    av_frame_unref(picture.primary);
    picture.primary = copy;
    return 0;
}

// Points the planes at the caller's memory, or at the reader's own image.
int chooseDestination(PNVFFmpegReader& reader, const ReadRequest& request, ViewPlace& place) {
    const bool isNV12 = request.format == AV_PIX_FMT_NV12;
    if ((!request.destination || !isNV12) && request.format != AV_PIX_FMT_BGRA)
        return pnv_set_error(request.error, "Unsupported internal decoded frame format", AVERROR(EINVAL));
    place.format = request.format;
    if (!request.destination) {
        place.planes[0] = reader.image.get();
        place.strides[0] = reader.imageStride;
        return 0;
    }
    // The pairs of an odd width take one byte more.
    const int chromaRow = (reader.outputWidth + 1) / 2 * 2;
    if (isNV12 && (!request.chroma || request.chromaStride < chromaRow))
        return pnv_set_error(request.error, "Invalid NV12 chroma destination buffer", AVERROR(EINVAL));
    if (request.stride < int64_t(reader.outputWidth) * place.bytesPerPixel())
        return pnv_set_error(request.error, "Destination row is too small for decoded frame", AVERROR(EINVAL));
    place.planes[0] = request.destination;
    place.strides[0] = request.stride;
    place.planes[1] = request.chroma;
    place.strides[1] = request.chromaStride;
    return 0;
}

//  outputWidth
//  +-------------+-------------+
//  |  primary    |  secondary  |   a view that stands alone fills both halves
//  +-------------+-------------+
// The left half comes first: what is written past its end is written over by the right one.
int scaleViews(PNVFFmpegReader& reader, const Picture& picture, ViewPlace place, ErrorText error) {
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

int deliver(PNVFFmpegReader& reader, Picture& picture, const ReadRequest& request) {
    if (const int result = copyDownHardwareFrame(reader, picture, request.error); result < 0)
        return result;
    ViewPlace place;
    if (const int result = chooseDestination(reader, request, place); result < 0)
        return result;
    if (const int result = scaleViews(reader, picture, place, request.error); result < 0)
        return result;
    *request.frame = {.data = place.planes[0],
                      .width = reader.outputWidth,
                      .height = reader.outputHeight,
                      .stride = place.strides[0],
                      .ptsSeconds = picture.seconds};
    return 1;
}

// The body of every read: decodes on until a picture passes the gates of time, then delivers it.
int pnv_read_frame(const ReadRequest& request) {
    if (!request.reader || !request.frame)
        return pnv_set_error(request.error, "Invalid FFmpeg read arguments", AVERROR(EINVAL));
    PNVFFmpegReader& reader = *request.reader;
    *request.frame = {};
    if (request.pixelBuffer)
        *request.pixelBuffer = nullptr;
    const auto cancellations = [&] {
        return request.token ? request.token->cancellations.load(std::memory_order_acquire) : 0;
    };
    const uint64_t cancellationsAtEntry = cancellations();

    while (cancellations() == cancellationsAtEntry) {
        Picture picture;
        const int result = avcodec_receive_frame(reader.codec.get(), reader.decoded.get());
        if (result == AVERROR_EOF || (result == AVERROR(EAGAIN) && reader.inputEnded)) {
            if (!holdsView(reader)) {
                if (reader.inputEndError >= 0 || reader.inputEndError == AVERROR_EOF)
                    return 0;
                return pnv_set_av_error(request.error, "Could not read video packet", reader.inputEndError);
            }
            releaseHeldView(reader, picture);
        } else if (result == AVERROR(EAGAIN)) {
            if (const int fed = feedDecoder(reader, request.error); fed < 0)
                return fed;
            continue;
        } else if (result < 0) {
            return pnv_set_av_error(request.error, "Could not decode video frame", result);
        } else if (!takeDecodedFrame(reader, picture)) {
            continue;
        }

        if (reader.endSeconds >= 0 && picture.seconds > reader.endSeconds + 0.5 / reader.frameRate) {
            av_frame_unref(reader.held.frame.get());
            return 0;
        }
        if (!request.waitsForTarget || picture.seconds >= request.targetSeconds)
            return deliver(reader, picture, request);
    }
    return 0;
}

// Also turns not-a-number and negative zero into zero.
double clampedTarget(double seconds) { return seconds > 0 ? seconds : 0.0; }

} // namespace

int32_t PNVFFmpegReadFrameIntoBGRA(PNVFFmpegReader* reader, uint8_t* destination, int32_t stride, PNVFFmpegFrame* frame,
                                   char* errorBuffer, int32_t errorLength) {
    const ErrorText error{errorBuffer, errorLength};
    if (!destination)
        return pnv_set_error(error, "Invalid FFmpeg destination buffer", AVERROR(EINVAL));
    return pnv_read_frame(
        {.reader = reader, .destination = destination, .stride = stride, .frame = frame, .error = error});
}

int32_t PNVFFmpegReadFrameAtOrAfterIntoBGRA(PNVFFmpegReader* reader, uint8_t* destination, int32_t stride,
                                            PNVFFmpegFrame* frame, char* errorBuffer, int32_t errorLength,
                                            const PNVFFmpegCancellationToken* token, double targetSeconds) {
    const ErrorText error{errorBuffer, errorLength};
    if (!destination)
        return pnv_set_error(error, "Invalid FFmpeg destination buffer", AVERROR(EINVAL));
    return pnv_read_frame({.reader = reader,
                           .destination = destination,
                           .stride = stride,
                           .frame = frame,
                           .error = error,
                           .waitsForTarget = true,
                           .token = token,
                           .targetSeconds = clampedTarget(targetSeconds)});
}

int32_t PNVFFmpegReadFrameIntoNV12(PNVFFmpegReader* reader, uint8_t* luma, int32_t lumaStride, uint8_t* chroma,
                                   int32_t chromaStride, PNVFFmpegFrame* frame, char* errorBuffer,
                                   int32_t errorLength) {
    const ErrorText error{errorBuffer, errorLength};
    if (!luma || !chroma)
        return pnv_set_error(error, "Invalid FFmpeg NV12 destination buffer", AVERROR(EINVAL));
    return pnv_read_frame({.reader = reader,
                           .destination = luma,
                           .stride = lumaStride,
                           .chroma = chroma,
                           .chromaStride = chromaStride,
                           .format = AV_PIX_FMT_NV12,
                           .frame = frame,
                           .error = error});
}

int32_t PNVFFmpegReadFrameAtOrAfterIntoNV12(PNVFFmpegReader* reader, uint8_t* luma, int32_t lumaStride, uint8_t* chroma,
                                            int32_t chromaStride, PNVFFmpegFrame* frame, char* errorBuffer,
                                            int32_t errorLength, const PNVFFmpegCancellationToken* token,
                                            double targetSeconds) {
    const ErrorText error{errorBuffer, errorLength};
    if (!luma || !chroma)
        return pnv_set_error(error, "Invalid FFmpeg NV12 destination buffer", AVERROR(EINVAL));
    return pnv_read_frame({.reader = reader,
                           .destination = luma,
                           .stride = lumaStride,
                           .chroma = chroma,
                           .chromaStride = chromaStride,
                           .format = AV_PIX_FMT_NV12,
                           .frame = frame,
                           .error = error,
                           .waitsForTarget = true,
                           .token = token,
                           .targetSeconds = clampedTarget(targetSeconds)});
}

int32_t PNVFFmpegReadFramePreferVideoToolbox(PNVFFmpegReader* reader, void** pixelBuffer, PNVFFmpegFrame* frame,
                                             char* errorBuffer, int32_t errorLength) {
    return pnv_read_frame(
        {.reader = reader, .pixelBuffer = pixelBuffer, .frame = frame, .error = {errorBuffer, errorLength}});
}

int32_t PNVFFmpegReadFrameAtOrAfterPreferVideoToolbox(PNVFFmpegReader* reader, void** pixelBuffer,
                                                      PNVFFmpegFrame* frame, char* errorBuffer, int32_t errorLength,
                                                      const PNVFFmpegCancellationToken* token, double targetSeconds) {
    return pnv_read_frame({.reader = reader,
                           .pixelBuffer = pixelBuffer,
                           .frame = frame,
                           .error = {errorBuffer, errorLength},
                           .waitsForTarget = true,
                           .token = token,
                           .targetSeconds = clampedTarget(targetSeconds)});
}

PNVFFmpegCancellationToken* PNVFFmpegCancellationTokenCreate() { return new (std::nothrow) PNVFFmpegCancellationToken; }

void PNVFFmpegCancellationTokenCancel(PNVFFmpegCancellationToken* token) {
    if (token)
        token->cancellations.fetch_add(1, std::memory_order_seq_cst);
}

void PNVFFmpegCancellationTokenClose(PNVFFmpegCancellationToken* token) { delete token; }
