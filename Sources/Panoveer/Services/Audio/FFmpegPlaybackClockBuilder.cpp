#include "Panoveer/Services/Audio/FFmpegPlaybackClockBuilder.h"

#include "Panoveer/Services/Audio/AudioBlockSource.h"
#include "Panoveer/Services/Audio/AudioChannelLayouts.h"
#include "Panoveer/Services/Audio/AudioSegmentSink.h"
#include "Panoveer/Services/Audio/FFmpegAudioPipelineError.h"
#include "Panoveer/Services/Audio/FFmpegAudioSampleBufferFactory.h"
#include "Panoveer/Services/Intake/FFmpegReaderError.h"
#include "Platform/Core/Log.h"
#include "Platform/Core/SHA256.h"
#include "Platform/Core/StandardFolders.h"
#include "Platform/Core/UUID.h"
#include "Platform/Media/AssetWriter.h"

#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <cmath>
#include <filesystem>
#include <thread>

namespace panoveer {

namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

constexpr Logger logger("Audio");
constexpr std::size_t channelCount = 2;
constexpr std::int64_t bitRate = 192'000;
constexpr std::int64_t longestSeconds = 1'000'000'000; // more than 30 years
constexpr std::int64_t silenceFrames = 4096;           // at most, in a block
constexpr std::string_view partialSuffix = ".partial.m4a";
constexpr auto leftOverAge = 1h; // a partial file that nobody has written to for so long belongs to nobody
constexpr auto pollInterval = 1ms;

// As short as it says the number exactly, without an exponent.
std::string decimal(double value) {
    std::array<char, 512> text;
    const auto end = std::to_chars(text.data(), text.data() + text.size(), value, std::chars_format::fixed);
    return {text.data(), end.ptr};
}

void throwIfStopped(const std::stop_token& stop) {
    if (stop.stop_requested())
        throw Cancelled();
}

// What builds that were killed left of this clock.
void removeLeftOvers(const URL& destination) {
    std::error_code ignored;
    const auto now = fs::file_time_type::clock::now();
    for (const auto& entry : fs::directory_iterator(destination.deletingLastPathComponent().path(), ignored)) {
        const auto name = entry.path().filename().string();
        if (!name.starts_with(destination.baseName() + ".") || !name.ends_with(partialSuffix))
            continue;
        const auto written = entry.last_write_time(ignored);
        if (!ignored && now - written > leftOverAge)
            fs::remove(entry.path(), ignored);
    }
}

// Removes the file on the way out unless it was given its final name.
class PartialFile {
public:
    explicit PartialFile(URL url) : url_(std::move(url)) {}
    PartialFile(const PartialFile&) = delete;
    PartialFile& operator=(const PartialFile&) = delete;
    ~PartialFile() {
        std::error_code ignored;
        if (!url_.empty())
            fs::remove(url_.path(), ignored);
    }

    const URL& url() const { return url_; }
    void moveTo(const URL& destination) {
        std::error_code failure;
        fs::rename(url_.path(), destination.path(), failure);
        if (failure)
            throw posixError(destination.path().native(), failure.value());
        url_ = {};
    }

private:
    URL url_;
};

// Writes one clock: blocks behind each other, from 0 on.
class ClockWriter {
public:
    ClockWriter(const URL& url, std::int64_t plannedFrames, std::stop_token stop)
        : writer_(url, MovieFileType::m4a), stop_(std::move(stop)) {
        AudioSettings settings;
        settings.codec = AudioSettings::Codec::aac;
        settings.channelCount = int(channelCount);
        settings.inputLayout = settings.writerLayout = AudioChannelLayouts::ofTag(AudioChannelLayoutTags::stereo);
        settings.bitRate = bitRate;
        input_ = writer_.addAudioInput(settings, plannedFrames);
        if (!input_)
            throw FFmpegAudioPipelineError::cannotCreateWriterInput();
        if (!writer_.startWriting())
            throwFailure();
        writer_.startSession({0, audioSampleRate});
    }

    std::int64_t framesWritten() const { return framesWritten_; }

    void append(std::vector<float> samples) {
        const auto frames = std::int64_t(samples.size() / channelCount);
        if (frames < 1)
            return;
        waitUntilReady();
        if (!input_->append(buffers_.makeBuffer(std::move(samples), frames, {framesWritten_, audioSampleRate})))
            throwFailure();
        framesWritten_ += frames;
    }

    void appendSilence(std::int64_t frames) {
        for (; frames > 0; frames -= silenceFrames)
            append(std::vector<float>(std::size_t(std::min(frames, silenceFrames)) * channelCount));
    }

    void finish() {
        input_->markAsFinished();
        if (writer_.finishWriting(stop_))
            return;
        throwIfStopped(stop_);
        throwFailure();
    }

private:
    void waitUntilReady() {
        while (!input_->isReadyForMoreMediaData()) {
            throwIfStopped(stop_);
            if (writer_.status() == AssetWriter::Status::failed)
                throwFailure();
            std::this_thread::sleep_for(pollInterval);
        }
        throwIfStopped(stop_);
    }

    [[noreturn]] void throwFailure() const {
        if (const auto error = writer_.error())
            throw Error(*error);
        throw FFmpegAudioPipelineError::writerFailed();
    }

    AssetWriter writer_;
    std::stop_token stop_;
    AudioInput* input_ = nullptr; // owned by writer_
    FFmpegAudioSampleBufferFactory buffers_;
    std::int64_t framesWritten_ = 0;
};

// Sound that cannot be opened is no reason not to see the picture.
std::unique_ptr<AudioBlockSource> openSound(const URL& url, const std::stop_token& stop) {
    constexpr std::int32_t bestStream = -1;
    constexpr auto stereo = mask(FFmpegChannel::frontLeft) | mask(FFmpegChannel::frontRight);
    try {
        return openFFmpegAudio(url, bestStream, 0, 0, stereo, stop);
    } catch (const FFmpegReaderError& error) {
        logger.warning("the playback clock stays silent file={} error={}", url.lastPathComponent(), error.what());
        return nullptr;
    }
}

// As much as the picture lasts; all there is where `total` is 0, since nobody knows.
void writeSound(const URL& url, std::int64_t total, ClockWriter& clock, const std::stop_token& stop) {
    const auto source = openSound(url, stop);
    if (!source)
        return;
    AudioSegmentSink sink(total > 0 ? total : longestSeconds * audioSampleRate, 0);
    while (sink.room() > 0) {
        auto block = source->next();
        if (!block)
            return;
        // No picture tells how long silence may last. A longer gap is taken for a fault of the time stamps.
        constexpr double longestGap = 60; // seconds
        if (total == 0 && block->seconds && *block->seconds - double(sink.written()) / audioSampleRate > longestGap)
            block->seconds.reset();
        const auto place = sink.place(block->seconds, block->frames);
        clock.appendSilence(place.silence);
        const auto first = block->samples.begin() + std::ptrdiff_t(place.skipped * std::int64_t(channelCount));
        clock.append({first, first + std::ptrdiff_t(place.taken * std::int64_t(channelCount))});
    }
}

void writePlaybackTrack(const URL& source, const URL& destination, double duration, bool hasAudioStream,
                        const std::stop_token& stop) {
    const auto total = std::int64_t(std::ceil(std::clamp(duration, 0.0, double(longestSeconds)) * audioSampleRate));
    ClockWriter clock(destination, total, stop);
    if (hasAudioStream)
        writeSound(source, total, clock, stop);
    // A player takes no file without a sample.
    clock.appendSilence(std::max<std::int64_t>(total, 1) - clock.framesWritten());
    clock.finish();
}

} // namespace

URL FFmpegPlaybackClockBuilder::destinationURL(const URL& sourceURL) {
    const auto path = sourceURL.standardized().path();
    struct stat status{};
    if (stat(path.c_str(), &status) != 0)
        throw posixError(path.native(), errno);
    const double modified = double(status.st_mtim.tv_sec) + double(status.st_mtim.tv_nsec) / 1e9;
    const auto key = path.string() + "|" + std::to_string(status.st_size) + "|" + decimal(modified);
    return URL::fromFilePath(applicationSupportFolder() / "FFmpeg Playback" / (sha256(key) + ".m4a"));
}

URL FFmpegPlaybackClockBuilder::build(const URL& sourceURL, double duration, bool hasAudioStream,
                                      const std::stop_token& stop) {
    const auto destination = destinationURL(sourceURL);
    std::error_code failure;
    if (fs::exists(destination.path(), failure))
        return destination;
    const auto folder = destination.deletingLastPathComponent();
    fs::create_directories(folder.path(), failure);
    if (failure)
        throw posixError(folder.path().native(), failure.value());
    removeLeftOvers(destination);
    PartialFile partial(folder.appendingPathComponent(destination.baseName() + "." + UUID::random().text() +
                                                      std::string(partialSuffix)));
    writePlaybackTrack(sourceURL, partial.url(), duration, hasAudioStream, stop);
    partial.moveTo(destination);
    return destination;
}

} // namespace panoveer
