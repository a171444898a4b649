#pragma once

#include "Panoveer/Model/Records/ExportCodec.h"
#include "Panoveer/Model/Records/OutputResolution.h"
#include "Panoveer/Model/Records/ProjectionFormat.h"

#include <optional>
#include <span>
#include <string>

namespace panoveer {

struct ExportSettings;

// A named size for an output format, with what goes with it. Names are the system's own, not translated.
struct ExportResolutionPreset {
    ProjectionFormat format = ProjectionFormat::standard;
    std::string name;
    OutputResolution resolution; // whole frame, both eyes included
    std::optional<ExportCodec> codec;
    std::optional<StereoVideoLayout> stereoLayout;
    std::optional<std::string> imageName; // picture on the preset's card

    static const ExportResolutionPreset& vr180StereoSideBySide();
    static const ExportResolutionPreset& vr180StereoSideBySide57K();
    static const ExportResolutionPreset& stereo360OverUnder();
    static const ExportResolutionPreset& youtube360();

    // What is offered for an output format, in order; nothing for `eac`.
    static std::span<const ExportResolutionPreset> presets(ProjectionFormat format);
    // The offer across formats, in order.
    static std::span<const ExportResolutionPreset> recommended();
    // The first recommended preset that describes the settings; null when none does.
    static const ExportResolutionPreset* recommendedMatch(const ExportSettings& settings);

    // "halfEquirectangular-8192x4096-sideBySide"
    std::string id() const;
    // "VR180 3D 8K  8192x4096"
    std::string displayName() const;

    friend bool operator==(const ExportResolutionPreset&, const ExportResolutionPreset&) = default;
};

} // namespace panoveer
