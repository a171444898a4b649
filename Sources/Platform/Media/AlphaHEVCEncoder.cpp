#include "Platform/Media/AlphaHEVCEncoder.h"

#include <utility>

namespace panoveer {

namespace {

constexpr int bitDepthOfBGRA = 8;

} // namespace

AlphaHEVCEncoder::AlphaHEVCEncoder(const EncoderConfiguration& configuration, PacketSink sink)
    : LayeredHEVCEncoder(configuration, std::move(sink), Layers::colorAndAlpha, bitDepthOfBGRA) {}

void AlphaHEVCEncoder::encode(PixelBufferPtr picture, std::int64_t presentationTime, std::int64_t duration) {
    convertToYCbCrA420(*picture, planes(0), configuration().settings.color.matrix);
    picture.reset();
    encodePlanes(presentationTime, duration);
}

} // namespace panoveer
