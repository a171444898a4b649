#pragma once

#include "Panoveer/Model/Records/ExportProgress.h"
#include "Panoveer/Model/Records/ExportSettings.h"
#include "Panoveer/Model/Records/VRClipSegment.h"
#include "Panoveer/Rendering/Projection/ProjectionRenderer.h"
#include "Panoveer/Services/Export/ExportAlphaMaskDescriptor.h"

#include <functional>
#include <span>
#include <stop_token>

namespace panoveer {

// Writes, for compositing, one PNG for each clip that shows which pixels of the output its projection covers: opaque
// white there, dimmed where a mesh dims, and transparent elsewhere. The masks come as a folder, which appears whole or
// not at all.
//
// Blocking, on the export's own thread.
class AlphaMaskExporter {
public:
    using ProgressHandler = std::function<void(const ExportProgress&)>;

    // The renderer is borrowed for the life of the exporter.
    explicit AlphaMaskExporter(ProjectionRenderer& renderer) : renderer_(renderer) {}

    // Returns the folder within `destinationDirectory`, named so that nothing there is touched. Throws
    // ExportPlannerError with `noSegments`, the reader's error for a source that cannot be read, the renderer's, and
    // VRExportError with pngMaskWriteFailed or alphaMaskValidationFailed; Cancelled when it was stopped.
    URL exportAlphaMasks(std::span<const VRClipSegment> segments, const ExportSettings& settings,
                         const URL& destinationDirectory, const ProgressHandler& progress, std::stop_token stop);

private:
    void exportAlphaMask(const ExportAlphaMaskDescriptor& descriptor);

    ProjectionRenderer& renderer_;
};

} // namespace panoveer
