#pragma once

#include "Panoveer/Rendering/Projection/ProjectionRenderer.h"
#include "Panoveer/Services/Export/ExportBufferBudget.h"
#include "Panoveer/Services/Export/ExportDiagnosticFields.h"
#include "Panoveer/Services/Export/ExportDiagnostics.h"
#include "Panoveer/Services/Export/ExportFrameClock.h"
#include "Panoveer/Services/Export/ExportOutputDescriptor.h"
#include "Panoveer/Services/Export/ExportRuntimeMonitor.h"
#include "Panoveer/Services/Export/ExportSegmentFrameSlots.h"
#include "Panoveer/Services/Export/ExportWaits.h"
#include "Panoveer/Services/Export/FixedFrameRateVideoRetimer.h"
#include "Panoveer/Services/Export/SegmentFrameSource.h"
#include "Platform/Core/FileLock.h"
#include "Platform/Media/AssetWriter.h"

#include <cstdint>
#include <deque>
#include <exception>
#include <functional>
#include <memory>
#include <optional>
#include <stop_token>
#include <string>

namespace panoveer {

// The writing of one movie, from its staged file to the commit under its final name:
//
//   source -> decode (ahead) -> render (ahead) -> [retime] -> encode -> staged file -> metadata -> check -> rename
//
// Made for one movie and run once, on the export's thread; decoder, renderer and encoder work beside it. Any failure
// leaves the final name as it was. What can be played of a movie that was stopped or failed is kept beside that name;
// otherwise the staged file is removed.
class MovieExport {
public:
    // Seconds of the movie that are written, frames written, and the key of a message for the person.
    using Report = std::function<void(double seconds, std::int64_t framesWritten, const std::string& messageKey)>;

    // All that is referred to outlives this.
    MovieExport(ProjectionRenderer& renderer, const SegmentFrameRoads& roads, const ExportOutputDescriptor& descriptor,
                ExportDiagnostics& diagnostics, std::stop_token stop, ExportOutputPosition position = {},
                ExportSystemReadings readings = ExportSystemReadings::system());
    ~MovieExport();

    // Throws Cancelled, VRExportError with cancelledPartialSaved or failedPartialSaved, or whatever went wrong. After
    // a stop the encoder still completes the pictures that it was given.
    void run(const Report& report);

private:
    // A rendered frame that the engine may not have finished.
    struct PendingNativeVideoFrame {
        PixelBufferPtr outputPixelBuffer;
        std::unique_ptr<PendingRender> render;
        ColorAttachments sourceColor;
        std::optional<std::int64_t> frameIndex; // its slot; absent when the retimer decides later
        double safeRelativeSeconds = 0;         // finite and not negative
    };

    // What one segment's loop carries along.
    struct SegmentRun {
        const VRClipSegment& segment;
        ExportSegmentFrameSlots slots;
        double durationSeconds = 0;
        std::unique_ptr<FixedFrameRateVideoRetimer> retimer; // only with a target rate
        std::deque<PendingNativeVideoFrame> pending;
        bool readsThroughFFmpeg = false;
        std::int64_t framesRead = 0;
        std::int64_t framesWritten = 0;
        std::int64_t nextSlot = 0; // slots below it are done with
    };

    void prepareDestination();
    void configureWriter();
    void exportSegments();
    std::int64_t plannedFrameCount() const;
    SegmentRun beginSegment(const VRClipSegment& segment, double timelineStart);
    void exportSegment(SegmentRun& run);
    void readSegment(SegmentRun& run);
    bool readNatively(SegmentRun& run, std::string& reason);
    void readThroughFFmpeg(SegmentRun& run);
    void readAllFrames(SegmentRun& run, SegmentFrameSource& source);
    bool renderFrame(SegmentRun& run, SegmentFrame frame);
    PixelBufferPtr acquireOutput(SegmentRun& run);
    void drainPending(SegmentRun& run, std::size_t keep);
    void appendPendingNativeFrame(SegmentRun& run, PendingNativeVideoFrame frame);
    void appendAtSlot(SegmentRun& run, const PixelBufferPtr& picture, std::int64_t slot);
    void hold(SegmentRun& run, const PixelBufferPtr& picture);
    void finishMovie();
    void commitMovie();
    void stopFeeding();
    std::optional<URL> keepWhatIsCancelled();
    std::optional<URL> keepWhatIsRecoverable();
    [[noreturn]] void throwFailedPartialSaved(const URL& partial, const std::exception& failure);
    void sampleProgress();
    void injectSpatialMetadataIfNeeded();
    void validateOutput();
    void throwIfStopped() const;
    ExportWriterStatus writerStatus() const;

    ProjectionRenderer& renderer_;
    const SegmentFrameRoads& roads_;
    const ExportOutputDescriptor& descriptor_;
    ExportDiagnostics& diagnostics_;
    std::stop_token stop_;
    Report report_;
    ExportWaitClock waitClock_ = ExportWaitClock::system();
    const ExportOutputPosition position_;
    const ExportSystemReadings readings_;

    URL staged_;
    ExportFrameClock clock_;
    ExportBufferBudget budget_;
    std::unique_ptr<PixelBufferPool> pool_;
    std::unique_ptr<AssetWriter> writer_;
    VideoInput* input_ = nullptr; // owned by writer_
    FileLock inUse_;              // the staged file
    std::unique_ptr<ExportRuntimeMonitor> monitor_;
    std::int64_t framesWritten_ = 0;
    double secondsWritten_ = 0;
};

} // namespace panoveer
