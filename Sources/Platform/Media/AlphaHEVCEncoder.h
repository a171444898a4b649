#pragma once

#include "Platform/Media/LayeredHEVCEncoder.h"

namespace panoveer {

// HEVC with alpha: layer 0 is the colour, which every player shows, layer 1 an auxiliary picture with alpha in its luma
// (Rec. ITU-T H.265, F.14.2.8). Takes BGRA; alpha is straight and of full range. Not for other layers of this program.
class AlphaHEVCEncoder final : public LayeredHEVCEncoder {
public:
    // Throws Error when the encoder does not open.
    AlphaHEVCEncoder(const EncoderConfiguration& configuration, PacketSink sink);

    void encode(PixelBufferPtr picture, std::int64_t presentationTime, std::int64_t duration) override;
};

} // namespace panoveer
