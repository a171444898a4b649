#pragma once

#include "Platform/Media/PixelBuffer.h"

#include <cstdint>
#include <vector>

struct AVCodecParameters;
struct AVFrame;
struct AVMasteringDisplayMetadata;
struct AVContentLightMetadata;

// Colour as libav states it, turned into attachments. Not for other layers.
namespace panoveer {

ColorAttachments colorAttachments(const AVCodecParameters& parameters);
ColorAttachments colorAttachments(const AVFrame& frame);

// `preferred`, with what it leaves unsaid taken from `fallback`.
ColorAttachments completed(ColorAttachments preferred, const ColorAttachments& fallback);

// The payload of an mdcv box: x and y of green, blue and red in units of 0.00002, white point, then the largest and the
// smallest luminance in units of 0.0001 cd/m², all big-endian (ISO/IEC 14496-12, 12.1.7; SMPTE ST 2086). Empty when
// a part is missing.
std::vector<std::uint8_t> masteringDisplayPayload(const AVMasteringDisplayMetadata& metadata);

// The payload of a clli box: largest content light level and largest frame average, cd/m², big-endian.
std::vector<std::uint8_t> contentLightPayload(const AVContentLightMetadata& metadata);

} // namespace panoveer
