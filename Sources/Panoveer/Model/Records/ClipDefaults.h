#pragma once

#include "Panoveer/Model/Records/ExportSettings.h"
#include "Panoveer/Model/Records/VRClipSegment.h"
#include "Panoveer/Model/Records/VideoAsset.h"

namespace panoveer {

// The transform that a new clip of an asset starts with: the source as it was detected, the output as the settings ask.
VRTransform defaultTransform(const VideoAsset& asset, const ExportSettings& settings);

// A clip over the whole of an asset, a queue entry of its own.
VRClipSegment makeClip(const VideoAsset& asset, const ExportSettings& settings);

} // namespace panoveer
