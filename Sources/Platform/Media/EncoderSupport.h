#pragma once

#include "Platform/Media/VideoEncoder.h"

#include <string_view>

namespace panoveer {

// What the encoders share in their dealings with libavcodec. Not for other layers.

// A context of the named encoder with the size, clock and colours of the configuration; not open yet. Throws Error.
CodecContextPtr makeEncoderContext(std::string_view encoderName, const EncoderConfiguration& configuration);

// The context's parameters with the codec's own tag and HDR payloads for the container.
CodecParametersPtr containerParameters(const AVCodecContext& context, const EncoderConfiguration& configuration);

// Adds the HDR payloads of the settings' colours for the container. Throws std::bad_alloc.
void tellContainer(AVCodecParameters& parameters, const VideoSettings& settings);

// Sends a frame, or none to flush, and hands out every packet that is ready. Throws Error and what the sink throws.
void encodeFrame(AVCodecContext& context, const AVFrame* frame, const VideoEncoder::PacketSink& sink);

// A frame with buffers of its own, in the context's format and size, with its colours.
FramePtr makeEncoderFrame(const AVCodecContext& context);

// Of the picture's own memory; see EncoderKernels.h.
struct PlanarPicture;
PlanarPicture planarPicture(const AVFrame& frame);

} // namespace panoveer
