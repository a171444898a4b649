#pragma once

#include "FFmpegBridge/ViewPairing.h"

// Where one view goes. `room` is how many bytes of a row may be written from the view's first byte on.
struct PNVViewPlace {
    uint8_t* planes[4] = {};
    int strides[4] = {};
    int room[2] = {};
    int width = 0; // pixels
    AVPixelFormat format = AV_PIX_FMT_NONE;

    int bytesPerPixel() const { return format == AV_PIX_FMT_NV12 ? 1 : 4; }
};

// Converts one view into its place. The scaler is kept from frame to frame.
int pnv_scale_view(PNVFFmpegReader& reader, const AVFrame& source, const PNVViewPlace& place, ErrorText error);

// Converts a picture into the whole place, whose width and room follow from the reader's output size.
int pnv_scale_picture(PNVFFmpegReader& reader, const PNVPicture& picture, PNVViewPlace place, ErrorText error);
