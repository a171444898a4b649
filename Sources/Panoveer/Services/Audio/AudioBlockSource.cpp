#include "Panoveer/Services/Audio/AudioBlockSource.h"

#include "Panoveer/Services/Audio/FFmpegAudioReader.h"
#include "Platform/Core/Error.h"
#include "Platform/Core/Localization.h"
#include "Platform/Core/Log.h"
#include "Platform/Media/AssetAudioReader.h"
#include "Platform/Media/AudioSampleBuffer.h"
#include "Platform/Media/MediaAsset.h"

#include <algorithm>
#include <cmath>

namespace panoveer {

namespace {

constexpr Logger logger("Audio");

// Reaches into a read that is under way.
using StopCallback = std::stop_callback<std::function<void()>>;

class NativeSource final : public AudioBlockSource {
public:
    NativeSource(std::shared_ptr<const MediaAsset> asset, const AudioTrack& track, double startSeconds,
                 const std::optional<AudioChannelLayout>& convertTo, const std::stop_token& stop)
        : reader_(std::move(asset), track, startSeconds, convertTo),
          cancel_(stop, [this] { reader_.cancelReading(); }) {
        if (!reader_.startReading())
            throwEnd();
    }

    std::optional<AudioBlock> next() override {
        if (auto block = reader_.copyNextBlock())
            return AudioBlock{std::move(block->samples), block->frames, block->channelCount,
                              block->presentationSeconds};
        if (reader_.status() != AssetAudioReader::Status::completed)
            throwEnd();
        return std::nullopt;
    }

private:
    [[noreturn]] void throwEnd() const {
        if (reader_.status() == AssetAudioReader::Status::cancelled)
            throw Cancelled();
        throw Error(reader_.error().value());
    }

    AssetAudioReader reader_;
    StopCallback cancel_;
};

class FFmpegSource final : public AudioBlockSource {
public:
    FFmpegSource(std::string name, FFmpegAudioReader reader, std::stop_token stop)
        : name_(std::move(name)),
          reader_(std::move(reader)),
          stop_(std::move(stop)),
          cancel_(stop_, [this] { reader_.cancelReading(); }) {}

    std::optional<AudioBlock> next() override {
        // A broadcast that was cut begins with half a packet, and a disk has bad sectors: the gap becomes silence.
        constexpr int mostFailuresInARow = 100;
        for (int failures = 0;; ++failures) {
            try {
                auto frame = reader_.copyNextFrame();
                if (!frame && stop_.stop_requested())
                    throw Cancelled();
                if (!frame)
                    return std::nullopt;
                const double seconds = runningTime(*frame);
                end_ = seconds + double(frame->sampleCount) / audioSampleRate;
                return AudioBlock{std::move(frame->samples), frame->sampleCount, frame->channelCount, seconds};
            } catch (const FFmpegReaderError& error) {
                if (failures == mostFailuresInARow)
                    throw;
                if (failures == 0)
                    logger.warning("damaged audio passed over file={} error={}", name_, error.what());
            }
        }
    }

private:
    // Sound that runs on is timed by its samples: Matroska counts milliseconds, and other time stamps wander, too. Only
    // a jump is believed to them; a lost packet leaves a larger gap.
    double runningTime(const FFmpegDecodedAudioFrame& frame) const {
        constexpr double jitterSeconds = 0.010;
        return end_ && std::abs(frame.ptsSeconds - *end_) <= jitterSeconds ? *end_ : frame.ptsSeconds;
    }

    std::string name_;
    FFmpegAudioReader reader_;
    std::stop_token stop_;
    StopCallback cancel_;
    std::optional<double> end_; // of the last block
};

} // namespace

std::unique_ptr<AudioBlockSource> NativeAudioRoad::operator()(const URL& url, std::int32_t trackID, double startSeconds,
                                                              const std::optional<AudioChannelLayout>& convertTo,
                                                              const std::stop_token& stop) {
    if (!asset_ || asset_->url() != url)
        asset_ = MediaAsset::load(url);
    const auto track = std::ranges::find(asset_->audioTracks(), trackID, &AudioTrack::streamIndex);
    if (track == asset_->audioTracks().end())
        throw Error(localized("error.export.reader_failed"), std::string(mediaErrorDomain)); // another file by now
    return std::make_unique<NativeSource>(asset_, *track, startSeconds, convertTo, stop);
}

std::unique_ptr<AudioBlockSource> openFFmpegAudio(const URL& url, std::int32_t streamIndex, double startSeconds,
                                                  double durationSeconds, std::uint64_t channelMask,
                                                  const std::stop_token& stop) {
    return std::make_unique<FFmpegSource>(
        url.lastPathComponent(), FFmpegAudioReader(url, streamIndex, startSeconds, durationSeconds, channelMask), stop);
}

} // namespace panoveer
