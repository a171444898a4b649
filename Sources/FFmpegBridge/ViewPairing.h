#pragma once

#include "FFmpegBridge/VideoReader.h"

// A complete picture in the reader's frames, which are released with it.
struct PNVPicture {
    AVFrame* primary = nullptr;
    AVFrame* secondary = nullptr; // the right eye; null when the primary stands for both
    double seconds = 0;

    PNVPicture() = default;
    PNVPicture(const PNVPicture&) = delete;
    PNVPicture& operator=(const PNVPicture&) = delete;
    ~PNVPicture() {
        if (primary)
            av_frame_unref(primary);
        if (secondary)
            av_frame_unref(secondary);
    }
};

bool pnv_holds_view(const PNVFFmpegReader& reader);

// The held view becomes a picture of its own.
void pnv_release_held_view(PNVFFmpegReader& reader, PNVPicture& picture);

// Makes a picture of the frame just decoded. False when it only became the held view, whose partner is to come.
bool pnv_take_decoded_frame(PNVFFmpegReader& reader, PNVPicture& picture);
