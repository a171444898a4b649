#pragma once

#include "Platform/Core/Error.h"
#include "Platform/Media/MediaAsset.h"
#include "Platform/Media/MediaSupport.h"

#include <atomic>
#include <cstdint>
#include <optional>
#include <string>

struct AVStream;

namespace panoveer {

// The packets of one track of a movie, in the order in which they are stored. One thread at a time; every blocking call
// throws Cancelled soon after `*interrupt` has become true. Not for other layers.
class TrackReader {
public:
    // Opens the file. `interrupt` outlives this. Throws Error.
    TrackReader(const MediaAsset& asset, int streamIndex, const std::atomic<bool>& interrupt);

    // The track's next packet. False at the end: endError() tells whether it is the end of the track.
    bool read(AVPacket& packet);
    // The file cannot be read on, or ends before the media that its index promises.
    const std::optional<Error>& endError() const { return endError_; }

    // Goes to the last key packet that is stored at or before a time, or to the head. Throws Error.
    void seek(double seconds);
    // Nothing read yet.
    bool isAtHead() const { return isAtHead_; }

    AVStream& stream() const;
    // Not so where the container stores decoding times alone.
    bool hasPresentationTimes() const;
    // The name that messages give to the file.
    const std::string& name() const { return name_; }
    void throwIfInterrupted() const;
    // Between the movie's axis and the units of the stream.
    std::int64_t streamTime(double seconds) const;
    double movieSeconds(std::int64_t streamTime) const;

private:
    void noteEnd(int code);
    bool isTruncated() const;

    std::string name_;
    double startOffset_;
    const std::atomic<bool>* interrupt_;
    InputPtr input_;
    int streamIndex_;
    bool isAtHead_ = true;
    std::optional<Error> endError_;
};

} // namespace panoveer
