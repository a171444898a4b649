#include "Platform/Media/QueuedVideoInput.h"

#include "Platform/Media/ColorDescription.h"
#include "Platform/Media/ImmersiveMediaBoxes.h"
#include "Platform/Media/MovieMuxer.h"

#include <format>
#include <utility>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/mathematics.h>
}

namespace panoveer {

namespace {

// Enough that the encoder never waits for a caller that makes pictures as fast as it encodes them.
constexpr std::size_t queueCapacity = 3;

constexpr int fallbackFrameRate = 30;

MediaTime nominalFrameDuration(const VideoSettings& settings) {
    if (settings.frameDuration.isValid() && settings.frameDuration.value > 0)
        return settings.frameDuration;
    return {1, std::max(settings.expectedSourceFrameRate.value_or(fallbackFrameRate), 1)};
}

} // namespace

QueuedVideoInput::QueuedVideoInput(const VideoSettings& settings, FourCC pictureFormat, std::int32_t mediaTimeScale)
    : configuration_{.settings = settings,
                     .pictureFormat = pictureFormat,
                     .timescale = mediaTimeScale,
                     .frameDuration = nominalFrameDuration(settings)},
      hasConstantDuration_(settings.frameDuration.isValid()),
      queue_(queueCapacity) {}

QueuedVideoInput::~QueuedVideoInput() { stop(); }

bool QueuedVideoInput::isReadyForMoreMediaData() const { return queue_.hasRoom(); }

bool QueuedVideoInput::fits(const PixelBufferPtr& picture) const {
    const auto& settings = configuration_.settings;
    return picture && picture->format() == configuration_.pictureFormat && picture->width() == settings.width &&
           picture->height() == settings.height;
}

bool QueuedVideoInput::append(PixelBufferPtr picture, MediaTime presentationTime) {
    if (configuration_.settings.isMultiview())
        return refuse("A single picture for a track of two eyes");
    if (!fits(picture))
        return refuse("A picture of another format or size than the track's");
    return enqueue({.picture = std::move(picture)}, presentationTime);
}

bool QueuedVideoInput::appendTaggedBuffers(std::span<const TaggedPixelBuffer> pictures, MediaTime presentationTime) {
    const auto is = [&](std::size_t index, StereoView view) {
        return pictures[index].videoLayerID == int(index) && pictures[index].stereoView == view;
    };
    if (!configuration_.settings.isMultiview() || pictures.size() != 2 || !is(0, StereoView::leftEye) ||
        !is(1, StereoView::rightEye))
        return refuse("Pictures that are not those of a track's two eyes");
    if (!fits(pictures[0].pixelBuffer) || !fits(pictures[1].pixelBuffer))
        return refuse("A picture of another format or size than the track's");
    return enqueue({.picture = pictures[0].pixelBuffer, .rightEye = pictures[1].pixelBuffer}, presentationTime);
}

// Sets the entry's time.
bool QueuedVideoInput::enqueue(Entry entry, MediaTime presentationTime) {
    if (!queue_.waitForRoom())
        return false;
    const auto time = mediaTime(presentationTime);
    if (appendedTime_ && time <= *appendedTime_)
        return refuse(std::format("A picture at {} follows one at {}", time, *appendedTime_));
    appendedTime_ = time;
    entry.presentationTime = time;
    return time < 0 || queue_.push(std::move(entry));
}

bool QueuedVideoInput::refuse(const std::string& message) {
    if (fail_)
        fail_(Error(message, std::string(mediaErrorDomain), mediaErrorCode::operationNotSupported));
    return false;
}

// Exact wherever the two timescales agree.
std::int64_t QueuedVideoInput::mediaTime(MediaTime time) const {
    const auto scaled = [&](MediaTime each) {
        return each.isValid() ? av_rescale(each.value, configuration_.timescale, each.timescale) : 0;
    };
    return scaled(time) - scaled(sessionStart_);
}

void QueuedVideoInput::start(MovieMuxer& muxer, int track, FailureHandler fail) {
    muxer_ = &muxer;
    track_ = track;
    fail_ = std::move(fail);
    openEncoder();
    queue_.open();
    thread_ = std::jthread([this] { work(); });
}

void QueuedVideoInput::setSessionStart(MediaTime time) { sessionStart_ = time; }

void QueuedVideoInput::finish() { queue_.finish(); }

void QueuedVideoInput::stop() noexcept { queue_.stop(); }

void QueuedVideoInput::join() {
    if (thread_.joinable())
        thread_.join();
    encoder_.reset();
}

void QueuedVideoInput::work() {
    try {
        std::optional<Entry> entry;
        while (queue_.take(entry)) {
            if (!entry) {
                beginTrack({});
                encoder_->finish();
                return muxer_->finishTrack(track_);
            }
            encode(*std::exchange(entry, std::nullopt));
        }
    } catch (const Cancelled&) {
        // Stopped while the encoder gave out what it held.
    } catch (const std::exception&) {
        fail_(currentError());
    }
}

void QueuedVideoInput::encode(Entry entry) {
    beginTrack(entry.picture->color());
    const auto duration = durationAt(entry.presentationTime);
    if (entry.rightEye)
        encoder_->encodeViews(std::move(entry.picture), std::move(entry.rightEye), entry.presentationTime, duration);
    else
        encoder_->encode(std::move(entry.picture), entry.presentationTime, duration);
}

void QueuedVideoInput::openEncoder() {
    encoder_.reset();
    encoder_ = makeVideoEncoder(configuration_, [this](PacketPtr packet) {
        // An encoder holds dozens of pictures; whoever stops does not wait for all of them.
        if (queue_.isStopped())
            throw Cancelled();
        muxer_->write(track_, std::move(packet));
    });
}

// Tells the muxer what the track is, once. What the settings leave unsaid of the colours is in the first picture, and
// only an encoder that is opened with it writes it into the stream.
void QueuedVideoInput::beginTrack(const ColorAttachments& firstPicture) {
    if (hasBegun_)
        return;
    auto& color = configuration_.settings.color;
    if (auto all = completed(color, firstPicture); all != color) {
        color = std::move(all);
        openEncoder();
    }
    muxer_->describeVideo(track_, {.hasManyLayers = encoder_->hasManyLayers(),
                                   .sampleEntryBoxes = immersiveMediaBoxes(configuration_.settings.immersiveMedia)});
    muxer_->configureTrack(track_, *encoder_->parameters(), configuration_.timescale);
    hasBegun_ = true;
}

// The muxer takes the lengths of pictures from the times of those that follow; only the last picture's own is asked.
std::int64_t QueuedVideoInput::durationAt(std::int64_t presentationTime) {
    const auto previous = std::exchange(encodedTime_, presentationTime);
    if (previous && !hasConstantDuration_)
        return presentationTime - *previous;
    const auto& nominal = configuration_.frameDuration;
    return av_rescale(nominal.value, configuration_.timescale, nominal.timescale);
}

} // namespace panoveer
