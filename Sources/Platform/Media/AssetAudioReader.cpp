#include "Platform/Media/AssetAudioReader.h"

#include "Platform/Media/AudioConverter.h"
#include "Platform/Media/AudioDecoder.h"
#include "Platform/Media/AudioSampleBuffer.h"
#include "Platform/Media/TrackReading.h"

#include <algorithm>
#include <cmath>
#include <numeric>
#include <utility>

extern "C" {
#include <libavcodec/codec_par.h>
#include <libavutil/frame.h>
}

namespace panoveer {

namespace {

// Nearer than half a frame of 48,000 Hz, two times are the same.
constexpr double timeTolerance = 0.5 / audioSampleRate;

} // namespace

struct AssetAudioReader::State : TrackReading<AudioDecoder> {
    State(std::shared_ptr<const MediaAsset> movie, const AudioTrack& audio, double start,
          std::optional<AudioChannelLayout> layout)
        : TrackReading(std::move(movie), start), track(audio), convertTo(std::move(layout)) {}

    AudioTrack track;
    std::optional<AudioChannelLayout> convertTo;
    std::optional<AudioConverter> converter;
    std::optional<DecodedSound> ahead; // begins a new piece: what is before it is still in the converter
    // The piece of sound that runs: when it began, and how many frames it has given so far.
    bool hasBegun = false;
    std::optional<double> pieceSeconds;
    std::int64_t pieceFrames = 0;
    double pieceEnd = 0; // where its decoded samples end

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
                complete();
                return std::nullopt;
            }
            auto block = timed(std::move(samples));
            if (cutToStart(block))
                return block;
        }
    }
};

AssetAudioReader::AssetAudioReader(std::shared_ptr<const MediaAsset> asset, const AudioTrack& track,
                                   double startSeconds, std::optional<AudioChannelLayout> convertTo)
    : state_(std::make_unique<State>(std::move(asset), track, startSeconds, std::move(convertTo))) {}

AssetAudioReader::~AssetAudioReader() = default;
AssetAudioReader::AssetAudioReader(AssetAudioReader&&) noexcept = default;
AssetAudioReader& AssetAudioReader::operator=(AssetAudioReader&&) noexcept = default;

bool AssetAudioReader::startReading() {
    return state_->start([&] { state_->open(); });
}

std::optional<AssetAudioReader::Block> AssetAudioReader::copyNextBlock() {
    return state_->next([&] { return state_->nextBlock(); });
}

void AssetAudioReader::cancelReading() { state_->cancel(); }

AssetAudioReader::Status AssetAudioReader::status() const { return state_->status; }

const std::optional<Error>& AssetAudioReader::error() const { return state_->error; }

} // namespace panoveer
