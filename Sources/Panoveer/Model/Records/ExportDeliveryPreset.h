#pragma once

#include "Panoveer/Model/Records/ExportResolutionPreset.h"
#include "Panoveer/Model/Records/ExportSettings.h"

#include <optional>
#include <string_view>

namespace panoveer {

// Where a movie is to be shown: a closed list of complete recipes.
enum class ExportDeliveryPreset {
    youtube360,
    stereo360,
    questLocal,
    vr180Stereo,
    fulldome4K,
    fulldome8K,
    mirrorDome,
    archiveMaster,
    standardMP4,
    appleSpatialVideo,
    visionProVR180,
};

struct ExportDeliveryRecipe {
    ProjectionFormat format = ProjectionFormat::standard;
    OutputResolution resolution; // whole frame, both eyes included
    ExportCodec codec = ExportCodec::h264;
    VRMetadataMode vrMetadataMode = VRMetadataMode::automatic;
    StereoVideoLayout stereoLayout = StereoVideoLayout::mono;

    friend bool operator==(const ExportDeliveryRecipe&, const ExportDeliveryRecipe&) = default;
};

// The same in every language: "YouTube 360".
std::string_view title(ExportDeliveryPreset preset);
const ExportDeliveryRecipe& recipe(ExportDeliveryPreset preset);
// The recipe without its metadata mode, named by the title, with no image.
ExportResolutionPreset exportPreset(ExportDeliveryPreset preset);

// The first preset that describes the settings in format, validated size, effective layout, codec and metadata mode.
std::optional<ExportDeliveryPreset> matchingDeliveryPreset(const ExportSettings& settings);

} // namespace panoveer
