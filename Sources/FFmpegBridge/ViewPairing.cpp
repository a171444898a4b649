#include "FFmpegBridge/ViewPairing.h"

extern "C" {
#include <libavutil/stereo3d.h>
}

namespace {

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

} // namespace

bool pnv_holds_view(const PNVFFmpegReader& reader) { return reader.held.frame->buf[0] != nullptr; }

void pnv_release_held_view(PNVFFmpegReader& reader, PNVPicture& picture) {
    av_frame_move_ref(reader.scratch.get(), reader.held.frame.get());
    picture.primary = reader.scratch.get();
    picture.seconds = reader.held.seconds;
}

bool pnv_take_decoded_frame(PNVFFmpegReader& reader, PNVPicture& picture) {
    const AVFrame& decoded = *reader.decoded;
    const double seconds = pnv_frame_pts(reader, decoded);
    if (!reader.isStereoMultiview) {
        picture.primary = reader.decoded.get();
        picture.seconds = seconds;
        return true;
    }

    const int eye = pnv_view_eye(decoded);
    if (!pnv_holds_view(reader)) {
        holdDecodedView(reader, seconds, eye);
        return false;
    }
    const bool isSameKnownEye = eye >= 0 && eye == reader.held.eye;
    if (reader.held.timestamp != decoded.best_effort_timestamp || isSameKnownEye) {
        pnv_release_held_view(reader, picture);
        holdDecodedView(reader, seconds, eye);
        return true;
    }
    const bool decodedIsLeft = reader.held.eye == 1 || eye == 0;
    picture.primary = decodedIsLeft ? reader.decoded.get() : reader.held.frame.get();
    picture.secondary = decodedIsLeft ? reader.held.frame.get() : reader.decoded.get();
    picture.seconds = reader.held.seconds;
    return true;
}
