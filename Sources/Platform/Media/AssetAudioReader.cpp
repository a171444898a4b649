#include "Platform/Media/AssetAudioReader.h"

#include "Platform/Core/Log.h"
#include "Platform/Media/AudioConverter.h"
#include "Platform/Media/AudioDecoder.h"
#include "Platform/Media/AudioSampleBuffer.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <new>
#include <numeric>
#include <utility>

extern "C" {
#include <libavcodec/codec_par.h>
#include <libavutil/frame.h>
}

namespace panoveer {

namespace {

constexpr Logger logger("Media");

constexpr double latestStart = 1e9; // seconds: behind the end of any movie

// Nearer than half a frame of 48,000 Hz, two times are the same.
constexpr double timeTolerance = 0.5 / audioSampleRate;

} // namespace

struct AssetAudioReader::State {
    std::shared_ptr<const MediaAsset> asset;
    AudioTrack track;
    double startSeconds = 0;
    std::optional<AudioChannelLayout> convertTo;
    std::atomic<bool> interrupt = false; // what the decoder watches
    std::optional<AudioDecoder> decoder;
    std::optional<AudioConverter> converter;
    std::optional<DecodedSound> ahead; // begins a new piece: what is before it is still in the converter
    // The piece of sound that runs: when it began, and how many frames it has given so far.
    bool hasBegun = false;
    std::optional<double> pieceSeconds;
    std::int64_t pieceFrames = 0;
    double pieceEnd = 0; // where its decoded samples end
    std::atomic<Status> status = Status::unknown;
    std::optional<Error> error;

    // A cancellation from another thread stands against whatever comes later.
    void end(Status how) {
        auto expected = Status::reading;
        status.compare_exchange_strong(expected, how);
        if (decoder && decoder->decodeErrorCount() > 0)
            logger.warning("{}: {} faulty audio packets were passed over", asset->url().lastPathComponent(),
                           decoder->decodeErrorCount());
        decoder.reset();
    }

    void fail(Error failure) {
        error = std::move(failure);
        end(Status::failed);
    }

    void open() {
        decoder.emplace(*asset, track, interrupt);
        converter.emplace(LibAVChannelLayout(track.decoderParameters->ch_layout), convertTo);
        decoder->goTo(startSeconds);
    }

    bool continues(const DecodedSound& sound) const {
        if (!hasBegun)
            return false;
        return !sound.seconds || !pieceSeconds || std::abs(*sound.seconds - pieceEnd) <= timeTolerance;
    }

    // Makes a piece that begins ahead of the start begin on a whole frame of 48,000 Hz, so that the same sound comes
    // out of the resampler from whatever start.
    void alignToOutput(DecodedSound& sound) const {
        constexpr double inaudible = 0.1; // seconds ahead of the start
        const int rate = sound.frame->sample_rate;
        if (!sound.seconds || *sound.seconds > startSeconds - inaudible)
            return;
        const int period = rate / std::gcd(rate, int(audioSampleRate));
        for (int skip = 0; skip < std::min(period, sound.count); ++skip) {
            const double frame = (*sound.seconds + double(skip) / rate) * audioSampleRate;
            constexpr double exact = 1e-3;
            if (std::abs(frame - std::round(frame)) > exact)
                continue;
            sound.first += skip;
            sound.count -= skip;
            *sound.seconds = std::round(frame) / audioSampleRate;
            return;
        }
    }

    void begin(const DecodedSound& sound) {
        hasBegun = true;
        pieceSeconds = sound.seconds;
        pieceEnd = sound.seconds.value_or(0);
        pieceFrames = 0;
    }

    void convert(const DecodedSound& sound, std::vector<float>& samples) {
        converter->convert(*sound.frame, sound.first, sound.count, samples);
        pieceEnd += double(sound.count) / sound.frame->sample_rate;
    }

    // The samples that come next out of the converter; empty at the end of the track.
    std::vector<float> nextSamples() {
        std::vector<float> samples;
        while (samples.empty()) {
            if (ahead) {
                alignToOutput(*ahead);
                begin(*ahead);
                convert(*std::exchange(ahead, std::nullopt), samples);
                continue;
            }
            auto sound = decoder->next();
            if (sound && continues(*sound)) {
                convert(*sound, samples);
                continue;
            }
            if (hasBegun)
                converter->drain(samples);
            if (!sound)
                break;
            ahead = std::move(sound);
        }
        return samples;
    }

    Block timed(std::vector<float> samples) {
        const int channels = converter->channelCount();
        Block block{std::move(samples), 0, channels, std::nullopt};
        block.frames = std::int64_t(block.samples.size()) / channels;
        if (pieceSeconds)
            block.presentationSeconds = *pieceSeconds + double(pieceFrames) / audioSampleRate;
        pieceFrames += block.frames;
        return block;
    }

    // Without what lies before the start; false when nothing is left.
    bool cutToStart(Block& block) const {
        if (!block.presentationSeconds)
            return true;
        const double early = std::round((startSeconds - *block.presentationSeconds) * audioSampleRate);
        if (early >= double(block.frames))
            return false;
        if (early > 0) {
            const auto count = std::ptrdiff_t(early) * block.channelCount;
            block.samples.erase(block.samples.begin(), block.samples.begin() + count);
            block.frames -= std::int64_t(early);
            *block.presentationSeconds += early / audioSampleRate;
        }
        return true;
    }

    std::optional<Block> nextBlock() {
        for (;;) {
            auto samples = nextSamples();
            if (samples.empty()) {
                if (decoder->decodedFrameCount() == 0 && decoder->decodeError())
                    throw *decoder->decodeError();
                end(Status::completed);
                return std::nullopt;
            }
            auto block = timed(std::move(samples));
            if (cutToStart(block))
                return block;
        }
    }

    // What `work` gives, or nothing when it fails or is cancelled.
    template<class Work>
    auto guarded(const Work& work) -> decltype(work()) {
        try {
            return work();
        } catch (const Cancelled&) {
            end(Status::cancelled);
        } catch (const Error& failure) {
            fail(failure);
        } catch (const std::bad_alloc&) {
            fail(outOfMemoryError());
        }
        return {};
    }
};

AssetAudioReader::AssetAudioReader(std::shared_ptr<const MediaAsset> asset, const AudioTrack& track,
                                   double startSeconds, std::optional<AudioChannelLayout> convertTo)
    : state_(std::make_unique<State>()) {
    state_->asset = std::move(asset);
    state_->track = track;
    // No number at all counts as the head, like a negative one.
    state_->startSeconds = startSeconds > 0 ? std::min(startSeconds, latestStart) : 0;
    state_->convertTo = std::move(convertTo);
}

AssetAudioReader::~AssetAudioReader() = default;
AssetAudioReader::AssetAudioReader(AssetAudioReader&&) noexcept = default;
AssetAudioReader& AssetAudioReader::operator=(AssetAudioReader&&) noexcept = default;

bool AssetAudioReader::startReading() {
    auto expected = Status::unknown;
    if (!state_->status.compare_exchange_strong(expected, Status::reading))
        return false;
    return state_->guarded([&] {
        state_->open();
        return true;
    });
}

std::optional<AssetAudioReader::Block> AssetAudioReader::copyNextBlock() {
    if (state_->status != Status::reading)
        return std::nullopt;
    return state_->guarded([&] { return state_->nextBlock(); });
}

void AssetAudioReader::cancelReading() {
    state_->interrupt = true;
    for (auto from : {Status::unknown, Status::reading})
        if (auto expected = from; state_->status.compare_exchange_strong(expected, Status::cancelled))
            return;
}

AssetAudioReader::Status AssetAudioReader::status() const { return state_->status; }

const std::optional<Error>& AssetAudioReader::error() const { return state_->error; }

} // namespace panoveer
