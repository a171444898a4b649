#pragma once

#include "Platform/Media/VideoEncoder.h"

namespace panoveer {

// H.264 by x264 and HEVC by x265, through libavcodec: average bit rate, closed groups of pictures, key frames also at
// scene cuts. Both encode on threads of their own, one for each core. Not for other layers.
class InterframeEncoder final : public VideoEncoder {
public:
    // Throws Error when the encoder does not open.
    InterframeEncoder(const EncoderConfiguration& configuration, PacketSink sink);

    CodecParametersPtr parameters() const override;
    void encode(PixelBufferPtr picture, std::int64_t presentationTime, std::int64_t duration) override;
    void finish() override;

private:
    EncoderConfiguration configuration_;
    PacketSink sink_;
    CodecContextPtr context_;
    FramePtr planar_; // x265 reads planar pictures: the one that is filled next
};

} // namespace panoveer
