#pragma once

#include "Panoveer/Services/Export/ExportAlphaMaskDescriptor.h"
#include "Panoveer/Services/Export/ExportOutputDescriptor.h"
#include "Panoveer/Services/Export/ExportPlannerError.h"
#include "Panoveer/Services/Export/SourceFrameRates.h"

#include <span>
#include <vector>

namespace panoveer {

// Turns clips and settings into the movies or masks to write. Pure functions, any thread: names are computed, the disk
// is not looked at.
struct ExportPlanner {
    // `destination` is the file of a single movie, or the folder of separate clips. Throws ExportPlannerError.
    static std::vector<ExportOutputDescriptor> plan(std::span<const VRClipSegment> segments,
                                                    const ExportSettings& settings, const URL& destination,
                                                    const SourceFrameRates& sourceFrameRates);

    // One mask for each clip, in order. Throws ExportPlannerError with `noSegments`.
    static std::vector<ExportAlphaMaskDescriptor>
    alphaMaskPlan(std::span<const VRClipSegment> segments, const ExportSettings& settings, const URL& maskDirectory);

    // The clips as they will be exported: trimmed to their marks, normalised, the empty ones dropped.
    static std::vector<VRClipSegment> exportableSegments(std::span<const VRClipSegment> segments);
};

} // namespace panoveer
