#pragma once

#include "Panoveer/Model/Records/VideoAsset.h"
#include "Panoveer/Services/Intake/ImmersiveFormatDetector.h"
#include "Platform/Core/Error.h"
#include "Platform/Core/URL.h"

#include <functional>
#include <optional>
#include <stop_token>

namespace panoveer {

// Why a file could not become an asset. what() is the text for the person in the language of the throw.
class VideoMetadataError : public Error {
public:
    enum class Case { noVideoTrack };

    explicit VideoMetadataError(Case reason);

    Case reason() const noexcept { return reason_; }

private:
    Case reason_;
};

// Turns a file into a VideoAsset and settles which decoder every later stage uses for it. It knows three roads:
//
//   native       MediaAsset; keeps ten bits and HDR. First for every file but those of FFmpeg's own containers.
//   FFmpeg       FFmpegRuntime; reads nearly everything.
//   Canon raw    the box walk of CanonRawMetadataReader, for .crm alone, whose codec no decoder knows.
//
// Holds no state. Blocking; any thread, several at once.
class VideoMetadataReader {
public:
    // Makes, or finds, the audio file whose clock drives the preview of a file that FFmpeg decodes. Duration in
    // seconds. No value where there is none; may throw, which fails the FFmpeg road.
    using PlaybackClockBuilder = std::function<std::optional<URL>(const URL& sourceURL, double duration,
                                                                  bool hasAudioStream, const std::stop_token& stop)>;

    // The asset as its streams describe it, under a new id: detectedFormat is a guess from the size, formatDetection
    // and securityScopedBookmark are absent. Throws VideoMetadataError, CanonRawMetadataError, FFmpegReaderError, or
    // an Error of the platform layer; Cancelled between two steps once a stop was requested. Without a builder no asset
    // gets a playback clock, which only previews need.
    static VideoAsset readStreams(const URL& url, const std::stop_token& stop = {},
                                  const PlaybackClockBuilder& buildPlaybackClock = {});

    // The asset with what its file was found to be, in detectedFormat and formatDetection: by the container, the file
    // name, a few frames of a playable file, and the shape. Never throws but for want of memory; a file that cannot be
    // read any more just gives less evidence. A requested stop ends it sooner with what was found by then.
    static VideoAsset withFormatDetection(VideoAsset asset, const std::stop_token& stop = {},
                                          const StatedImmersiveFormat& stated = {});
};

} // namespace panoveer
