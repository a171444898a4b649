#pragma once

#include "Panoveer/Model/Records/VRClipSegment.h"

namespace panoveer {

// One planned mask picture.
struct ExportAlphaMaskDescriptor {
    URL url;
    VRClipSegment segment; // its transform carries the output settings, but its own stereo layout
    ProjectionFormat outputFormat = ProjectionFormat::standard;
    OutputResolution resolution; // validated, whole frame

    friend bool operator==(const ExportAlphaMaskDescriptor&, const ExportAlphaMaskDescriptor&) = default;
};

} // namespace panoveer
