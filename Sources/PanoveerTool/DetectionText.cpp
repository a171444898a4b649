#include "PanoveerTool/DetectionText.h"

#include "Panoveer/Model/Records/RecordEnums.h"
#include "Panoveer/Model/Records/RecordJSON.h"
#include "PanoveerTool/JSONText.h"

#include <nlohmann/json.hpp>

#include <format>
#include <iostream>

namespace panoveer::tool {

namespace {

std::string_view evidence(ImmersiveFormatDetection::Source source) {
    switch (source) {
    case ImmersiveFormatDetection::Source::metadata: return "from its metadata";
    case ImmersiveFormatDetection::Source::fileName: return "from its name";
    case ImmersiveFormatDetection::Source::imageAnalysis: return "from its pictures";
    case ImmersiveFormatDetection::Source::aspectRatio: break;
    }
    return "from its shape";
}

} // namespace

std::string describe(const ImmersiveFormatDetection& detection, const StatedImmersiveFormat& stated) {
    const auto asTold = [](bool isStated) { return isStated ? " as told" : ""; };
    auto text = std::format("{}{}, {}{}", rawValue(detection.projection), asTold(stated.projection.has_value()),
                            rawValue(detection.stereoLayout), asTold(stated.stereoLayout.has_value()));
    if (detection.stereoLayout != StereoVideoLayout::mono)
        text += std::format(" with the {} eye first{}", detection.eyesSwapped ? "right" : "left",
                            asTold(stated.eyesSwapped.has_value()));
    if (const auto& circle = detection.fisheyeCircle)
        text += std::format(", circle {:.3f} at {:.3f} {:.3f}", circle->radius, circle->centerX, circle->centerY);
    if (detection.fisheyeFieldOfView)
        text += std::format(", {:g} degrees", *detection.fisheyeFieldOfView);
    if (detection.isDualFisheyeLens)
        text += ", dual fisheye lens";
    if (!stated.projection || !stated.stereoLayout)
        text += std::format(" ({})", evidence(detection.source));
    return text;
}

void announce(const VideoAsset& asset, const StatedImmersiveFormat& stated, ProgressStyle style) {
    const auto& detection = asset.formatDetection.value();
    if (style == ProgressStyle::json) {
        nlohmann::ordered_json line = {{"source", asset.url.path().string()}};
        line["detection"] = nlohmann::ordered_json::parse(encodeJSON(detection));
        std::cerr << jsonText(line) << '\n';
    } else {
        std::cerr << std::format("panoveer: {}: {}\n", asset.url.lastPathComponent(), describe(detection, stated));
    }
}

} // namespace panoveer::tool
