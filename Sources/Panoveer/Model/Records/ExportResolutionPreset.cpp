#include "Panoveer/Model/Records/ExportResolutionPreset.h"

#include "Panoveer/Model/Records/ExportSettings.h"
#include "Panoveer/Model/Records/RecordEnums.h"

#include <algorithm>
#include <array>
#include <format>
#include <ranges>
#include <vector>

namespace panoveer {

namespace {

using enum ProjectionFormat;
using enum StereoVideoLayout;

constexpr auto h264 = ExportCodec::h264;
constexpr auto hevc10 = ExportCodec::hevc10;
constexpr auto proRes = ExportCodec::proRes;

constexpr auto flatImage = "preset-standard-alpha";
constexpr auto questImage = "preset-meta-quest-alpha";
constexpr auto visionImage = "preset-vision-pro-alpha";
constexpr auto domeImage = "preset-fulldome-alpha";
constexpr auto cubeImage = "preset-cubemap-alpha";

// Grouped by format, so that the presets of one format are one span.
const std::vector<ExportResolutionPreset>& catalogue() {
    static const std::vector<ExportResolutionPreset> all = {
        {standard, "Full HD", {1920, 1080}, h264, {}, flatImage},
        {standard, "4K", {3840, 2160}, h264, {}, flatImage},
        {standard, "3D Full SBS", {7680, 2160}, hevc10, sideBySide, flatImage},
        {equirectangular, "2K", {2048, 1024}, hevc10, {}, questImage},
        {equirectangular, "4K", {4096, 2048}, hevc10, {}, questImage},
        {equirectangular, "YouTube 360", {7680, 3840}, h264, {}, questImage},
        {equirectangular, "8K", {8192, 4096}, hevc10, {}, questImage},
        {equirectangular, "360 3D 4K", {4096, 4096}, hevc10, overUnder, questImage},
        {equirectangular, "360 3D 5.7K", {5760, 5760}, hevc10, overUnder, questImage},
        {halfEquirectangular, "VR180 2D 4K", {4096, 4096}, hevc10, {}, visionImage},
        {halfEquirectangular, "VR180 3D 5.7K", {5760, 2880}, hevc10, sideBySide, visionImage},
        {halfEquirectangular, "VR180 3D 8K", {8192, 4096}, hevc10, sideBySide, visionImage},
        {domemaster, "1K Dome", {1024, 1024}, proRes, {}, domeImage},
        {domemaster, "2K Dome", {2048, 2048}, proRes, {}, domeImage},
        {domemaster, "4K Dome", {4096, 4096}, proRes, {}, domeImage},
        {domemaster, "8K Dome", {8192, 8192}, proRes, {}, domeImage},
        {cubemap, "Cube 1K", {3072, 2048}, hevc10, {}, cubeImage},
        {cubemap, "Cube 2K", {6144, 4096}, hevc10, {}, cubeImage},
        {cubemap, "Cube 4K", {12288, 8192}, proRes, {}, cubeImage},
        {mirrorDome, "Mirror 16:9", {1920, 1080}, h264, {}, domeImage},
        {mirrorDome, "Mirror 16:10", {1920, 1200}, h264, {}, domeImage},
        {mirrorDome, "Mirror 4K 16:9", {3840, 2160}, proRes, {}, domeImage},
        {mirrorDome, "Mirror 4K 16:10", {3840, 2400}, proRes, {}, domeImage},
    };
    return all;
}

const ExportResolutionPreset& named(std::string_view name) {
    return *std::ranges::find(catalogue(), name, &ExportResolutionPreset::name);
}

} // namespace

const ExportResolutionPreset& ExportResolutionPreset::vr180StereoSideBySide() { return named("VR180 3D 8K"); }
const ExportResolutionPreset& ExportResolutionPreset::vr180StereoSideBySide57K() { return named("VR180 3D 5.7K"); }
const ExportResolutionPreset& ExportResolutionPreset::stereo360OverUnder() { return named("360 3D 5.7K"); }
const ExportResolutionPreset& ExportResolutionPreset::youtube360() { return named("YouTube 360"); }

std::span<const ExportResolutionPreset> ExportResolutionPreset::presets(ProjectionFormat format) {
    return std::ranges::equal_range(catalogue(), format, {}, &ExportResolutionPreset::format);
}

std::span<const ExportResolutionPreset> ExportResolutionPreset::recommended() {
    static const std::array all = {
        vr180StereoSideBySide(),
        stereo360OverUnder(),
        youtube360(),
        ExportResolutionPreset{equirectangular, "Meta Quest 3", {5760, 2880}, hevc10, {}, questImage},
        ExportResolutionPreset{equirectangular, "Apple Vision Pro", {8192, 4096}, hevc10, {}, visionImage},
        ExportResolutionPreset{domemaster, "Dome 4K", {4096, 4096}, proRes, {}, domeImage},
        ExportResolutionPreset{mirrorDome, "Mirror Dome", {1920, 1080}, h264, {}, domeImage},
        ExportResolutionPreset{cubemap, "Cubemap 2K", {6144, 4096}, hevc10, {}, cubeImage},
        ExportResolutionPreset{standard, "Standard 4K", {3840, 2160}, h264, {}, flatImage},
    };
    return all;
}

const ExportResolutionPreset* ExportResolutionPreset::recommendedMatch(const ExportSettings& settings) {
    const auto match = std::ranges::find_if(recommended(), [&](const ExportResolutionPreset& preset) {
        return preset.format == settings.outputFormat && preset.resolution == settings.validatedResolution() &&
               preset.codec.value_or(settings.codec) == settings.codec &&
               preset.stereoLayout.value_or(mono) == settings.effectiveStereoLayout();
    });
    return match == recommended().end() ? nullptr : &*match;
}

std::string ExportResolutionPreset::id() const {
    return std::format("{}-{}x{}-{}", rawValue(format), resolution.width, resolution.height,
                       stereoLayout ? rawValue(*stereoLayout) : "default");
}

std::string ExportResolutionPreset::displayName() const {
    return std::format("{}  {}x{}", name, resolution.width, resolution.height);
}

} // namespace panoveer
