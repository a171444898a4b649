#pragma once

#include "Panoveer/Model/Records/ProjectionFormat.h"
#include "Panoveer/Model/Records/VRTransform.h"

#include <optional>

namespace panoveer {

// What a file was found to be, and by which evidence.
struct ImmersiveFormatDetection {
    enum class Source { metadata, fileName, imageAnalysis, aspectRatio };

    ProjectionFormat projection = ProjectionFormat::standard;
    StereoVideoLayout stereoLayout = StereoVideoLayout::mono;
    bool eyesSwapped = false;
    std::optional<FisheyeCircle> fisheyeCircle;
    std::optional<double> fisheyeFieldOfView; // degrees
    bool isDualFisheyeLens = false;
    Source source = Source::aspectRatio;
    std::optional<bool> isStereoMultiview;
    std::optional<double> horizontalFieldOfView; // degrees
    std::optional<double> stereoBaselineMillimeters;

    friend bool operator==(const ImmersiveFormatDetection&, const ImmersiveFormatDetection&) = default;
};

} // namespace panoveer
