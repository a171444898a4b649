#include "Platform/Media/AssetReader.h"

#include "Platform/Core/Log.h"
#include "Platform/Media/FrameConverter.h"
#include "Platform/Media/MediaSupport.h"
#include "Platform/Media/MovieDecoder.h"

#include <algorithm>
#include <atomic>
#include <new>

namespace panoveer {

namespace {

constexpr Logger logger("Media");

// Times come from rationals through doubles: nearer than this they are the same.
constexpr double timeTolerance = 1e-6;

constexpr double latestStart = 1e9; // seconds: behind the end of any movie

} // namespace

struct AssetReader::State {
    std::shared_ptr<const MediaAsset> asset;
    double startSeconds;
    double endSeconds;
    std::optional<VideoTrack> track;
    FourCC format;
    std::atomic<bool> interrupt = false; // what the decoder watches
    std::optional<MovieDecoder> decoder;
    std::optional<FrameConverter> converter;
    bool isPositioned = false; // the decoder stands at the start of the range
    std::atomic<Status> status = Status::unknown;
    std::optional<Error> error;

    // A cancellation from another thread stands against whatever comes later.
    void end(Status how) {
        auto expected = Status::reading;
        status.compare_exchange_strong(expected, how);
        if (decoder && decoder->decodeErrorCount() > 0)
            logger.warning("{}: {} faulty packets were passed over", asset->url().lastPathComponent(),
                           decoder->decodeErrorCount());
        decoder.reset();
    }

    void fail(Error failure) {
        error = std::move(failure);
        end(Status::failed);
    }

    std::optional<DecodedFrame> nextFrame() {
        if (isPositioned)
            return decoder->next();
        decoder->goTo(startSeconds);
        isPositioned = true;
        auto first = decoder->next();
        // Only the very last frame of a track can be over before the start: any other lasts until the next begins.
        const auto isOver = [&](const DecodedFrame& frame) {
            return frame.seconds + frame.durationSeconds <= startSeconds + timeTolerance && !decoder->peek();
        };
        return first && isOver(*first) ? std::nullopt : std::move(first);
    }

    std::optional<VideoSample> nextSample() {
        auto frame = nextFrame();
        if (!frame && decoder->decodedFrameCount() == 0 && decoder->decodeError())
            throw *decoder->decodeError();
        if (!frame || frame->seconds >= endSeconds - timeTolerance) {
            end(Status::completed);
            return std::nullopt;
        }
        return VideoSample{converter->convert(std::move(frame->frame)), frame->seconds};
    }
};

AssetReader::AssetReader(std::shared_ptr<const MediaAsset> asset, double startSeconds, double endSeconds)
    : state_(std::make_unique<State>()) {
    state_->asset = std::move(asset);
    // No number at all counts as the head, like a negative one.
    state_->startSeconds = startSeconds > 0 ? std::min(startSeconds, latestStart) : 0;
    state_->endSeconds = endSeconds;
}

AssetReader::~AssetReader() = default;
AssetReader::AssetReader(AssetReader&&) noexcept = default;
AssetReader& AssetReader::operator=(AssetReader&&) noexcept = default;

bool AssetReader::canAddOutput(const VideoTrack& track, FourCC format) const {
    return state_->status == Status::unknown && !state_->track && track.isDecodable &&
           FrameConverter::canDeliver(format);
}

void AssetReader::addOutput(const VideoTrack& track, FourCC format) {
    if (!canAddOutput(track, format))
        throw Error("Cannot read the video track as " + format.text(), std::string(mediaErrorDomain),
                    mediaErrorCode::operationNotSupported);
    state_->track = track;
    state_->format = format;
}

bool AssetReader::startReading() {
    auto expected = Status::unknown;
    if (!state_->track || !state_->status.compare_exchange_strong(expected, Status::reading))
        return false;
    try {
        state_->decoder.emplace(*state_->asset, *state_->track, state_->interrupt);
        state_->converter.emplace(state_->format, state_->track->formatDescriptions.front().color);
        return true;
    } catch (const Cancelled&) {
    } catch (const Error& failure) {
        state_->fail(failure);
    } catch (const std::bad_alloc&) {
        state_->fail(outOfMemoryError());
    }
    return false;
}

std::optional<VideoSample> AssetReader::copyNextSampleBuffer() {
    if (state_->status != Status::reading)
        return std::nullopt;
    try {
        return state_->nextSample();
    } catch (const Cancelled&) {
        state_->end(Status::cancelled);
    } catch (const Error& failure) {
        state_->fail(failure);
    } catch (const std::bad_alloc&) {
        state_->fail(outOfMemoryError());
    }
    return std::nullopt;
}

void AssetReader::cancelReading() {
    state_->interrupt = true;
    for (auto from : {Status::unknown, Status::reading})
        if (auto expected = from; state_->status.compare_exchange_strong(expected, Status::cancelled))
            return;
}

AssetReader::Status AssetReader::status() const { return state_->status; }

const std::optional<Error>& AssetReader::error() const { return state_->error; }

} // namespace panoveer
