#pragma once

#include "Platform/Core/Error.h"
#include "Platform/Core/FourCC.h"
#include "Platform/Core/MediaTime.h"
#include "Platform/Core/URL.h"
#include "Platform/Media/PixelBuffer.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace panoveer {

enum class MovieFileType { mp4, quickTimeMovie };

enum class VideoProfile { automatic, h264High, hevcMain, hevcMain10 };

// What a movie track is to be encoded as. Codec types: "avc1" (H.264), "hvc1" (HEVC), and the ProRes family "apco"
// (Proxy), "apcs" (LT), "apcn" (422), "apch" (HQ), "ap4h" (4444), "ap4x" (4444 XQ).
struct VideoSettings {
    FourCC codec;
    int width = 0;
    int height = 0;
    VideoProfile profile = VideoProfile::automatic;
    std::optional<std::int64_t> averageBitRate; // bits per second; absent for ProRes, whose quality governs
    std::optional<int> maximumKeyFrameInterval; // frames
    std::optional<int> expectedSourceFrameRate; // frames per second
    // Of the output, H.273 code points; written as `colr` and into the stream. Mastering display and light level
    // go into `mdcv` and `clli`: from here, or else from the first appended picture.
    ColorAttachments color;
};

// Encodes the pictures of one track on a thread of its own, behind a bounded queue. append() and markAsFinished()
// belong to one thread; the readiness query to any.
class VideoInput {
public:
    virtual ~VideoInput() = default;

    // Room in the queue. While true, append() does not block.
    virtual bool isReadyForMoreMediaData() const = 0;
    // Blocks until there is room, the writer fails or `deadlineSeconds` have passed; then answers as above.
    virtual bool waitUntilReady(double deadlineSeconds) = 0;
    // Hands one picture over. Times rise strictly. False when the writer is not writing or refuses: see its error().
    virtual bool append(PixelBufferPtr picture, MediaTime presentationTime) = 0;
    virtual void markAsFinished() = 0;
};

// Writes a movie file. The order of calls is: add inputs, startWriting, startSession, append…, finishWriting or
// cancelWriting. All calls come from one thread; status() and error() may be read from any.
//
// .mov files are fragmented as they grow when movieFragmentInterval is set, so that a killed process leaves a movie
// that plays up to its last fragment; a finished file is an ordinary movie with one `moov`. .mp4 files are never
// fragmented and have their `moov` in front of the media.
class AssetWriter {
public:
    // Values as the export's logs give them.
    enum class Status { unknown = 0, writing = 1, completed = 2, failed = 3, cancelled = 4 };

    AssetWriter(URL url, MovieFileType fileType);
    ~AssetWriter();
    AssetWriter(const AssetWriter&) = delete;
    AssetWriter& operator=(const AssetWriter&) = delete;

    // Before startWriting.
    void setMovieTimeScale(std::int32_t timescale);
    void setInitialMovieFragmentInterval(MediaTime interval);
    void setMovieFragmentInterval(MediaTime interval);
    void setOverallDurationHint(MediaTime duration);

    // Whether an encoder for these settings opens here, at this size; `reason`, when given, says why not. Answers are
    // remembered for the life of the process.
    bool canApply(const VideoSettings& settings, std::string* reason = nullptr) const;

    // Pictures are to come in `pictureFormat`. `mediaTimeScale` is the track's timescale; `plannedFrameCount` the
    // number of pictures to expect, from which room for an mp4's sample tables is reserved (0: not known). Null when
    // refused.
    VideoInput* addVideoInput(const VideoSettings& settings, FourCC pictureFormat, std::int32_t mediaTimeScale,
                              std::int64_t plannedFrameCount);

    // False when the file cannot be made or an encoder cannot be opened: see error().
    bool startWriting();
    void startSession(MediaTime sourceTime);

    // Drains the encoders and completes the file. Blocks. True exactly when status() is then completed.
    bool finishWriting();
    // Stops the encoders and removes the file.
    void cancelWriting();

    Status status() const;
    std::optional<Error> error() const;

private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace panoveer
