#include "Platform/Media/AssetReader.h"

#include "Platform/Media/FrameConverter.h"
#include "Platform/Media/MediaSupport.h"
#include "Platform/Media/MovieDecoder.h"
#include "Platform/Media/TrackReading.h"

namespace panoveer {

namespace {

// Times come from rationals through doubles: nearer than this they are the same.
constexpr double timeTolerance = 1e-6;

} // namespace

struct AssetReader::State : TrackReading<MovieDecoder> {
    State(std::shared_ptr<const MediaAsset> movie, double start, double end)
        : TrackReading(std::move(movie), start), endSeconds(end) {}

    double endSeconds;
    std::optional<VideoTrack> track;
    FourCC format;
    std::optional<FrameConverter> converter;
    bool isPositioned = false; // the decoder stands at the start of the range

    void open() {
        decoder.emplace(*asset, *track, interrupt);
        converter.emplace(format, track->formatDescriptions.front().color);
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
        if (!frame || frame->seconds >= endSeconds - timeTolerance) {
            complete();
            return std::nullopt;
        }
        return VideoSample{converter->convert(std::move(frame->frame)), frame->seconds};
    }
};

AssetReader::AssetReader(std::shared_ptr<const MediaAsset> asset, double startSeconds, double endSeconds)
    : state_(std::make_unique<State>(std::move(asset), startSeconds, endSeconds)) {}

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
    return state_->track && state_->start([&] { state_->open(); });
}

std::optional<VideoSample> AssetReader::copyNextSampleBuffer() {
    return state_->next([&] { return state_->nextSample(); });
}

void AssetReader::cancelReading() { state_->cancel(); }

AssetReader::Status AssetReader::status() const { return state_->status; }

const std::optional<Error>& AssetReader::error() const { return state_->error; }

} // namespace panoveer
