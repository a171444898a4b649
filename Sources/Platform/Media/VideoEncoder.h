#pragma once

#include "Platform/Core/MediaTime.h"
#include "Platform/Media/AssetWriter.h"
#include "Platform/Media/MediaSupport.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <span>

namespace panoveer {

// What the writer's encoders are opened with.
struct EncoderConfiguration {
    VideoSettings settings;
    FourCC pictureFormat;
    std::int32_t timescale = 600; // units per second of picture times
    MediaTime frameDuration;      // nominal; valid
    // Only asks whether the encoder opens, with as few threads and buffers as it can do with.
    bool isProbe = false;
};

// Turns the pictures of one track into packets. encode() and finish() come from one thread; packets go to the sink in
// decoding order, from any thread, one at a time. Destroying it abandons what it still holds, within the pictures that
// it is at. Not for other layers.
class VideoEncoder {
public:
    using PacketSink = std::function<void(PacketPtr)>;

    virtual ~VideoEncoder() = default;

    // What the packets are, for the container.
    virtual CodecParametersPtr parameters() const = 0;
    // Whether the packets have another layer beside the one that every decoder shows.
    virtual bool hasManyLayers() const { return false; }
    // Times in units of the timescale. Keeps the picture only until it is read. Throws Error, also for earlier
    // pictures, and what the sink throws.
    virtual void encode(PixelBufferPtr picture, std::int64_t presentationTime, std::int64_t duration) = 0;
    // The same with a picture for each eye. An encoder of single pictures takes the left one.
    virtual void encodeViews(PixelBufferPtr left, PixelBufferPtr right, std::int64_t presentationTime,
                             std::int64_t duration);
    // Gives out all that it holds. Throws as encode() does.
    virtual void finish() = 0;
};

// The codec families that have an encoder here.
enum class CodecFamily { h264, hevc, hevcWithAlpha, proRes };

// No value for a codec without one.
std::optional<CodecFamily> codecFamily(FourCC codec);

// The formats that pictures for these settings can come in, the preferred one first; empty for a codec without an
// encoder and for a profile that is not its own.
std::span<const FourCC> pictureFormats(FourCC codec, VideoProfile profile);

// Throws Error in mediaErrorDomain when the encoder does not open.
std::unique_ptr<VideoEncoder> makeVideoEncoder(const EncoderConfiguration& configuration,
                                               VideoEncoder::PacketSink sink);

} // namespace panoveer
