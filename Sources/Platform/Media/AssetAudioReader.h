#pragma once

#include "Platform/Media/AssetReader.h"
#include "Platform/Media/AudioChannelLayout.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

namespace panoveer {

// Decodes one audio track of a MediaAsset from a start to its end, as interleaved 32-bit float at 48,000 Hz, exact to
// the sample: edit lists, and what a codec puts in front of and behind the sound, are applied. One thread at a time,
// except cancelReading() and status(), which any thread may call.
//
// Packets that do not decode are passed over; the next block's time then tells of the gap. Reading fails when nothing
// at all decodes, and when the file cannot be read on.
class AssetAudioReader {
public:
    using Status = AssetReader::Status;

    struct Block {
        std::vector<float> samples; // interleaved, full scale -1 to 1
        std::int64_t frames = 0;    // at least 1
        int channelCount = 0;       // the same for all blocks of a reader
        // Of the first frame, on the movie's axis; at least the start that was asked for. Absent when the file says
        // none: right behind the block before.
        std::optional<double> presentationSeconds;
    };

    // Without `convertTo` the blocks have the track's own channels, in the order that AudioTrack::layout tells.
    // Otherwise they are mixed to that layout, which has to be one of loudspeakers.
    AssetAudioReader(std::shared_ptr<const MediaAsset> asset, const AudioTrack& track, double startSeconds,
                     std::optional<AudioChannelLayout> convertTo = std::nullopt);
    ~AssetAudioReader();
    AssetAudioReader(AssetAudioReader&&) noexcept;
    AssetAudioReader& operator=(AssetAudioReader&&) noexcept;

    // Opens the decoder. False when that failed: see error().
    bool startReading();
    // No value at the end of the track, after cancelReading(), and on failure: status() tells which.
    std::optional<Block> copyNextBlock();
    void cancelReading();

    Status status() const;
    // The failure behind Status::failed.
    const std::optional<Error>& error() const;

private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace panoveer
