#pragma once

#include "Panoveer/Model/Records/ExportSettings.h"
#include "Panoveer/Model/Records/VRClipSegment.h"

#include <optional>
#include <vector>

namespace panoveer {

// One planned movie.
struct ExportOutputDescriptor {
    URL url;                             // the final file
    std::vector<VRClipSegment> segments; // trimmed and normalised; each transform carries the output settings
    ProjectionFormat outputFormat = ProjectionFormat::standard;
    OutputResolution resolution; // validated, whole frame
    StereoVideoLayout stereoLayout = StereoVideoLayout::mono;
    ExportCodec codec = ExportCodec::hevc10;
    std::optional<double> bitrateMbps;     // none for ProRes
    std::optional<double> targetFrameRate; // to retime to; only for a single movie of sources that differ
    std::optional<double> frameRate;       // of the sources; none when no rate is known
    VRMetadataMode vrMetadataMode = VRMetadataMode::automatic;
    ExportColorMode colorMode = ExportColorMode::convertToSDR;
    ExportAudioMode audioMode = ExportAudioMode::automatic;

    friend bool operator==(const ExportOutputDescriptor&, const ExportOutputDescriptor&) = default;
};

} // namespace panoveer
