#pragma once

#include "Platform/Media/TrackDecoder.h"

namespace panoveer {

// A decoded frame of sound, of which `count` samples from `first` on belong to the track.
struct DecodedSound {
    FramePtr frame;
    int first = 0;
    int count = 0;
    std::optional<double> seconds; // of sample `first`, on the movie's axis
};

// An open movie with the decoder of one of its audio tracks. Packets that do not decode are passed over. One thread at
// a time; every blocking call throws Cancelled soon after `*interrupt` has become true, and Error when the file cannot
// be read. Not for other layers.
class AudioDecoder final : public TrackDecoder {
public:
    // Opens file and decoder. `interrupt` outlives this. Throws Error.
    AudioDecoder(const MediaAsset& asset, const AudioTrack& track, const std::atomic<bool>& interrupt);

    // Goes so far ahead of a time that the decoder has settled when it is there. Once, and first of all.
    void goTo(double seconds);
    // No value at the end of the track.
    std::optional<DecodedSound> next();

private:
    bool hasCoarseTimes() const;
    void readHead();
    void feed() override;
    DecodedSound trimmed(FramePtr frame);
    std::optional<double> secondsOf(const AVFrame& frame);
    double onGrid(double seconds, const AVFrame& frame) const;

    bool hasPacket_ = false;            // packet_ waits to be decoded
    std::optional<double> headSeconds_; // of the track's first packet, where times are coarse
    std::optional<double> nextSeconds_; // where the frame decoded last ends
};

} // namespace panoveer
