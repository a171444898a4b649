#include "Panoveer/Services/Export/MovieExport.h"

#include "Panoveer/Model/Records/ExportCodec.h"
#include "Panoveer/Model/Records/RecordEnums.h"
#include "Panoveer/Services/Diagnostics/GenerationFailureDescriber.h"
#include "Panoveer/Services/Export/ExportArtifactTransaction.h"
#include "Panoveer/Services/Export/ExportArtifactValidator.h"
#include "Panoveer/Services/Export/ExportEncoderPreflight.h"
#include "Panoveer/Services/Export/ExportImmersiveMedia.h"
#include "Panoveer/Services/Export/ExportVideoSettings.h"
#include "Panoveer/Services/Export/PartialOutputRecovery.h"
#include "Panoveer/Services/Export/SegmentDuration.h"
#include "Panoveer/Services/Export/SegmentExport.h"
#include "Panoveer/Services/Export/SpatialVideoMetadataInjector.h"
#include "Panoveer/Services/Export/VRExportError.h"
#include "Platform/Core/Log.h"
#include "Platform/Core/Text.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cmath>
#include <filesystem>

namespace panoveer {

namespace fs = std::filesystem;

namespace {

constexpr Logger logger("Export");
constexpr std::int32_t fragmentTimescale = 600;
constexpr MediaTime initialFragmentInterval{fragmentTimescale, fragmentTimescale}; // 1 s
constexpr MediaTime fragmentInterval{10 * fragmentTimescale, fragmentTimescale};   // 10 s

std::uint64_t physicalMemoryBytes() {
    return std::uint64_t(sysconf(_SC_PHYS_PAGES)) * std::uint64_t(sysconf(_SC_PAGE_SIZE));
}

std::string sizeText(const OutputResolution& size) {
    return std::to_string(size.width) + "x" + std::to_string(size.height);
}

// A folder may be moved or its disk disconnected while a movie is written into it, and writing goes on.
void requireStillThere(const URL& staged) {
    struct stat status{};
    if (lstat(staged.path().c_str(), &status) != 0)
        throw posixError(staged.path().native(), errno);
}

// As the first of several sentences.
std::string sentence(std::string text) {
    constexpr std::array<std::string_view, 5> ends = {".", "!", "?", "。", "）"};
    if (std::ranges::none_of(ends, [&](auto end) { return text.ends_with(end); }))
        text += '.';
    return text;
}

// What would refuse the rename at the end is better told before hours of work.
void requireUsableName(const URL& url) {
    struct stat status{};
    const auto path = url.path();
    const int failure = lstat(path.c_str(), &status) != 0 ? errno : S_ISDIR(status.st_mode) ? EISDIR : 0;
    if (failure != 0 && failure != ENOENT)
        throw posixError(path.native(), failure);
}

} // namespace

MovieExport::MovieExport(ProjectionRenderer& renderer, const SegmentFrameRoads& roads,
                         const ExportOutputDescriptor& descriptor, ExportDiagnostics& diagnostics, std::stop_token stop,
                         ExportOutputPosition position, ExportSystemReadings readings)
    : renderer_(renderer),
      roads_(roads),
      descriptor_(descriptor),
      diagnostics_(diagnostics),
      stop_(std::move(stop)),
      position_(position),
      readings_(std::move(readings)),
      clock_(outputFrameRate(descriptor)),
      audio_(descriptor, diagnostics) {}

MovieExport::~MovieExport() {
    audio_.cancel();
    // The writer goes first: it may still hold the file open. What was committed or kept has another name by now.
    writer_.reset();
    std::error_code ignored;
    if (!staged_.empty())
        fs::remove(staged_.path(), ignored);
}

void MovieExport::run(const Report& report) {
    report_ = report;
    throwIfStopped();
    try {
        prepareDestination();
        configureWriter();
        exportSegments();
        finishMovie();
        commitMovie();
    } catch (const Cancelled&) {
        if (const auto partial = keepWhatIsCancelled())
            throw VRExportError(VRExportError::Case::cancelledPartialSaved, *partial);
        throw;
    } catch (const std::exception& failure) {
        if (const auto partial = keepWhatIsRecoverable())
            throwFailedPartialSaved(*partial, failure);
        throw;
    }
}

void MovieExport::commitMovie() {
    requireStillThere(staged_);
    diagnostics_.markStage("injecting_metadata");
    injectSpatialMetadataIfNeeded();
    diagnostics_.markStage("validating_output");
    validateOutput();
    throwIfStopped();
    diagnostics_.markStage("committing_output");
    ExportArtifactTransaction::commitFile(staged_, descriptor_.url);
    diagnostics_.markStage("completed", {{"frames_written", video_->framesWritten()}});
}

// Whatever feeds the writer has ended when this returns. Sound that is ahead of the last picture is left out.
void MovieExport::stopFeeding() {
    writer_->endSession(clock_.time(clock_.frameIndex(video_->secondsWritten()) + 1));
    audio_.cancel();
    video_->markAsFinished();
}

// The encoder still completes what it was given: nothing that was rendered is lost. Neither metadata nor a check
// follow; a partial movie is as it stands.
std::optional<URL> MovieExport::keepWhatIsCancelled() {
    const auto status = writer_ ? writer_->status() : AssetWriter::Status::unknown;
    const bool canComplete = status == AssetWriter::Status::writing || status == AssetWriter::Status::completed;
    if (!canComplete || video_->framesWritten() == 0)
        return keepWhatIsRecoverable();
    report_(video_->secondsWritten(), video_->framesWritten(), "export.progress.finalizing_partial");
    stopFeeding();
    diagnostics_.markStage("finalizing_container");
    const bool isComplete = writer_->finishWriting();
    using Need = PartialOutputRecovery::Need;
    auto partial = PartialOutputRecovery(diagnostics_)
                       .preservePartialOutput({staged_, descriptor_.url, video_->framesWritten()},
                                              isComplete ? Need::wholeFile : Need::completeFragment,
                                              isComplete ? "cancelled_finalized_container" : "complete_movie_fragment");
    if (partial)
        logger.info("export cancelled and partial file finalized file={} frames={}", partial->lastPathComponent(),
                    video_->framesWritten());
    return partial;
}

std::optional<URL> MovieExport::keepWhatIsRecoverable() {
    if (!writer_ || writer_->status() == AssetWriter::Status::unknown)
        return std::nullopt;
    stopFeeding();
    auto partial = PartialOutputRecovery(diagnostics_)
                       .preserveRecoverablePartialOutput(*writer_, [this] { video_->markAsFinished(); },
                                                         {staged_, descriptor_.url, video_->framesWritten()});
    if (!partial)
        writer_->cancelWriting();
    return partial;
}

void MovieExport::throwFailedPartialSaved(const URL& partial, const std::exception& failure) {
    diagnostics_.record("export_failed_partial_saved",
                        {{"partial_path", partial.path().string()},
                         {"underlying_diagnostic", GenerationFailureDescriber::diagnosticMessage(failure)}});
    VRExportError end(VRExportError::Case::failedPartialSaved, partial,
                      sentence(GenerationFailureDescriber::message(failure)));
    if (const auto* error = dynamic_cast<const Error*>(&failure))
        end.setUnderlying(std::make_shared<Error>(*error));
    throw end;
}

void MovieExport::prepareDestination() {
    diagnostics_.markStage("preparing_destination",
                           exportDiagnosticFields(descriptor_, position_, renderer_, readings_));
    const auto folder = descriptor_.url.deletingLastPathComponent().path();
    std::error_code failure;
    fs::create_directories(folder, failure);
    if (failure)
        throw posixError(folder.string(), failure.value());
    requireUsableName(descriptor_.url);
    staged_ = ExportArtifactTransaction::stagedFileURL(descriptor_.url);
    writer_ = std::make_unique<AssetWriter>(staged_, properties(descriptor_.codec).fileExtension == "mov"
                                                         ? MovieFileType::quickTimeMovie
                                                         : MovieFileType::mp4);
    if (lowercased(descriptor_.url.pathExtension()) == "mov") {
        writer_->setInitialMovieFragmentInterval(initialFragmentInterval);
        writer_->setMovieFragmentInterval(fragmentInterval);
        diagnostics_.record("fragmented_movie_enabled",
                            {{"initial_fragment_interval_seconds", initialFragmentInterval.seconds()},
                             {"fragment_interval_seconds", fragmentInterval.seconds()}});
    }
    writer_->setOverallDurationHint(
        {std::llround(totalDurationSeconds(descriptor_) * fragmentTimescale), fragmentTimescale});
}

void MovieExport::configureWriter() {
    diagnostics_.markStage("configuring_writer");
    const auto& size = descriptor_.resolution;
    const auto encoded = encodedResolution(descriptor_);
    auto settings =
        videoSettings(descriptor_.codec, encoded.width, encoded.height, descriptor_.bitrateMbps,
                      descriptor_.targetFrameRate, descriptor_.colorMode, immersiveMediaProperties(descriptor_));
    settings.frameDuration = clock_.time(1);
    std::string reason;
    if (!writer_->canApply(settings, &reason)) {
        logger.error("encoder refused codec={} size={} reason={}", rawValue(descriptor_.codec), sizeText(size), reason);
        auto refusal = ExportEncoderPreflight::lacksLayerLibrary(descriptor_.codec)
                           ? VRExportError::withoutLayerEncoder(descriptor_.codec)
                           : VRExportError(VRExportError::Case::unsupportedVideoSettings, descriptor_.codec, size.width,
                                           size.height);
        refusal.setFailureReason(reason);
        throw refusal;
    }

    const auto format = preferredNativeOutputPixelFormat(descriptor_.codec, descriptor_.colorMode);
    budget_ = ExportBufferBudget::make(format, size.width, size.height,
                                       {.physicalMemory = physicalMemoryBytes(),
                                        .recommendedMaxWorkingSetSize = renderer_.recommendedMaxWorkingSetSize(),
                                        .currentAllocatedSize = renderer_.currentAllocatedSize()});
    diagnostics_.record("writer_configured",
                        {{"pixel_format", format.text()},
                         {"pixel_buffer_width", size.width},
                         {"pixel_buffer_height", size.height},
                         {"estimated_bytes_per_pixel_buffer", std::int64_t(budget_.bytesPerPixelBuffer)},
                         {"encoder_pixel_buffer_limit", std::int64_t(budget_.encoderPixelBufferLimit)},
                         {"metal_in_flight_frame_limit", std::int64_t(budget_.inFlightFrameLimit)},
                         {"buffer_memory_budget_bytes", std::int64_t(budget_.bufferMemoryBudgetBytes)}});

    writer_->setMovieTimeScale(clock_.timescale);
    video_.emplace(*writer_,
                   ExportVideoTrack::Plan{.settings = settings,
                                          .pixelFormat = format,
                                          .clock = clock_,
                                          .frameCount = plannedFrameCount(),
                                          .bufferLimit = budget_.encoderPixelBufferLimit},
                   writerStatus(), stop_, [this] { noteVideoProgress(); });
    audio_.configure(*writer_, stop_);

    if (!writer_->startWriting()) {
        if (const auto error = writer_->error())
            throw Error(*error);
        throw VRExportError(VRExportError::Case::writerStartFailed);
    }
    inUse_ = FileLock::shared(staged_.path());
    writer_->startSession({0, clock_.timescale});
    diagnostics_.markStage("encoding_started");
    monitor_ = std::make_unique<ExportRuntimeMonitor>(
        ExportRuntimeMonitor::Subject{.outputURL = staged_,
                                      .estimatedOutputBytes = estimatedOutputBytes(descriptor_),
                                      .expectedDurationSeconds = totalDurationSeconds(descriptor_)},
        &diagnostics_, renderer_, readings_);
    audio_.start(writerStatus(), staged_, stop_);
    logger.info("export begin file={} format={} resolution={} codec={} fps={:.3f} audio_tracks={}",
                descriptor_.url.lastPathComponent(), rawValue(descriptor_.outputFormat), sizeText(size),
                rawValue(descriptor_.codec), double(clock_.timescale) / double(clock_.frameDuration), audio_.count());
}

// A movie shows a picture, however short it is.
std::int64_t MovieExport::plannedFrameCount() const {
    return std::max<std::int64_t>(clock_.frameIndex(totalDurationSeconds(descriptor_)), 1);
}

void MovieExport::exportSegments() {
    const SegmentExport::Movie movie{.descriptor = descriptor_,
                                     .renderer = renderer_,
                                     .roads = roads_,
                                     .diagnostics = diagnostics_,
                                     .track = *video_,
                                     .inFlightFrameLimit = budget_.inFlightFrameLimit,
                                     .stop = stop_,
                                     .throwIfStopped = [this] { throwIfStopped(); }};
    double timelineStart = 0;
    for (const auto& segment : descriptor_.segments) {
        throwIfStopped();
        const double timelineEnd = timelineStart + segmentDuration(segment);
        auto slots = ExportSegmentFrameSlots::between(clock_, timelineStart, timelineEnd);
        if (timelineStart == 0 && clock_.frameIndex(totalDurationSeconds(descriptor_)) == 0)
            slots.frameCount = plannedFrameCount();
        SegmentExport(movie, segment, slots).run();
        sampleProgress();
        timelineStart = timelineEnd;
    }
}

void MovieExport::noteVideoProgress() {
    audio_.noteVideoProgress();
    sampleProgress();
    report_(video_->secondsWritten(), video_->framesWritten(), "export.progress.exporting");
}

void MovieExport::finishMovie() {
    throwIfStopped();
    video_->markAsFinished();
    report_(totalDurationSeconds(descriptor_), video_->framesWritten(), "export.progress.finalizing");
    audio_.finish();
    diagnostics_.markStage("finalizing_container");
    // Not ended by a stop: what is rendered is kept, and this is what keeping it takes.
    if (!writer_->finishWriting())
        throwWriterError(writerStatus());
    throwIfStopped();
}

void MovieExport::injectSpatialMetadataIfNeeded() {
    auto request = SpatialVideoMetadataRequest::make(descriptor_.outputFormat, descriptor_.stereoLayout,
                                                     descriptor_.codec, descriptor_.vrMetadataMode);
    const auto spatialAudio = audio_.spatialAudio();
    const auto spatialTracks = std::ranges::count_if(spatialAudio, [](const auto& each) { return each.has_value(); });
    if (!request && spatialTracks == 0)
        return;
    if (!request)
        request = SpatialVideoMetadataRequest::audioOnly();
    logger.info("inject spatial metadata file={} mode={} spatial_audio_tracks={}", staged_.lastPathComponent(),
                rawValue(descriptor_.vrMetadataMode), spatialTracks);
    FileLock copyInUse;
    SpatialVideoMetadataInjector::injectMetadata(staged_, *request, spatialAudio, stop_,
                                                 [&](const URL& copy) { copyInUse = FileLock::shared(copy.path()); });
    inUse_ = std::move(copyInUse);
    SpatialVideoMetadataInjector::validateMetadata(staged_, *request);
    SpatialVideoMetadataInjector::validateSpatialAudio(staged_, spatialAudio);
}

void MovieExport::validateOutput() {
    try {
        ExportArtifactValidator::validateMovie(staged_, movieValidationExpectation(descriptor_, audio_.count()));
    } catch (const ExportArtifactValidationError& error) {
        VRExportError failure(VRExportError::Case::outputValidationFailed, std::string(error.what()));
        failure.setUnderlying(std::make_shared<Error>(error));
        throw failure;
    }
}

void MovieExport::throwIfStopped() const {
    if (stop_.stop_requested())
        throw Cancelled();
    audio_.throwIfFailed();
}

ExportWriterStatus MovieExport::writerStatus() const {
    return {.status = [this] { return writer_->status(); },
            .error = [this] { return writer_->error(); },
            // From any thread that waits; how far the pictures are is told by the frame loop.
            .sample =
                [this](std::string_view context) {
                    monitor_->sampleIfNeeded(std::nullopt, std::nullopt, int(writer_->status()), context);
                }};
}

void MovieExport::sampleProgress() {
    monitor_->sampleIfNeeded(video_->framesWritten(), video_->secondsWritten(), int(writer_->status()),
                             diagnostics_.stage());
}

} // namespace panoveer
