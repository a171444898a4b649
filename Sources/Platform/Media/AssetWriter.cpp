#include "Platform/Media/AssetWriter.h"

#include "Platform/Core/Log.h"
#include "Platform/Media/AudioEncoder.h"
#include "Platform/Media/EncoderCatalog.h"
#include "Platform/Media/MediaSupport.h"
#include "Platform/Media/MovieMuxer.h"
#include "Platform/Media/QueuedAudioInput.h"
#include "Platform/Media/QueuedVideoInput.h"
#include "Platform/Media/VideoEncoder.h"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <mutex>
#include <numeric>
#include <utility>
#include <vector>

namespace panoveer {

namespace {

constexpr Logger logger("AssetWriter");

// Where neither the caller nor the settings say how many pictures will come.
std::int64_t estimatedFrameCount(const VideoSettings& settings, MediaTime duration) {
    const double frameRate = settings.frameDuration.isValid() ? 1 / settings.frameDuration.seconds()
                                                              : settings.expectedSourceFrameRate.value_or(0);
    return std::int64_t(std::ceil(std::max(duration.seconds() * frameRate, 0.0)));
}

// Edit lists count in units of the movie: the length of sound is told exactly only where a unit is a whole part of a
// sample.
std::int32_t exactForSound(std::int32_t movieTimeScale) {
    constexpr std::int64_t finest = 1'000'000; // seconds of a long movie still fit into 32 bits
    const auto common = std::lcm(std::int64_t(movieTimeScale), std::int64_t(audioSampleRate));
    return common <= finest ? std::int32_t(common) : movieTimeScale;
}

} // namespace

struct AssetWriter::State {
    struct Video {
        std::unique_ptr<QueuedVideoInput> input;
        VideoSettings settings;
        std::int64_t plannedFrameCount = 0;
    };

    struct Audio {
        std::unique_ptr<QueuedAudioInput> input;
        AudioSettings settings;
        std::int64_t plannedFrameCount = 0;
    };

    State(URL movie, MovieFileType fileType) : url(std::move(movie)) { configuration.fileType = fileType; }

    void setUp(MovieMuxer::Configuration& plan) const;
    void fail(const Error& error);
    bool become(Status next);
    void stopInputs() noexcept;
    void joinInputs();
    void removeFile();

    const URL url;
    MovieMuxer::Configuration configuration;
    bool hasMovieTimeScale = false;
    MediaTime durationHint;
    std::vector<Video> videos;
    std::vector<Audio> audios;
    std::vector<WriterInput*> inputs; // of all tracks, in their order
    std::unique_ptr<MovieMuxer> muxer;
    bool ownsFile = false;
    double sessionStartSeconds = 0;

    mutable std::mutex mutex; // guards what follows
    Status status = Status::unknown;
    std::optional<Error> error;
};

AssetWriter::AssetWriter(URL url, MovieFileType fileType) : state_(std::make_unique<State>(std::move(url), fileType)) {}

AssetWriter::~AssetWriter() {
    if (status() == Status::writing)
        cancelWriting();
    state_->stopInputs();
    state_->joinInputs();
}

void AssetWriter::setMovieTimeScale(std::int32_t timescale) {
    state_->configuration.movieTimeScale = timescale;
    state_->hasMovieTimeScale = true;
}

void AssetWriter::setInitialMovieFragmentInterval(MediaTime interval) {
    state_->configuration.initialFragmentInterval = interval;
}

void AssetWriter::setMovieFragmentInterval(MediaTime interval) { state_->configuration.fragmentInterval = interval; }

void AssetWriter::setOverallDurationHint(MediaTime duration) { state_->durationHint = duration; }

bool AssetWriter::canApply(const VideoSettings& settings, std::string* reason) const {
    const auto refusal = EncoderCatalog::shared().refusal(settings);
    if (refusal && reason)
        *reason = *refusal;
    return !refusal;
}

VideoInput* AssetWriter::addVideoInput(const VideoSettings& settings, FourCC pictureFormat, std::int32_t mediaTimeScale,
                                       std::int64_t plannedFrameCount) {
    auto& videos = state_->videos;
    const bool isOneTimescale = videos.empty() || state_->configuration.videoTimeScale == mediaTimeScale;
    const auto formats = pictureFormats(settings.codec, settings.profile);
    if (status() != Status::unknown || mediaTimeScale < 1 || !isOneTimescale ||
        std::ranges::find(formats, pictureFormat) == formats.end() || !canApply(settings))
        return nullptr;
    state_->configuration.videoTimeScale = mediaTimeScale;
    videos.push_back(
        {std::make_unique<QueuedVideoInput>(settings, pictureFormat, mediaTimeScale), settings, plannedFrameCount});
    auto* input = videos.back().input.get();
    state_->inputs.push_back(input);
    return input;
}

bool AssetWriter::canApply(const AudioSettings& settings, std::string* reason) const {
    try {
        makeAudioEncoder(settings, state_->configuration.fileType, [](PacketPtr) {});
        return true;
    } catch (const Error& failure) {
        if (reason)
            *reason = failure.what();
    }
    return false;
}

AudioInput* AssetWriter::addAudioInput(const AudioSettings& settings, std::int64_t plannedFrameCount) {
    if (status() != Status::unknown || !canApply(settings))
        return nullptr;
    auto& audios = state_->audios;
    audios.push_back(
        {std::make_unique<QueuedAudioInput>(settings, state_->configuration.fileType), settings, plannedFrameCount});
    auto* input = audios.back().input.get();
    state_->inputs.push_back(input);
    return input;
}

void AssetWriter::State::setUp(MovieMuxer::Configuration& plan) const {
    if (!audios.empty())
        plan.movieTimeScale = exactForSound(videos.empty() && !hasMovieTimeScale ? 1 : plan.movieTimeScale);
    if (plan.fileType != MovieFileType::quickTimeMovie)
        plan.fragmentInterval = plan.initialFragmentInterval = MediaTime::invalid();
    plan.plannedDuration = durationHint;
    for (const auto& video : videos)
        plan.plannedSampleCount +=
            video.plannedFrameCount > 0 ? video.plannedFrameCount : estimatedFrameCount(video.settings, durationHint);
    for (const auto& audio : audios)
        plan.plannedSampleCount += plannedPacketCount(
            audio.settings, audio.plannedFrameCount > 0
                                ? audio.plannedFrameCount
                                : std::int64_t(std::ceil(std::max(durationHint.seconds(), 0.0) * audioSampleRate)));
}

bool AssetWriter::startWriting() {
    if (!state_->become(Status::writing))
        return false;
    try {
        auto configuration = state_->configuration;
        state_->setUp(configuration);
        state_->muxer = std::make_unique<MovieMuxer>(state_->url.path(), configuration, int(state_->inputs.size()));
        state_->ownsFile = true;
        for (int track = 0; auto* input : state_->inputs)
            input->start(*state_->muxer, track++, [state = state_.get()](const Error& error) { state->fail(error); });
        return true;
    } catch (const std::exception&) {
        state_->fail(currentError());
    }
    state_->joinInputs();
    state_->removeFile();
    return false;
}

void AssetWriter::startSession(MediaTime sourceTime) {
    state_->sessionStartSeconds = sourceTime.seconds();
    for (auto* input : state_->inputs)
        input->setSessionStart(sourceTime);
}

void AssetWriter::endSession(MediaTime sourceTime) {
    if (state_->muxer)
        state_->muxer->endAt(sourceTime.seconds() - state_->sessionStartSeconds);
}

bool AssetWriter::finishWriting(std::stop_token stop) {
    if (status() != Status::writing)
        return status() == Status::completed;
    for (auto* input : state_->inputs)
        input->finish();
    {
        const std::stop_callback giveUp(stop, [this] { state_->stopInputs(); });
        state_->joinInputs();
    }
    if (stop.stop_requested()) {
        cancelWriting();
        return false;
    }
    if (status() == Status::writing) {
        try {
            state_->muxer->finish();
            state_->become(Status::completed);
        } catch (const std::exception&) {
            state_->fail(currentError());
        }
    }
    state_->muxer.reset();
    return status() == Status::completed;
}

void AssetWriter::cancelWriting() {
    state_->become(Status::cancelled);
    state_->stopInputs();
    state_->joinInputs();
    state_->muxer.reset();
    if (status() != Status::completed)
        state_->removeFile();
}

AssetWriter::Status AssetWriter::status() const {
    std::lock_guard lock(state_->mutex);
    return state_->status;
}

std::optional<Error> AssetWriter::error() const {
    std::lock_guard lock(state_->mutex);
    return state_->error;
}

// Only a writer that is new begins to write or is cancelled, and only one that is writing ends.
bool AssetWriter::State::become(Status next) {
    std::lock_guard lock(mutex);
    const bool isAllowed = status == Status::writing
                               ? next != Status::unknown
                               : status == Status::unknown && (next == Status::writing || next == Status::cancelled);
    if (isAllowed)
        status = next;
    return isAllowed;
}

// From any thread; the first failure counts. Whoever sees that the writer has failed finds the file as it will stay.
void AssetWriter::State::fail(const Error& failure) {
    {
        std::lock_guard lock(mutex);
        if (status != Status::writing || error)
            return;
        error = failure;
    }
    logger.error("writing {} failed: {}", url.lastPathComponent(), failure.what());
    if (muxer)
        muxer->abandon();
    become(Status::failed);
    stopInputs();
}

void AssetWriter::State::stopInputs() noexcept {
    for (auto* input : inputs)
        input->stop();
    // Wakes those whose track waits for another one.
    if (muxer)
        muxer->release();
}

void AssetWriter::State::joinInputs() {
    for (auto* input : inputs)
        input->join();
}

void AssetWriter::State::removeFile() {
    if (!std::exchange(ownsFile, false))
        return;
    muxer.reset();
    std::error_code ignored;
    std::filesystem::remove(url.path(), ignored);
}

} // namespace panoveer
