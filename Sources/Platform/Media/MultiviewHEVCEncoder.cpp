#include "Platform/Media/MultiviewHEVCEncoder.h"

#include <utility>

namespace panoveer {

MultiviewHEVCEncoder::MultiviewHEVCEncoder(const EncoderConfiguration& configuration, PacketSink sink)
    : LayeredHEVCEncoder(configuration, std::move(sink), Layers::leftAndRightEye,
                         configuration.pictureFormat == pixelFormat::yCbCr420TenBitVideoRange ? 10 : 8) {}

void MultiviewHEVCEncoder::encode(PixelBufferPtr picture, std::int64_t presentationTime, std::int64_t duration) {
    encodeViews(picture, picture, presentationTime, duration);
}

void MultiviewHEVCEncoder::encodeViews(PixelBufferPtr left, PixelBufferPtr right, std::int64_t presentationTime,
                                       std::int64_t duration) {
    splitPlanes(*left, planes(0));
    splitPlanes(*right, planes(1));
    left.reset();
    right.reset();
    encodePlanes(presentationTime, duration);
}

} // namespace panoveer
