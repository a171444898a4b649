#pragma once

#include "Panoveer/Model/Records/VideoAsset.h"
#include "Panoveer/Services/Intake/ImmersiveFormatDetector.h"
#include "PanoveerTool/ProgressDisplay.h"

#include <string>

namespace panoveer::tool {

// What a file is, and by which evidence: "domemaster, sideBySide with the right eye first, circle 0.480 at 0.500 0.510,
// 190 degrees (from its name)".
std::string describe(const ImmersiveFormatDetection& detection, const StatedImmersiveFormat& stated = {});

// Says so on standard error in one line; in one JSON object where progress is told so.
void announce(const VideoAsset& asset, const StatedImmersiveFormat& stated, ProgressStyle style);

} // namespace panoveer::tool
