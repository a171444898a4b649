#pragma once

#include "Platform/Media/AssetWriter.h"
#include "Platform/Media/MediaQueue.h"
#include "Platform/Media/VideoEncoder.h"
#include "Platform/Media/WriterInput.h"

#include <optional>
#include <thread>

namespace panoveer {

// The video input of AssetWriter: a short queue of pictures, and the thread that takes them to the encoder and its
// packets to the muxer. Not for other layers.
class QueuedVideoInput final : public VideoInput, public WriterInput {
public:
    QueuedVideoInput(const VideoSettings& settings, FourCC pictureFormat, std::int32_t mediaTimeScale);
    ~QueuedVideoInput() override;

    bool isReadyForMoreMediaData() const override;
    bool append(PixelBufferPtr picture, MediaTime presentationTime) override;
    bool appendTaggedBuffers(std::span<const TaggedPixelBuffer> pictures, MediaTime presentationTime) override;
    void markAsFinished() override { finish(); }

    void start(MovieMuxer& muxer, int track, FailureHandler fail) override;
    void setSessionStart(MediaTime time) override;
    void finish() override;
    void stop() noexcept override;
    void join() override;

private:
    struct Entry {
        PixelBufferPtr picture;
        PixelBufferPtr rightEye;           // of a multiview track, where `picture` is the left eye's
        std::int64_t presentationTime = 0; // units of the media timescale, from the session's start
    };

    bool refuse(const std::string& message);
    bool fits(const PixelBufferPtr& picture) const;
    bool enqueue(Entry entry, MediaTime presentationTime);
    std::int64_t mediaTime(MediaTime time) const;
    void work();
    void encode(Entry entry);
    void openEncoder();
    void beginTrack(const ColorAttachments& firstPicture);
    std::int64_t durationAt(std::int64_t presentationTime);

    EncoderConfiguration configuration_;
    const bool hasConstantDuration_; // as the settings say
    MovieMuxer* muxer_ = nullptr;
    int track_ = 0;
    FailureHandler fail_;

    // Of the encoder's thread, once it runs.
    std::unique_ptr<VideoEncoder> encoder_;
    bool hasBegun_ = false;
    std::optional<std::int64_t> encodedTime_;

    MediaTime sessionStart_; // set before the first picture comes
    std::optional<std::int64_t> appendedTime_;
    MediaQueue<Entry> queue_;

    std::jthread thread_; // last: it is joined before the rest goes
};

} // namespace panoveer
