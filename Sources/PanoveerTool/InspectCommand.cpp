#include "Panoveer/Services/Export/MP4Box.h"
#include "Panoveer/Services/Export/SpatialBoxInspector.h"
#include "PanoveerTool/Commands.h"
#include "PanoveerTool/JSONText.h"

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include <iostream>

namespace panoveer::tool {

namespace {

using JSON = nlohmann::ordered_json;

template<class Value>
void add(JSON& object, const char* name, const std::optional<Value>& value) {
    if (value)
        object[name] = *value;
}

void add(JSON& object, const char* name, const std::optional<FourCC>& value) {
    if (value)
        object[name] = MP4Tag::text(*value);
}

JSON describe(const SphericalVideoV1Report& report) {
    JSON result = JSON::object();
    add(result, "spherical", report.spherical);
    add(result, "stitched", report.stitched);
    add(result, "stitchingSoftware", report.stitchingSoftware);
    add(result, "projectionType", report.projectionType);
    add(result, "stereoMode", report.stereoMode);
    add(result, "sourceCount", report.sourceCount);
    add(result, "initialViewHeadingDegrees", report.initialViewHeading);
    add(result, "initialViewPitchDegrees", report.initialViewPitch);
    add(result, "initialViewRollDegrees", report.initialViewRoll);
    add(result, "croppedAreaWidth", report.croppedAreaWidth);
    add(result, "croppedAreaHeight", report.croppedAreaHeight);
    add(result, "croppedAreaLeft", report.croppedAreaLeft);
    add(result, "croppedAreaTop", report.croppedAreaTop);
    add(result, "fullPanoramaWidth", report.fullPanoramaWidth);
    add(result, "fullPanoramaHeight", report.fullPanoramaHeight);
    return result;
}

JSON describe(const SphericalVideoV2Report& report) {
    constexpr double whole = 4294967296.0; // 2^32
    JSON result = {{"metadataSource", report.metadataSource},
                   {"projection", MP4Tag::text(report.projection)},
                   {"yawDegrees", report.yawDegrees},
                   {"pitchDegrees", report.pitchDegrees},
                   {"rollDegrees", report.rollDegrees}};
    if (report.projection == FourCC("equi"))
        result["bounds"] = {{"top", report.boundTop / whole},
                            {"bottom", report.boundBottom / whole},
                            {"left", report.boundLeft / whole},
                            {"right", report.boundRight / whole}};
    if (report.projection == FourCC("cbmp")) {
        result["layout"] = report.cubemapLayout;
        result["padding"] = report.cubemapPadding;
    }
    return result;
}

JSON describe(const VideoExtendedUsageReport& report) {
    JSON result = JSON::object();
    if (report.hasStereoViewInformation)
        result["eyes"] = {{"left", report.hasLeftEyeView},
                          {"right", report.hasRightEyeView},
                          {"additional", report.hasAdditionalViews},
                          {"reversed", report.eyeViewsReversed}};
    add(result, "heroEye", report.heroEye);
    add(result, "baselineMicrometers", report.baselineMicrometers);
    add(result, "disparityAdjustment", report.disparityAdjustment);
    add(result, "projection", report.projection);
    add(result, "viewPacking", report.viewPacking);
    for (const auto& [name, boxes] :
         {std::pair("required", &report.requiredBoxes), std::pair("otherBoxes", &report.otherBoxes)})
        for (const auto box : *boxes)
            result[name].push_back(MP4Tag::text(box));
    return result;
}

JSON describe(const LayerConfigurationReport& report) {
    return {{"version", report.version},
            {"lengthSize", report.lengthSize},
            {"temporalLayers", report.temporalLayerCount},
            {"sequenceParameterSets", report.sequenceParameterSets},
            {"pictureParameterSets", report.pictureParameterSets}};
}

// What a layer beside the base layer is for.
const char* secondaryLayerRole(const SpatialTrackReport& track) {
    if (track.extendedUsage && track.extendedUsage->hasLeftEyeView && track.extendedUsage->hasRightEyeView)
        return "other eye";
    return track.hasAlphaLayer ? "alpha" : "not said";
}

JSON describe(const SpatialAudioReport& report) {
    return {{"ambisonicOrder", report.ambisonicOrder}, {"channelOrdering", report.channelOrdering},
            {"normalization", report.normalization},   {"channelCount", report.channelCount},
            {"channelMap", report.channelMap},         {"headLockedStereo", report.headLockedStereo}};
}

JSON describe(const SpatialTrackReport& track) {
    JSON result = {{"track", track.trackID},
                   {"handler", MP4Tag::text(track.handler)},
                   {"sampleEntry", MP4Tag::text(track.sampleEntry)}};
    if (track.width > 0) {
        result["width"] = track.width;
        result["height"] = track.height;
    }
    if (track.channelCount > 0)
        result["channels"] = track.channelCount;
    if (track.sphericalV1)
        result["sphericalV1"] = describe(*track.sphericalV1);
    add(result, "stereoMode", track.stereoMode);
    if (track.sphericalV2)
        result["sphericalV2"] = describe(*track.sphericalV2);
    if (track.extendedUsage)
        result["extendedUsage"] = describe(*track.extendedUsage);
    add(result, "horizontalFieldOfViewDegrees", track.horizontalFieldOfViewDegrees);
    if (track.secondaryLayer) {
        result["layers"] = 2;
        result["secondaryLayer"] = describe(*track.secondaryLayer);
        result["secondaryLayer"]["role"] = secondaryLayerRole(track);
    }
    if (track.spatialAudio)
        result["spatialAudio"] = describe(*track.spatialAudio);
    return result;
}

void printText(const JSON& report) {
    std::cout << report["file"].get<std::string>() << (report["fragmented"].get<bool>() ? "  (fragmented)\n" : "\n");
    for (const auto& track : report["tracks"]) {
        std::cout << "  track " << track["track"] << ' ' << track["handler"].get<std::string>() << ' '
                  << track["sampleEntry"].get<std::string>() << '\n';
        for (const auto& [name, value] : track.items())
            if (name != "track" && name != "handler" && name != "sampleEntry")
                std::cout << "    " << name << ": " << jsonText(value) << '\n';
    }
}

void inspect(const std::string& path, bool json) {
    const auto url = URL::fromFilePath(path);
    const auto found = SpatialBoxInspector::inspect(url);
    JSON report = {{"file", url.path().string()}, {"fragmented", found.isFragmented}, {"tracks", JSON::array()}};
    for (const auto& track : found.tracks)
        report["tracks"].push_back(describe(track));
    if (json)
        std::cout << jsonText(report, 2) << '\n';
    else
        printText(report);
}

} // namespace

void declareInspect(CLI::App& program) {
    struct Arguments {
        std::string path;
        bool json = false;
    };
    auto arguments = std::make_shared<Arguments>();
    auto* command = program.add_subcommand("inspect", "Show the spatial boxes and layers that a movie carries");
    command->add_option("FILE", arguments->path, "An MP4 or QuickTime movie")->required();
    command->add_flag("--json", arguments->json, "Print JSON");
    command->callback([arguments] { inspect(arguments->path, arguments->json); });
}

} // namespace panoveer::tool
