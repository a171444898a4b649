#pragma once

#include "Panoveer/Model/Records/ProjectionFormat.h"

#include <optional>

namespace panoveer {

// What a container says of its own projection and stereo packing. An absent projection or layout was not said.
struct ContainerImmersiveMetadata {
    std::optional<ProjectionFormat> projection = {};
    std::optional<StereoVideoLayout> stereoLayout = {};
    bool eyesSwapped = false; // the right eye comes first
    bool isStereoMultiview = false;
    std::optional<double> horizontalFieldOfView = {}; // degrees, above 0 and below 180
    std::optional<double> stereoBaselineMillimeters = {};

    friend bool operator==(const ContainerImmersiveMetadata&, const ContainerImmersiveMetadata&) = default;
};

} // namespace panoveer
