#include "FFmpegBridge/ViewPairing.h"
#include "FFmpegBridge/ViewScaling.h"

#include <atomic>
#include <new>

extern "C" {
#include <libavutil/hwcontext.h>
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

// VideoToolbox frames carry a CVPixelBuffer, which only CoreVideo can retain for the caller. There is none here, so a
// hardware frame is always copied down.
int copyDownHardwareFrame(PNVFFmpegReader& reader, PNVPicture& picture, ErrorText error) {
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
int chooseDestination(PNVFFmpegReader& reader, const ReadRequest& request, PNVViewPlace& place) {
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

int deliver(PNVFFmpegReader& reader, PNVPicture& picture, const ReadRequest& request) {
    if (const int result = copyDownHardwareFrame(reader, picture, request.error); result < 0)
        return result;
    PNVViewPlace place;
    if (const int result = chooseDestination(reader, request, place); result < 0)
        return result;
    if (const int result = pnv_scale_picture(reader, picture, place, request.error); result < 0)
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
        PNVPicture picture;
        const int result = avcodec_receive_frame(reader.codec.get(), reader.decoded.get());
        if (result == AVERROR_EOF || (result == AVERROR(EAGAIN) && reader.inputEnded)) {
            if (!pnv_holds_view(reader)) {
                if (reader.inputEndError >= 0 || reader.inputEndError == AVERROR_EOF)
                    return 0;
                return pnv_set_av_error(request.error, "Could not read video packet", reader.inputEndError);
            }
            pnv_release_held_view(reader, picture);
        } else if (result == AVERROR(EAGAIN)) {
            if (const int fed = feedDecoder(reader, request.error); fed < 0)
                return fed;
            continue;
        } else if (result < 0) {
            return pnv_set_av_error(request.error, "Could not decode video frame", result);
        } else if (!pnv_take_decoded_frame(reader, picture)) {
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
