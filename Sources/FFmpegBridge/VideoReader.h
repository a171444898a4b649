#pragma once

#include "FFmpegBridge/Common.h"

// A view of a multiview stream that waits for its partner, which the decoder delivers next.
struct PNVHeldView {
    FramePtr frame; // empty while nothing is held
    int64_t timestamp = AV_NOPTS_VALUE;
    double seconds = 0;
    int eye = -1; // as pnv_view_eye
};

// What a scaler was built for.
struct PNVScalerKey {
    int sourceWidth = 0, sourceHeight = 0, sourceFormat = AV_PIX_FMT_NONE;
    int width = 0, height = 0, format = AV_PIX_FMT_NONE;
    int matrix = 0;
    bool isFullRange = false;

    bool operator==(const PNVScalerKey&) const = default;
};

// Members stand so that destruction, which goes backwards, frees every user of an object before the object.
struct PNVFFmpegReader {
    FormatContextPtr format;
    BufferPtr hardwareDevice;
    CodecContextPtr codec;
    ScalerPtr scaler;
    PNVScalerKey scalerKey;
    PacketPtr packet;
    bool packetIsWaiting = false; // the decoder has yet to take it
    PNVHeldView held;
    FramePtr decoded;
    FramePtr scratch;            // a hardware frame copied down, or a view that stands alone
    FramePtr spare;              // for conversions that would write past their place
    AllocatedPtr<uint8_t> image; // the reader's own BGRA picture
    int imageStride = 0;

    int streamIndex = -1;
    AVRational timeBase{0, 1};
    double startOffset = 0; // container time of second 0
    double startSeconds = 0;
    double endSeconds = -1; // -1: no end
    double frameRate = 30;
    int64_t frameIndex = 0; // frames decoded since the open or the last seek
    int outputWidth = 0;
    int outputHeight = 0;
    int hardwarePixelFormat = AV_PIX_FMT_NONE;
    bool usesVideoToolbox = false;
    bool hasAlpha = false;
    bool isStereoMultiview = false;
    bool inputEnded = false;
    int inputEndError = 0; // what ended the input: the end of the file, or a failure
};
