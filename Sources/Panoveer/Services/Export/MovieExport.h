#pragma once

#include "Panoveer/Rendering/Projection/ProjectionRenderer.h"
#include "Panoveer/Services/Export/ExportAudioTracks.h"
#include "Panoveer/Services/Export/ExportBufferBudget.h"
#include "Panoveer/Services/Export/ExportDiagnosticFields.h"
#include "Panoveer/Services/Export/ExportDiagnostics.h"
#include "Panoveer/Services/Export/ExportFrameClock.h"
#include "Panoveer/Services/Export/ExportOutputDescriptor.h"
#include "Panoveer/Services/Export/ExportRuntimeMonitor.h"
#include "Panoveer/Services/Export/ExportVideoTrack.h"
#include "Panoveer/Services/Export/ExportWaits.h"
#include "Panoveer/Services/Export/SegmentFrameSource.h"
#include "Platform/Core/FileLock.h"
#include "Platform/Media/AssetWriter.h"

#include <cstdint>
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
    void prepareDestination();
    void configureWriter();
    void exportSegments();
    std::int64_t plannedFrameCount() const;
    void noteVideoProgress();
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
    const ExportOutputPosition position_;
    const ExportSystemReadings readings_;

    URL staged_;
    ExportFrameClock clock_;
    ExportBufferBudget budget_;
    std::unique_ptr<AssetWriter> writer_;
    FileLock inUse_; // the staged file
    std::unique_ptr<ExportRuntimeMonitor> monitor_;
    std::optional<ExportVideoTrack> video_; // feeds an input of writer_, as does audio_
    ExportAudioTracks audio_;
};

} // namespace panoveer
