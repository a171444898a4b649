#pragma once

#include "Platform/Media/TrackReader.h"

#include <functional>
#include <string_view>

namespace panoveer {

// An open movie with the decoder of one of its tracks: what MovieDecoder and AudioDecoder have in common. Packets that
// do not decode are passed over. One thread at a time; every blocking call throws Cancelled soon after `*interrupt` has
// become true, and Error when the file cannot be read. Not for other layers.
class TrackDecoder {
public:
    std::int64_t decodedFrameCount() const { return decodedFrameCount_; }
    std::int64_t decodeErrorCount() const { return decodeErrorCount_; }
    // The first failure of the decoder itself.
    const std::optional<Error>& decodeError() const { return decodeError_; }

protected:
    // Opens the file. `interrupt` outlives this. Throws Error.
    TrackDecoder(const MediaAsset& asset, int streamIndex, const std::atomic<bool>& interrupt);
    ~TrackDecoder() = default;

    // `parameters` are null for a track that cannot be decoded; `medium` is the word for it in messages.
    void openDecoder(const AVCodecParameters* parameters, std::string_view medium,
                     const std::function<void(AVCodecContext&)>& setUp);
    // The next frame; null at the end of the track.
    FramePtr receive();
    // The decoder wants its next packet, or to be told that there are no more.
    virtual void feed() = 0;
    void noteDecodeError(int code);

    TrackReader reader_;
    CodecContextPtr decoder_;
    PacketPtr packet_;
    bool isDraining_ = false;

private:
    std::optional<Error> decodeError_;
    std::int64_t decodedFrameCount_ = 0;
    std::int64_t decodeErrorCount_ = 0;
};

} // namespace panoveer
