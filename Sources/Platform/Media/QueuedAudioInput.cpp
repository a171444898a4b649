#include "Platform/Media/QueuedAudioInput.h"

#include "Platform/Media/MovieMuxer.h"

#include <algorithm>
#include <format>
#include <utility>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/mathematics.h>
}

namespace panoveer {

namespace {

constexpr std::size_t queueCapacity = audioSampleRate / 2; // frames

constexpr std::int64_t silenceBlock = 4096; // frames

} // namespace

QueuedAudioInput::QueuedAudioInput(const AudioSettings& settings, MovieFileType fileType)
    : settings_(settings), fileType_(fileType), queue_(queueCapacity) {}

QueuedAudioInput::~QueuedAudioInput() { stop(); }

bool QueuedAudioInput::append(AudioSampleBuffer buffer) {
    const auto channels = std::int64_t(settings_.channelCount);
    if (!buffer.format || buffer.format->channelCount != settings_.channelCount || buffer.frames < 0 ||
        std::int64_t(buffer.samples.size()) != buffer.frames * channels)
        return refuse("A block of sound of another format or size than the track's");
    if (!queue_.waitForRoom())
        return false;
    auto position = positionOf(buffer).value_or(appendedFrames_);
    const auto early = std::clamp<std::int64_t>(-position, 0, buffer.frames);
    if (early > 0) {
        buffer.samples.erase(buffer.samples.begin(), buffer.samples.begin() + early * channels);
        position += early;
    }
    if (buffer.samples.empty())
        return true;
    if (position < appendedFrames_)
        return refuse(std::format("A block of sound at {} follows one that ends at {}", position, appendedFrames_));
    const auto frames = std::int64_t(buffer.samples.size()) / channels;
    appendedFrames_ = position + frames;
    return queue_.push({std::move(buffer.samples), position}, std::size_t(frames));
}

bool QueuedAudioInput::refuse(const std::string& message) {
    if (fail_)
        fail_(Error(message, std::string(mediaErrorDomain), mediaErrorCode::operationNotSupported));
    return false;
}

std::optional<std::int64_t> QueuedAudioInput::positionOf(const AudioSampleBuffer& buffer) const {
    const auto scaled = [](const MediaTime& time) {
        return time.isValid() ? av_rescale(time.value, audioSampleRate, time.timescale) : 0;
    };
    if (!buffer.presentationTime || !buffer.presentationTime->isValid())
        return std::nullopt;
    return scaled(*buffer.presentationTime) - scaled(sessionStart_);
}

void QueuedAudioInput::start(MovieMuxer& muxer, int track, FailureHandler fail) {
    muxer_ = &muxer;
    track_ = track;
    fail_ = std::move(fail);
    encoder_ = makeAudioEncoder(settings_, fileType_, [this](PacketPtr packet) {
        if (queue_.isStopped())
            throw Cancelled();
        muxer_->write(track_, std::move(packet));
    });
    muxer.configureTrack(track, encoder_->parameters(), audioSampleRate, description());
    queue_.open();
    thread_ = std::jthread([this] { work(); });
}

SoundDescription QueuedAudioInput::description() const {
    SoundDescription description{.layout = std::nullopt,
                                 .languageCode = settings_.languageCode,
                                 .extendedLanguageTag = settings_.extendedLanguageTag};
    // An MP4 says of AAC nothing but what the stream itself says.
    if (fileType_ == MovieFileType::quickTimeMovie || settings_.codec == AudioSettings::Codec::linearPCM24)
        description.layout = settings_.writerLayout;
    return description;
}

void QueuedAudioInput::join() {
    if (thread_.joinable())
        thread_.join();
    encoder_.reset();
}

void QueuedAudioInput::work() {
    try {
        std::optional<Entry> entry;
        while (queue_.take(entry)) {
            if (!entry) {
                encoder_->finish();
                return muxer_->finishTrack(track_);
            }
            encode(*entry);
        }
    } catch (const Cancelled&) {
        // Stopped while the encoder gave out what it held.
    } catch (const std::exception&) {
        fail_(currentError());
    }
}

void QueuedAudioInput::encode(const Entry& entry) {
    const auto channels = std::int64_t(settings_.channelCount);
    while (encodedFrames_ < entry.position) {
        const auto frames = std::min(entry.position - encodedFrames_, silenceBlock);
        encoder_->encode(std::vector<float>(std::size_t(frames * channels)));
        encodedFrames_ += frames;
    }
    encoder_->encode(entry.samples);
    encodedFrames_ += std::int64_t(entry.samples.size()) / channels;
}

} // namespace panoveer
