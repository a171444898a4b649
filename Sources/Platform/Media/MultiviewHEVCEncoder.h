#pragma once

#include "Platform/Media/LayeredHEVCEncoder.h"

namespace panoveer {

// Multiview HEVC of two eyes: the left one is layer and view 0 and can be decoded alone, the right one is layer and
// view 1 and is predicted from it. Rec. ITU-T H.265, annex G. Not for other layers of this program.
class MultiviewHEVCEncoder final : public LayeredHEVCEncoder {
public:
    // Throws Error when the encoder does not open.
    MultiviewHEVCEncoder(const EncoderConfiguration& configuration, PacketSink sink);

    // Both halves of each moment come through encodeViews().
    void encode(PixelBufferPtr picture, std::int64_t presentationTime, std::int64_t duration) override;
    void encodeViews(PixelBufferPtr left, PixelBufferPtr right, std::int64_t presentationTime,
                     std::int64_t duration) override;
};

} // namespace panoveer
