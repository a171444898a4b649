#include "Panoveer/Model/Records/ExportDeliveryPreset.h"

#include <array>

namespace panoveer {

namespace {

using enum ProjectionFormat;
using enum StereoVideoLayout;
using Preset = ExportDeliveryPreset;

constexpr auto h264 = ExportCodec::h264;
constexpr auto hevc10 = ExportCodec::hevc10;
constexpr auto mvhevc10 = ExportCodec::mvhevc10;
constexpr auto proRes = ExportCodec::proRes;
constexpr auto automatic = VRMetadataMode::automatic;
constexpr auto off = VRMetadataMode::off;

struct DeliveryEntry {
    Preset preset;
    std::string_view title;
    ExportDeliveryRecipe recipe;
};

constexpr std::array<DeliveryEntry, 11> deliveries = {{
    {Preset::youtube360, "YouTube 360", {equirectangular, {7680, 3840}, h264, automatic, mono}},
    {Preset::stereo360, "360 3D", {equirectangular, {5760, 5760}, hevc10, automatic, overUnder}},
    {Preset::questLocal, "Quest Local", {equirectangular, {5760, 2880}, hevc10, automatic, mono}},
    {Preset::vr180Stereo, "VR180 3D", {halfEquirectangular, {8192, 4096}, hevc10, automatic, sideBySide}},
    {Preset::fulldome4K, "Fulldome 4K", {domemaster, {4096, 4096}, proRes, automatic, mono}},
    {Preset::fulldome8K, "Fulldome 8K", {domemaster, {8192, 8192}, proRes, automatic, mono}},
    {Preset::mirrorDome, "Mirror Dome", {mirrorDome, {1920, 1080}, h264, automatic, mono}},
    {Preset::archiveMaster, "Archive Master", {equirectangular, {8192, 4096}, proRes, off, mono}},
    {Preset::standardMP4, "Standard MP4", {standard, {3840, 2160}, h264, automatic, mono}},
    {Preset::appleSpatialVideo, "Apple Spatial Video", {standard, {7680, 2160}, mvhevc10, automatic, sideBySide}},
    {Preset::visionProVR180, "Vision Pro VR180", {halfEquirectangular, {8192, 4096}, mvhevc10, automatic, sideBySide}},
}};

static_assert(
    [] {
        for (std::size_t i = 0; i < deliveries.size(); ++i)
            if (std::size_t(deliveries[i].preset) != i)
                return false;
        return true;
    }(),
    "the table must list the presets in declared order");

constexpr const DeliveryEntry& entry(Preset preset) { return deliveries[std::size_t(preset)]; }

} // namespace

std::string_view title(ExportDeliveryPreset preset) { return entry(preset).title; }

const ExportDeliveryRecipe& recipe(ExportDeliveryPreset preset) { return entry(preset).recipe; }

ExportResolutionPreset exportPreset(ExportDeliveryPreset preset) {
    const auto& [format, resolution, codec, vrMetadataMode, stereoLayout] = recipe(preset);
    return {format, std::string(title(preset)), resolution, codec, stereoLayout, std::nullopt};
}

std::optional<ExportDeliveryPreset> matchingDeliveryPreset(const ExportSettings& settings) {
    const ExportDeliveryRecipe described{settings.outputFormat, settings.validatedResolution(), settings.codec,
                                         settings.vrMetadataMode, settings.effectiveStereoLayout()};
    for (const auto& delivery : deliveries)
        if (delivery.recipe == described)
            return delivery.preset;
    return std::nullopt;
}

} // namespace panoveer
