#pragma once

#include "Panoveer/Services/Audio/SpatialAudioDescriptor.h"
#include "Panoveer/Services/Export/MP4Box.h"
#include "Panoveer/Services/Export/SpatialVideoMetadataRequest.h"

#include <array>
#include <cstdint>

// The boxes of Spherical Video V1 and V2 and of Spatial Audio, as published in the spatial-media RFCs. Pure functions,
// any thread.
namespace panoveer::SpatialMetadataBoxes {

inline constexpr std::array<std::uint8_t, 16> firstGenerationUUID = {0xff, 0xcc, 0x82, 0x63, 0xf8, 0x55, 0x4a, 0x93,
                                                                     0x88, 0x14, 0x58, 0x7a, 0x02, 0x52, 0x1f, 0xdd};

// "st3d"
MP4Box stereo3D(SpatialVideoMetadataRequest::StereoMode mode);
// "equi" or "cbmp"
MP4Box projection(const SpatialVideoMetadataRequest::Projection& projection);
// "sv3d": svhd, proj (prhd, equi or cbmp)
MP4Box sphericalVideo(const SpatialVideoMetadataRequest::Projection& projection);
// "uuid" with the XML document of the first generation
MP4Box sphericalUUID(SpatialVideoMetadataRequest::StereoMode mode);
// "SA3D". Throws SpatialVideoMetadataError for an order or a channel count that no file can have.
MP4Box spatialAudio(const SpatialAudioDescriptor& descriptor);

} // namespace panoveer::SpatialMetadataBoxes
