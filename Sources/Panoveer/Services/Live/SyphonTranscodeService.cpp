#include "Panoveer/Services/Live/SyphonTranscodeService.h"

#include "Panoveer/Model/Records/EvenSize.h"
#include "Panoveer/Model/Records/ExportCodec.h"
#include "Panoveer/Services/Export/ExportArtifactTransaction.h"
#include "Panoveer/Services/Export/ExportArtifactValidator.h"
#include "Panoveer/Services/Export/ExportFrameClock.h"
#include "Panoveer/Services/Export/ExportVideoSettings.h"
#include "Panoveer/Services/Export/StagedName.h"
#include "Panoveer/Services/Export/VRExportError.h"
#include "Panoveer/Services/Intake/FFmpegFrameReader.h"
#include "Panoveer/Services/Intake/FFmpegRuntime.h"
#include "Platform/Core/FileLock.h"
#include "Platform/Core/Localization.h"
#include "Platform/Core/Log.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <memory>

namespace panoveer {

namespace fs = std::filesystem;

namespace {

using namespace std::chrono_literals;

constexpr Logger logger("SyphonTranscode");
constexpr ExportCodec codec = ExportCodec::hevc8;
constexpr double fallbackFrameRate = 30;
// A movie of unknown length ends here at the latest; a longer one says so itself.
constexpr double secondsOfUnknownMovie = 86400;
constexpr double longestPlannedSeconds = 7 * secondsOfUnknownMovie; // beyond, the length is not believed
constexpr int progressInterval = 8;                                 // pictures
constexpr double largestUnfinishedFraction = 0.999;
constexpr auto pollInterval = 1ms;

void throwIfStopped(const std::stop_token& stop) {
    if (stop.stop_requested())
        throw Cancelled();
}

bool stands(const fs::path& path) {
    struct stat status{};
    return lstat(path.c_str(), &status) == 0;
}

void makeRoom(const URL& source, const URL& destination) {
    std::error_code failure;
    if (fs::equivalent(source.path(), destination.path(), failure))
        throw Error(localized("error.export.destination_is_source", destination.path().string()));
    const auto folder = destination.deletingLastPathComponent().path();
    fs::create_directories(folder, failure);
    if (failure)
        throw posixError(folder.native(), failure.value());
    if (fs::is_directory(destination.path(), failure))
        throw posixError(destination.path().native(), EISDIR);
    fs::remove(destination.path(), failure);
    if (failure)
        throw posixError(destination.path().native(), failure.value());
}

// The picture itself, or on a sheet of even sides.
class EvenSheets {
public:
    EvenSheets(int width, int height)
        : width_(int(evenedUp(width))), height_(int(evenedUp(height))), pool_(pixelFormat::bgra, width_, height_) {}

    int width() const { return width_; }
    int height() const { return height_; }

    PixelBufferPtr sheet(PixelBufferPtr picture) {
        if (picture->width() == width_ && picture->height() == height_)
            return picture;
        auto sheet = pool_.acquire();
        const auto& from = picture->plane(0);
        const auto& to = sheet->plane(0);
        constexpr std::size_t pixelBytes = 4;
        for (int y = 0; y < to.height; ++y) {
            const auto* row = from.data + std::size_t(std::min(y, from.height - 1)) * from.rowBytes;
            auto* target = to.data + std::size_t(y) * to.rowBytes;
            const auto bytes = std::size_t(from.width) * pixelBytes;
            std::memcpy(target, row, bytes);
            if (to.width > from.width)
                std::memcpy(target + bytes, row + bytes - pixelBytes, pixelBytes);
        }
        return sheet;
    }

private:
    int width_, height_;
    PixelBufferPool pool_;
};

// One copy, from its staged file to its name.
class WorkingCopy {
public:
    WorkingCopy(const URL& source, const URL& destination, const FFmpegVideoMetadata& metadata, std::stop_token stop)
        : source_(source),
          destination_(destination),
          stop_(std::move(stop)),
          frameRate_(metadata.frameRate > 0 ? metadata.frameRate : fallbackFrameRate),
          clock_(frameRate_),
          knowsDuration_(metadata.duration > 0 && metadata.duration <= longestPlannedSeconds),
          expectedFrames_(clock_.frameIndex((knowsDuration_ ? metadata.duration : secondsOfUnknownMovie) + 1)),
          reader_(source),
          sheets_(reader_.outputWidth(), reader_.outputHeight()),
          staged_(ExportArtifactTransaction::stagedFileURL(destination)) {}

    ~WorkingCopy() {
        writer_.reset(); // cancels a writing that did not end
        std::error_code ignored;
        fs::remove(staged_.path(), ignored);
    }

    std::int64_t write(const SyphonTranscodeService::ProgressHandler& progress) {
        startWriting();
        logger.info("syphon transcode begin source={} destination={} size={}x{}", source_.path().string(),
                    destination_.path().string(), reader_.outputWidth(), reader_.outputHeight());
        const auto frames = copyFrames(progress);
        if (frames == 0)
            throw VRExportError(VRExportError::Case::noVideoTrack, source_);
        input_->markAsFinished();
        if (!writer_->finishWriting(stop_)) {
            throwIfStopped(stop_);
            throwWriterError(status());
        }
        ExportArtifactValidator::validateMovie(staged_, {.durationSeconds = clock_.time(frames).seconds(),
                                                         .width = sheets_.width(),
                                                         .height = sheets_.height(),
                                                         .codec = codec,
                                                         .frameRate = frameRate_});
        throwIfStopped(stop_);
        ExportArtifactTransaction::commitFile(staged_, destination_);
        return frames;
    }

private:
    void startWriting() {
        auto settings = SyphonTranscodeService::videoSettings(sheets_.width(), sheets_.height(), frameRate_);
        settings.frameDuration = clock_.time(1);
        writer_ = std::make_unique<AssetWriter>(staged_, MovieFileType::mp4);
        std::string reason;
        if (!writer_->canApply(settings, &reason)) {
            VRExportError refusal(VRExportError::Case::unsupportedVideoSettings, codec, std::int64_t(sheets_.width()),
                                  std::int64_t(sheets_.height()));
            refusal.setFailureReason(reason);
            throw refusal;
        }
        writer_->setMovieTimeScale(clock_.timescale);
        // Room for the tables of a day that may never come would be larger than the movie.
        input_ =
            writer_->addVideoInput(settings, pixelFormat::bgra, clock_.timescale, knowsDuration_ ? expectedFrames_ : 0);
        if (!input_)
            throw VRExportError(VRExportError::Case::cannotAddWriterInput);
        if (!writer_->startWriting())
            throwWriterError(status());
        inUse_ = FileLock::shared(staged_.path());
        writer_->startSession({0, clock_.timescale});
    }

    std::int64_t copyFrames(const SyphonTranscodeService::ProgressHandler& progress) {
        const auto text = localized("syphon_transcode.progress.encoding");
        const auto clock = ExportWaitClock::system();
        std::int64_t frames = 0;
        while (frames < expectedFrames_) {
            auto frame = reader_.copyFrame(std::nullopt, nullptr, stop_);
            throwIfStopped(stop_);
            if (!frame)
                break;
            SyphonTranscodeService::waitUntilReady([this] { return input_->isReadyForMoreMediaData(); }, status(),
                                                   stop_, clock);
            if (!input_->append(sheets_.sheet(std::move(frame->pixelBuffer)), clock_.time(frames)))
                throwWriterError(status());
            if (++frames % progressInterval == 0)
                progress(std::min(double(frames) / double(expectedFrames_), largestUnfinishedFraction), text, frames);
        }
        return frames;
    }

    ExportWriterStatus status() const {
        return {.status = [this] { return writer_->status(); }, .error = [this] { return writer_->error(); }};
    }

    const URL& source_;
    const URL& destination_;
    std::stop_token stop_;
    double frameRate_;
    ExportFrameClock clock_;
    bool knowsDuration_;
    std::int64_t expectedFrames_;
    FFmpegFrameReader reader_;
    EvenSheets sheets_;
    URL staged_;
    FileLock inUse_; // so that nobody takes the staged file for what a killed process has left
    std::unique_ptr<AssetWriter> writer_;
    VideoInput* input_ = nullptr; // owned by writer_
};

} // namespace

URL SyphonTranscodeService::defaultDestination(const URL& source) {
    const auto folder = source.deletingLastPathComponent();
    for (int number = 1;; ++number) {
        const auto suffix = number == 1 ? std::string(" Syphon.mp4") : " Syphon " + std::to_string(number) + ".mp4";
        const auto candidate = folder.appendingPathComponent(fittingFileName(source.baseName(), suffix));
        if (!stands(candidate.path()))
            return candidate;
    }
}

VideoSettings SyphonTranscodeService::videoSettings(int width, int height, double frameRate) {
    constexpr double bitsPerPixel = 0.08, leastRate = 24;
    constexpr double leastBitRate = 8'000'000, largestBitRate = 60'000'000;
    constexpr long shortestInterval = 30, longestInterval = 120;
    VideoSettings settings;
    settings.codec = properties(codec).codecType;
    settings.width = width;
    settings.height = height;
    settings.profile = VideoProfile::hevcMain;
    settings.averageBitRate = std::int64_t(std::clamp(
        double(width) * double(height) * std::max(frameRate, leastRate) * bitsPerPixel, leastBitRate, largestBitRate));
    // Two seconds of pictures.
    settings.maximumKeyFrameInterval =
        int(std::clamp(std::lround(frameRate) + std::lround(frameRate), shortestInterval, longestInterval));
    settings.color = outputColor(ExportColorMode::convertToSDR);
    return settings;
}

URL SyphonTranscodeService::transcode(const URL& sourceURL, const URL& destinationURL, const ProgressHandler& progress,
                                      std::stop_token stop) {
    const auto metadata = FFmpegRuntime::probe(sourceURL);
    progress(0, localized("syphon_transcode.progress.preparing"), 0);
    makeRoom(sourceURL, destinationURL);
    throwIfStopped(stop);
    const auto frames = WorkingCopy(sourceURL, destinationURL, metadata, stop).write(progress);
    logger.info("syphon transcode complete destination={} frames={}", destinationURL.path().string(), frames);
    progress(1, localized("syphon_transcode.progress.complete"), frames);
    return destinationURL;
}

void SyphonTranscodeService::waitUntilReady(const std::function<bool()>& isReadyForMoreMediaData,
                                            const ExportWriterStatus& writer, const std::stop_token& stop,
                                            const ExportWaitClock& clock) {
    while (!isReadyForMoreMediaData()) {
        throwIfStopped(stop);
        if (writer.status() == AssetWriter::Status::failed)
            throwWriterError(writer);
        clock.sleep(pollInterval);
    }
}

} // namespace panoveer
