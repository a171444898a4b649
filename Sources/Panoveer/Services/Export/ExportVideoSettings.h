#pragma once

#include "Panoveer/Model/Records/ExportSettings.h"
#include "Panoveer/Model/Records/VideoColorMetadata.h"
#include "Panoveer/Services/Export/ExportOutputDescriptor.h"
#include "Platform/Media/AssetWriter.h"

#include <optional>
#include <string>
#include <string_view>

// What an export asks of decoder, renderer and encoder. Pure functions but for the probe in outputFrameRate().
namespace panoveer {

// What the writer's video track is to be. A key frame every 60 frames, or every second when the rate is known; ProRes,
// whose frames are all key frames and whose quality governs, gets neither interval nor bit rate. Width and height are
// those of one eye for a multiview codec, whose immersive metadata say so.
VideoSettings videoSettings(ExportCodec codec, std::int64_t width, std::int64_t height,
                            std::optional<double> bitrateMbps, std::optional<double> targetFrameRate,
                            ExportColorMode colorMode, const ImmersiveMediaProperties& immersiveMetadata = {});

// The colours of an output: BT.709, BT.2020 with PQ, or BT.2020 with HLG, as H.273 code points.
ColorAttachments outputColor(ExportColorMode mode);

// Writes the output's colours onto a rendered picture. For `preserveHDR` the source's mastering display and light level
// come along, since the picture still is the one they describe.
void attachColorMetadata(PixelBuffer& output, ExportColorMode mode, const ColorAttachments& source);

// The rate of a movie's frame clock: the rate to retime to, the sources' rate, the first source's rate as FFmpeg
// reads it, or 30.
double outputFrameRate(const ExportOutputDescriptor& descriptor);

double totalDurationSeconds(const ExportOutputDescriptor& descriptor);
double estimatedOutputBytes(const ExportOutputDescriptor& descriptor);

// The format that the renderer fills and the encoder takes.
FourCC preferredNativeOutputPixelFormat(ExportCodec codec, ExportColorMode colorMode);

// The format to decode to: the stream's own chroma sampling and depth, so that nothing is converted before the
// renderer, and BGRA for what has alpha or no such layout. Names as libavcodec and libavutil spell them, in any case.
FourCC preferredNativeSourcePixelFormat(std::string_view codecName, std::string_view pixelFormatName);

// A picture's colours: from its attachments where they say something, else from the clip's metadata.
VideoColorMetadata colorMetadata(const ColorAttachments& attachments, const VideoColorMetadata& fallback);

} // namespace panoveer
