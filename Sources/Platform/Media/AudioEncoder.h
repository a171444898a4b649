#pragma once

#include "Platform/Media/AssetWriter.h"
#include "Platform/Media/MediaSupport.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <span>

namespace panoveer {

// Encodes the sound of one track. One thread at a time; every call throws Error. Not for other layers.
class AudioEncoder {
public:
    // Takes packets in order, times in units of 1/48,000 s. What the decoder needs ahead of the sound has negative
    // ones.
    using PacketSink = std::function<void(PacketPtr)>;

    virtual ~AudioEncoder() = default;

    virtual const AVCodecParameters& parameters() const = 0;
    // Interleaved samples in the order of AudioSettings::inputLayout, right behind those before.
    virtual void encode(std::span<const float> samples) = 0;
    virtual void finish() = 0;
};

// Throws Error, which says why, where such a track cannot be.
std::unique_ptr<AudioEncoder> makeAudioEncoder(const AudioSettings& settings, MovieFileType fileType,
                                               AudioEncoder::PacketSink sink);

// How many packets a track of so many frames has, at most.
std::int64_t plannedPacketCount(const AudioSettings& settings, std::int64_t frameCount);

} // namespace panoveer
