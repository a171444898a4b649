#pragma once

#include "Platform/Media/AssetWriter.h"
#include "Platform/Media/AudioEncoder.h"
#include "Platform/Media/MediaQueue.h"
#include "Platform/Media/SoundDescription.h"
#include "Platform/Media/WriterInput.h"

#include <optional>
#include <thread>
#include <vector>

namespace panoveer {

// The audio input of AssetWriter: a queue of blocks, and the thread that takes them to the encoder and its packets to
// the muxer. Not for other layers.
class QueuedAudioInput final : public AudioInput, public WriterInput {
public:
    QueuedAudioInput(const AudioSettings& settings, MovieFileType fileType);
    ~QueuedAudioInput() override;

    bool isReadyForMoreMediaData() const override { return queue_.hasRoom(); }
    bool append(AudioSampleBuffer buffer) override;
    void markAsFinished() override { finish(); }

    void start(MovieMuxer& muxer, int track, FailureHandler fail) override;
    void setSessionStart(MediaTime time) override { sessionStart_ = time; }
    void finish() override { queue_.finish(); }
    void stop() noexcept override { queue_.stop(); }
    void join() override;

private:
    struct Entry {
        std::vector<float> samples;
        std::int64_t position = 0; // of the first frame, from the session's start
    };

    bool refuse(const std::string& message);
    std::optional<std::int64_t> positionOf(const AudioSampleBuffer& buffer) const;
    void work();
    void encode(const Entry& entry);
    SoundDescription description() const;

    const AudioSettings settings_;
    const MovieFileType fileType_;
    MovieMuxer* muxer_ = nullptr;
    int track_ = 0;
    FailureHandler fail_;

    // Of the encoder's thread, once it runs.
    std::unique_ptr<AudioEncoder> encoder_;
    std::int64_t encodedFrames_ = 0;

    MediaTime sessionStart_;          // set before the first block comes
    std::int64_t appendedFrames_ = 0; // from the session's start to the end of the last block
    MediaQueue<Entry> queue_;

    std::jthread thread_; // last: it is joined before the rest goes
};

} // namespace panoveer
