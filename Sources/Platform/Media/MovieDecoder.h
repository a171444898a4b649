#pragma once

#include "Platform/Core/Error.h"
#include "Platform/Media/AlphaLayerDecoder.h"
#include "Platform/Media/TrackDecoder.h"

#include <deque>
#include <limits>
#include <optional>

namespace panoveer {

struct DecodedFrame {
    FramePtr frame;
    double seconds = 0;         // presentation time on the movie's axis
    double durationSeconds = 0; // as the container says, else one frame at the nominal rate
};

// An open movie with the decoder of one of its video tracks: goes to a time and hands frames out in presentation order.
// Packets that do not decode are passed over. One thread at a time; every blocking call throws Cancelled soon after
// `*interrupt` has become true, and Error when the file cannot be read. Not for other layers.
class MovieDecoder final : public TrackDecoder {
public:
    // Opens file and decoder. `interrupt` outlives this. Throws Error.
    MovieDecoder(const MediaAsset& asset, const VideoTrack& track, const std::atomic<bool>& interrupt);

    // The next frame of this decoder is the one displayed at `seconds`: the last that begins no later than that or, at
    // the head of the track, the first of all. At the end of the track it is its last frame.
    void goTo(double seconds);
    // Goes on to that frame from where the decoder stands. Only forward.
    void skipTo(double seconds);
    // The frame of the nearest key frame at or before `seconds`, decoded by itself. Only goTo may follow.
    std::optional<DecodedFrame> keyFrame(double seconds);
    // Container time of that key frame as its index tells it, on the movie's axis and possibly early by a reordering
    // delay; no value without an index.
    std::optional<double> indexedKeyFrameSeconds(double seconds) const;

    // No value at the end of the track.
    std::optional<DecodedFrame> next();
    // The frame that next() will return.
    const DecodedFrame* peek();

private:
    void seek(double seconds);
    std::optional<DecodedFrame> decodeNext();
    void feed() override;
    void drain();
    void send(const AVPacket& packet);
    bool isSuperseded(const AVPacket& packet);
    void resetTimes();
    void readPacket();
    DecodedFrame timed(FramePtr frame);

    double frameSeconds_;                                           // of one frame at the nominal rate
    std::optional<AlphaLayerDecoder> alpha_;                        // of a track with alpha in another layer
    std::deque<DecodedFrame> ahead_;                                // decoded already
    double lastSeconds_ = -std::numeric_limits<double>::infinity(); // of the frame decoded last
    // While a frame is being looked for: its time, and the latest packet so far that begins no later.
    std::optional<double> wantedSeconds_;
    double latestCandidate_ = -std::numeric_limits<double>::infinity();
    // A container of decoding times alone (AVI) says when each picture is due, not which one is: the pictures take the
    // times of the packets as they come.
    bool takesDecodingTimes_ = false;
    std::deque<std::int64_t> decodingTimes_; // of packets whose pictures are to come
};

} // namespace panoveer
