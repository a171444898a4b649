#pragma once

#include "Platform/Core/Error.h"
#include "Platform/Core/MediaTime.h"
#include "Platform/Media/MediaAsset.h"

#include <memory>
#include <optional>

namespace panoveer {

// One decoded picture with its presentation time on the movie's time axis, edit lists applied.
struct VideoSample {
    PixelBufferPtr imageBuffer;
    double presentationSeconds = 0;
};

// Decodes one video track of a MediaAsset over a time range, in presentation order, into pictures of the asked format;
// the decoder's frame is adopted without a copy where its layout is the asked one. Y'CbCr stays Y'CbCr: only a change
// of layout, depth or range is made, and BGRA is made with the stream's own matrix and range. Each picture carries the
// stream's colour attachments. One thread at a time, except cancelReading() and status(), which any thread may call.
//
// Packets that do not decode are passed over, as players do. Reading fails when nothing at all decodes, when the file
// cannot be read on, and when it ends before the media that its index promises.
class AssetReader {
public:
    enum class Status { unknown, reading, completed, failed, cancelled };

    AssetReader(std::shared_ptr<const MediaAsset> asset, double startSeconds, double endSeconds);
    ~AssetReader();
    AssetReader(AssetReader&&) noexcept;
    AssetReader& operator=(AssetReader&&) noexcept;

    // Whether the track can be delivered in that format.
    bool canAddOutput(const VideoTrack& track, FourCC format) const;
    void addOutput(const VideoTrack& track, FourCC format);

    // Opens the decoder and goes to the start of the range. False when that failed: see error().
    bool startReading();

    // The next picture whose display interval touches the range; null at the end of the range, after
    // cancelReading(), and on failure: status() tells which.
    std::optional<VideoSample> copyNextSampleBuffer();

    void cancelReading();

    Status status() const;
    // The failure behind Status::failed.
    const std::optional<Error>& error() const;

private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace panoveer
