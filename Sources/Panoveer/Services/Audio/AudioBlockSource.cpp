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

class NativeSource final : public AudioBlockSource {
public:
    explicit NativeSource(AssetAudioReader reader) : reader_(std::move(reader)) {}

    std::optional<AudioBlock> next() override {
        if (auto block = reader_.copyNextBlock())
            return AudioBlock{std::move(block->samples), block->frames, block->channelCount,
                              block->presentationSeconds};
        if (reader_.status() == AssetAudioReader::Status::failed)
            throwFailure(reader_);
        return std::nullopt;
    }

    [[noreturn]] static void throwFailure(const AssetAudioReader& reader) {
        if (reader.error())
            throw Error(*reader.error());
        throw Error(localized("error.export.reader_failed"), std::string(mediaErrorDomain));
    }

private:
    AssetAudioReader reader_;
};

class FFmpegSource final : public AudioBlockSource {
public:
    FFmpegSource(std::string name, FFmpegAudioReader reader) : name_(std::move(name)), reader_(std::move(reader)) {}

    std::optional<AudioBlock> next() override {
        // A broadcast that was cut begins with half a packet, and a disk has bad sectors: the gap becomes silence.
        constexpr int mostFailuresInARow = 100;
        for (int failures = 0;; ++failures) {
            try {
                auto frame = reader_.copyNextFrame();
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
    std::optional<double> end_; // of the last block
};

} // namespace

std::unique_ptr<AudioBlockSource> openNativeAudio(const URL& url, std::int32_t trackID, double startSeconds,
                                                  const std::optional<AudioChannelLayout>& convertTo) {
    const auto asset = MediaAsset::load(url);
    const auto track = std::ranges::find(asset->audioTracks(), trackID, &AudioTrack::streamIndex);
    if (track == asset->audioTracks().end())
        throw Error(localized("error.export.reader_failed"), std::string(mediaErrorDomain)); // another file by now
    AssetAudioReader reader(asset, *track, startSeconds, convertTo);
    if (!reader.startReading())
        NativeSource::throwFailure(reader);
    return std::make_unique<NativeSource>(std::move(reader));
}

std::unique_ptr<AudioBlockSource> openFFmpegAudio(const URL& url, std::int32_t streamIndex, double startSeconds,
                                                  double durationSeconds, std::uint64_t channelMask) {
    return std::make_unique<FFmpegSource>(
        url.lastPathComponent(), FFmpegAudioReader(url, streamIndex, startSeconds, durationSeconds, channelMask));
}

} // namespace panoveer
