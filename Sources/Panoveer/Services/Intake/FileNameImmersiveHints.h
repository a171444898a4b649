#pragma once

#include "Panoveer/Model/Records/ProjectionFormat.h"

#include <optional>
#include <string_view>

namespace panoveer {

// What people and cameras write into file names: "beach_360_TB", "clip-fisheye190-sbs". A value; absent is not said.
struct FileNameImmersiveHints {
    FileNameImmersiveHints() = default;
    // Without the extension. Of words that contradict each other the last one counts.
    explicit FileNameImmersiveHints(std::string_view fileName);

    std::optional<ProjectionFormat> projection;
    std::optional<StereoVideoLayout> stereoLayout;
    bool eyesSwapped = false;                 // false: not said
    std::optional<double> fisheyeFieldOfView; // degrees, 90 to 360

    friend bool operator==(const FileNameImmersiveHints&, const FileNameImmersiveHints&) = default;
};

} // namespace panoveer
