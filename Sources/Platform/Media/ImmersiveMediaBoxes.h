#pragma once

#include "Platform/Media/ImmersiveMediaProperties.h"

#include <cstdint>
#include <vector>

namespace panoveer {

// The boxes that a sample entry says these properties with, one after the other; empty when there is nothing to say.
//
//   vexu  eyes  stri            which eyes the track has
//               hero            the eye to show where only one can be
//               cams blin       distance between the lenses
//         proj  prji            projection of each picture
//         pack  pkin            how both eyes share a picture
//   hfov                        horizontal field of view
//
// As in "ISO Base Media File Format and Apple HEVC Stereo Video" and its extension for projections and packing. Not for
// other layers.
std::vector<std::uint8_t> immersiveMediaBoxes(const ImmersiveMediaProperties& properties);

} // namespace panoveer
