#pragma once

#include "Panoveer/Model/Records/ExportProgress.h"
#include "Panoveer/Model/Records/ExportSettings.h"
#include "Panoveer/Model/Records/VRClipSegment.h"
#include "Panoveer/Rendering/Projection/ProjectionRenderer.h"
#include "Panoveer/Services/Export/ExportDiagnostics.h"
#include "Panoveer/Services/Export/ExportOutputDescriptor.h"
#include "Panoveer/Services/Export/ExportRuntimeMonitor.h"
#include "Panoveer/Services/Export/SegmentFrameSource.h"
#include "Panoveer/Services/Export/SourceFrameRates.h"

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <span>
#include <stop_token>
#include <vector>

namespace panoveer {

// Writes the movies of an export. For each planned movie it decodes the segments, has every picture reprojected, feeds
// the encoder, adds the immersive metadata, checks the result and only then gives it its final name. Whatever goes
// wrong, nothing stands under a final name that was not complete and checked.
//
// Blocking functions, called on the export's own thread; one export at a time. Stopping is asked for through the stop
// token and answered with Cancelled. framesWritten() may be read from any thread.
class VRNativeExporter {
public:
    using ProgressHandler = std::function<void(const ExportProgress&)>;
    // Makes the trace of one export; may throw, and the export then goes on without one.
    using DiagnosticsFactory = std::function<std::unique_ptr<ExportDiagnostics>(const URL& destination)>;

    // The renderer is borrowed for the life of the exporter.
    explicit VRNativeExporter(ProjectionRenderer& renderer, DiagnosticsFactory makeDiagnostics = {},
                              SegmentFrameRoads roads = {},
                              ExportSystemReadings readings = ExportSystemReadings::system());

    // The whole job: plans the movies and writes them one after another. `destination` is the file of a single movie
    // and the folder of separate clips. Returns the movies written. Throws ExportPlannerError as it stands, the Error
    // of requireSourcesStay, and for a movie that was not finished Cancelled, or VRExportError with
    // cancelledPartialSaved or failedPartialSaved where a part of it was kept, else with codecExportFailed; a failure
    // is carried as underlying(). Movies that were finished before it stay.
    std::vector<URL> exportClips(std::span<const VRClipSegment> segments, const ExportSettings& settings,
                                 const URL& destination, const SourceFrameRates& sourceFrameRates,
                                 const ProgressHandler& progress, std::stop_token stop);

    // Throws an Error when one of the movies would take the place of a file that the clips are read from.
    static void requireSourcesStay(std::span<const ExportOutputDescriptor> movies,
                                   std::span<const VRClipSegment> segments);

    // Frames handed to the writer of the movie in progress, or of the last one.
    std::int64_t framesWritten() const { return framesWritten_.load(); }

private:
    ProjectionRenderer& renderer_;
    DiagnosticsFactory makeDiagnostics_;
    SegmentFrameRoads roads_;
    ExportSystemReadings readings_;
    std::atomic<std::int64_t> framesWritten_ = 0;
};

} // namespace panoveer
