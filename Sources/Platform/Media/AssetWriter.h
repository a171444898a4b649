#pragma once

#include "Platform/Core/Error.h"
#include "Platform/Core/FourCC.h"
#include "Platform/Core/MediaTime.h"
#include "Platform/Core/URL.h"
#include "Platform/Media/AudioSampleBuffer.h"
#include "Platform/Media/AudioSettings.h"
#include "Platform/Media/ImmersiveMediaProperties.h"
#include "Platform/Media/PixelBuffer.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <stop_token>
#include <string>

namespace panoveer {

// m4a is an mp4 with the brand of sound alone.
enum class MovieFileType { mp4, quickTimeMovie, m4a };

enum class VideoProfile { automatic, h264High, hevcMain, hevcMain10 };

// What a movie track is to be encoded as. Codec types: "avc1" (H.264), "hvc1" (HEVC), "muxa" (HEVC with alpha, which is
// "hvc1" in the file), and the ProRes family "apco" (Proxy), "apcs" (LT), "apcn" (422), "apch" (HQ), "ap4h" (4444),
// "ap4x" (4444 XQ).
struct VideoSettings {
    FourCC codec;
    int width = 0;
    int height = 0;
    VideoProfile profile = VideoProfile::automatic;
    std::optional<std::int64_t> averageBitRate; // bits per second; absent for ProRes, whose quality governs
    std::optional<int> maximumKeyFrameInterval; // frames
    std::optional<int> expectedSourceFrameRate; // frames per second
    // How long each picture is shown, where that is constant: the exact clock of the rate control and the length of the
    // last picture. Not valid, as at first: the encoder goes by expectedSourceFrameRate, and the last picture is shown
    // as long as the one before it.
    MediaTime frameDuration;
    // Of the output, H.273 code points, video range; written as `colr` and into the stream. Mastering display and light
    // level go into `mdcv` and `clli` and into the stream. What is unsaid here is taken from the first picture.
    ColorAttachments color;
    // Goes into the sample entry. With multiview properties the track has a layer for each eye: "hvc1" only, and width
    // and height are those of one eye.
    ImmersiveMediaProperties immersiveMedia;

    bool isMultiview() const { return immersiveMedia.multiview.has_value(); }
};

enum class StereoView { leftEye, rightEye };

// One of the pictures that a multiview track shows at a time.
struct TaggedPixelBuffer {
    PixelBufferPtr pixelBuffer;
    int videoLayerID = 0;
    StereoView stereoView = StereoView::leftEye;
};

// Encodes the pictures of one track on a thread of its own, behind a bounded queue. append() and markAsFinished()
// belong to one thread; the readiness query to any.
class VideoInput {
public:
    virtual ~VideoInput() = default;

    // Room in the queue of a writer that is writing. While true, append() does not block.
    virtual bool isReadyForMoreMediaData() const = 0;
    // Hands one picture over, blocking while there is no room; it is released as soon as the encoder has read it. Times
    // rise strictly; pictures before the session's start are left out. False when the writer is not writing, and when a
    // picture of another format or size, or one out of order, has made it fail: see its error().
    virtual bool append(PixelBufferPtr picture, MediaTime presentationTime) = 0;
    // The same for the pictures of both eyes, each of the track's size: the left one in layer 0, then the right one in
    // layer 1. Fails in any other arrangement, and in a track of single pictures, which takes append() only.
    virtual bool appendTaggedBuffers(std::span<const TaggedPixelBuffer> pictures, MediaTime presentationTime) = 0;
    // No picture follows. The encoder goes on by itself until it has given out all that it holds.
    virtual void markAsFinished() = 0;
};

// Encodes the sound of one track on a thread of its own, behind a bounded queue, as VideoInput does; the same rules for
// threads. The queue of every input also fills up while its track is some seconds ahead of another one, until that has
// caught up: whoever feeds several tracks from one thread goes by their readiness.
class AudioInput {
public:
    virtual ~AudioInput() = default;

    // As for VideoInput.
    virtual bool isReadyForMoreMediaData() const = 0;
    // Hands one block over, blocking while there is no room. A block without a time follows the one before; a gap
    // between two is filled with silence, an overlap makes the writer fail. Frames before the session's start are left
    // out. False as for VideoInput.
    virtual bool append(AudioSampleBuffer buffer) = 0;
    virtual void markAsFinished() = 0;
};

// Writes a movie file. The order of calls is: add inputs, startWriting, startSession, append…, perhaps endSession,
// finishWriting or cancelWriting. All calls come from one thread; status() and error() may be read from any. The first
// failure of an encoder or of the disk stops all inputs and stays: posixErrorDomain for what the file system refused
// (ENOSPC for a full disk), mediaErrorDomain for the rest.
//
// .mov files are fragmented as they grow when movieFragmentInterval is set, so that a killed process, or a writer that
// failed, leaves a movie that plays up to its last fragment; a finished file is an ordinary movie with one `moov`. .mp4
// files are never fragmented and have their `moov` in front of the media, with free space behind it; only when many
// more pictures came than were planned is it behind the media.
class AssetWriter {
public:
    // Values as the export's logs give them.
    enum class Status { unknown = 0, writing = 1, completed = 2, failed = 3, cancelled = 4 };

    AssetWriter(URL url, MovieFileType fileType);
    // A writer that is still writing is cancelled.
    ~AssetWriter();
    AssetWriter(const AssetWriter&) = delete;
    AssetWriter& operator=(const AssetWriter&) = delete;

    // Before startWriting. Where there is sound, the movie's timescale becomes the smallest multiple of this one in
    // which the length of the sound is exact.
    void setMovieTimeScale(std::int32_t timescale);
    void setInitialMovieFragmentInterval(MediaTime interval);
    void setMovieFragmentInterval(MediaTime interval);
    void setOverallDurationHint(MediaTime duration);

    // Whether an encoder for these settings opens here, at this size; `reason`, when given, says why not. Answers are
    // remembered for the life of the process.
    bool canApply(const VideoSettings& settings, std::string* reason = nullptr) const;

    // Pictures are to come in `pictureFormat`: "420v" for H.264 and HEVC Main, also "BGRA" for the latter, "x420" for
    // HEVC Main 10, "BGRA" for HEVC with alpha, "x422" for the ProRes 422 family, "BGRA" or "RGhA" for ProRes 4444.
    // `mediaTimeScale` is the track's
    // timescale, one for all video tracks; `plannedFrameCount` the number of pictures to expect, from which room for an
    // mp4's sample tables is reserved (0: estimated from the duration hint). Null when refused.
    VideoInput* addVideoInput(const VideoSettings& settings, FourCC pictureFormat, std::int32_t mediaTimeScale,
                              std::int64_t plannedFrameCount);

    // Whether audio like this can be encoded into this kind of file; `reason`, when given, says why not.
    bool canApply(const AudioSettings& settings, std::string* reason = nullptr) const;
    // `plannedFrameCount` is the number of frames (1/48,000 s) to expect, from which room for an mp4's sample tables is
    // reserved (0: estimated from the duration hint). Null when refused.
    AudioInput* addAudioInput(const AudioSettings& settings, std::int64_t plannedFrameCount);

    // False when the file cannot be made, since it exists already say, or an encoder cannot be opened: see error().
    bool startWriting();
    // The time of pictures that becomes the movie's 0; 0 unless called.
    void startSession(MediaTime sourceTime);
    // The time at which the movie ends: samples at or behind it that are not in the file yet are left out of it. Told
    // before the inputs are marked as finished. Without it the movie is as long as its longest track.
    void endSession(MediaTime sourceTime);

    // Drains the encoders and completes the file. Blocks; a stop ends that within the picture that an encoder is at,
    // and cancels the writing. True exactly when status() is then completed.
    bool finishWriting(std::stop_token stop = {});
    // Stops the encoders, each within the picture that it is at, and removes the file, of a failed writer too. A
    // completed movie stays.
    void cancelWriting();

    Status status() const;
    std::optional<Error> error() const;

private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace panoveer
