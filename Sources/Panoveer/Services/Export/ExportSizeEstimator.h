#pragma once

#include "Panoveer/Model/Records/ExportSettings.h"
#include "Panoveer/Model/Records/VRClipSegment.h"
#include "Panoveer/Services/Export/SourceFrameRates.h"

#include <span>
#include <string>

namespace panoveer {

// How large an export will be, by its bitrate. Pure functions, any thread.
struct ExportSizeEstimator {
    // Bytes; 0 for a duration (seconds) that is not positive.
    static double estimatedBytes(const ExportSettings& settings, double duration, double frameRate);

    // Bytes of everything that the clips will be exported to.
    static double estimatedBytes(const ExportSettings& settings, std::span<const VRClipSegment> segments,
                                 const SourceFrameRates& sourceFrameRates);

    // "1.5 GB", "750 MB": decimal units, as disks are sold and file browsers count.
    static std::string formattedDecimalSize(double bytes);
};

} // namespace panoveer
