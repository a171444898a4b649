#pragma once

#include "Platform/Media/MediaSupport.h"

#include <cstdint>
#include <deque>
#include <span>
#include <vector>

namespace panoveer {

// The alpha of an HEVC track that keeps it in a layer of its own (Rec. ITU-T H.265, F.14.2.8), which libavcodec passes
// over. The layer leans on no other: with its NAL units numbered anew as those of a base layer it is a stream that any
// decoder reads. Runs beside the decoder of the colour, and is given the same packets. One thread. Not for other layers
// of this program.
class AlphaLayerDecoder {
public:
    // Whether a track of a QuickTime or MP4 movie has such a layer, 8 bits deep as its colour is.
    static bool isPresent(const AVCodecParameters& parameters);

    // For parameters with such a layer. Throws Error when the decoder does not open.
    explicit AlphaLayerDecoder(const AVCodecParameters& parameters);

    void send(const AVPacket& packet);
    // No packet follows, until flush().
    void finish();
    // Forgets all packets.
    void flush();

    // Makes a 4:2:0 picture of the colour decoder one with the alpha of its time, opaque where the layer has none. Its
    // colour is straight then: one that was encoded multiplied with alpha has been divided by it.
    void addTo(AVFrame& color);

private:
    void receive();

    int lengthSize_;               // of the length in front of each NAL unit, bytes
    bool isPremultiplied_ = false; // the colour, as it is encoded
    CodecContextPtr decoder_;
    std::deque<FramePtr> pictures_; // in order of presentation
};

} // namespace panoveer
