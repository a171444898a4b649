#pragma once

#include "Panoveer/Services/Export/ByteStreams.h"
#include "Platform/Core/FourCC.h"
#include "Platform/Core/URL.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace panoveer {

// The XML document of Spherical Video V1, as far as its elements are there. Texts are trimmed and otherwise as the file
// spells them.
struct SphericalVideoV1Report {
    std::optional<bool> spherical;
    std::optional<bool> stitched;
    std::optional<std::string> stitchingSoftware;
    std::optional<std::string> projectionType; // "equirectangular"
    std::optional<std::string> stereoMode;     // "mono", "left-right", "top-bottom"
    std::optional<std::int64_t> sourceCount;
    // Degrees.
    std::optional<double> initialViewHeading, initialViewPitch, initialViewRoll;
    // Pixels: the part of the full panorama that the picture covers.
    std::optional<std::int64_t> croppedAreaWidth, croppedAreaHeight, croppedAreaLeft, croppedAreaTop;
    std::optional<std::int64_t> fullPanoramaWidth, fullPanoramaHeight;

    friend bool operator==(const SphericalVideoV1Report&, const SphericalVideoV1Report&) = default;
};

// "sv3d" of Spherical Video V2.
struct SphericalVideoV2Report {
    std::string metadataSource;
    double yawDegrees = 0, pitchDegrees = 0, rollDegrees = 0;
    FourCC projection; // "equi", "cbmp", "mshp"; zero when none is there
    // Of "equi": what is cut off at each side, as a fraction of 2^32 of the whole.
    std::uint32_t boundTop = 0, boundBottom = 0, boundLeft = 0, boundRight = 0;
    // Of "cbmp".
    std::uint32_t cubemapLayout = 0;
    std::uint32_t cubemapPadding = 0; // pixels

    friend bool operator==(const SphericalVideoV2Report&, const SphericalVideoV2Report&) = default;
};

// "SA3D" of Spatial Audio.
struct SpatialAudioReport {
    std::uint8_t version = 0;
    bool headLockedStereo = false;
    std::uint8_t ambisonicType = 0; // 0: periphonic
    std::uint32_t ambisonicOrder = 0;
    std::uint8_t channelOrdering = 0; // 0: ACN
    std::uint8_t normalization = 0;   // 0: SN3D
    std::uint32_t channelCount = 0;
    std::vector<std::uint32_t> channelMap; // shorter than channelCount when the box is

    friend bool operator==(const SpatialAudioReport&, const SpatialAudioReport&) = default;
};

// "vexu", the video extended usage box of multiview and immersive video.
struct VideoExtendedUsageReport {
    std::vector<FourCC> requiredBoxes; // "must"
    // "stri"
    bool hasStereoViewInformation = false;
    bool hasLeftEyeView = false, hasRightEyeView = false, hasAdditionalViews = false, eyeViewsReversed = false;
    std::optional<std::uint8_t> heroEye;              // "hero": 0 none, 1 left, 2 right
    std::optional<std::uint32_t> baselineMicrometers; // "blin"
    std::optional<std::int32_t> disparityAdjustment;  // "dadj": ten-thousandths of the width of the picture
    std::optional<FourCC> projection;                 // "prji": "rect", "equi", "hequ", "fish", "prim"
    std::optional<FourCC> viewPacking;                // "pkin": "side", "over"
    std::vector<FourCC> otherBoxes;                   // boxes of the tree that are none of these, in file order

    friend bool operator==(const VideoExtendedUsageReport&, const VideoExtendedUsageReport&) = default;
};

// "lhvC", the parameter sets of an HEVC track's further layers.
struct LayerConfigurationReport {
    std::uint8_t version = 0;
    int lengthSize = 0;         // of the length in front of each NAL unit, bytes
    int temporalLayerCount = 0; // 0 when not said
    int sequenceParameterSets = 0, pictureParameterSets = 0;

    friend bool operator==(const LayerConfigurationReport&, const LayerConfigurationReport&) = default;
};

// One track and what its first sample entry says.
struct SpatialTrackReport {
    std::uint32_t trackID = 0;
    FourCC handler;     // "vide", "soun", …
    FourCC sampleEntry; // "avc1", "mp4a", …; zero when there is none
    // Of a video sample entry, pixels; 0 for others.
    int width = 0;
    int height = 0;
    int channelCount = 0; // of an audio sample entry

    std::optional<SphericalVideoV1Report> sphericalV1;
    std::optional<std::uint8_t> stereoMode; // "st3d": 0 mono, 1 top-bottom, 2 left-right, 3 custom, 4 right-left
    std::optional<SphericalVideoV2Report> sphericalV2;
    std::optional<VideoExtendedUsageReport> extendedUsage;
    std::optional<double> horizontalFieldOfViewDegrees;     // "hfov"
    bool hasBaseLayer = false;                              // "hvcC"
    std::optional<LayerConfigurationReport> secondaryLayer; // "lhvC": the other eye's layer, or alpha
    bool hasAlphaLayer = false; // the base layer's parameter sets say that the other one is alpha
    std::optional<SpatialAudioReport> spatialAudio;
};

struct SpatialBoxReport {
    bool isFragmented = false;
    std::vector<SpatialTrackReport> tracks; // in file order
};

// Reads which spatial boxes and layers an MP4 or QuickTime file carries; the boxes are taken at their word. The file
// may be hostile. Stateless, any thread; blocking. Throws SpatialVideoMetadataError for a file without a sound box
// tree, and Error in posixErrorDomain.
struct SpatialBoxInspector {
    static SpatialBoxReport inspect(const URL& url);
    // `url` only names the file in errors.
    static SpatialBoxReport inspect(const ByteSource& source, const URL& url);
};

} // namespace panoveer
