#include "Panoveer/Model/Records/ClipDefaults.h"

#include <algorithm>

namespace panoveer {

VRTransform defaultTransform(const VideoAsset& asset, const ExportSettings& settings) {
    VRTransform transform;
    transform.sourceFormat = asset.detectedFormat;
    if (const auto& detection = asset.formatDetection) {
        if (detection->isDualFisheyeLens)
            transform.applyCanonDualFisheyePreset();
        transform.sourceFormat = detection->projection;
        transform.sourceStereoLayout = detection->stereoLayout;
        transform.sourceEyesSwapped = detection->eyesSwapped;
        transform.fisheyeCircle = detection->fisheyeCircle;
        if (detection->fisheyeFieldOfView)
            transform.domemasterThetaDegrees = *detection->fisheyeFieldOfView;
        transform.sourceHorizontalFieldOfView = detection->horizontalFieldOfView;
        transform.sourceStereoBaselineMillimeters = detection->stereoBaselineMillimeters;
    }
    transform.fovDegrees = transform.defaultFOV(settings.outputFormat);
    transform.outputFormat = settings.outputFormat;
    transform.outputResolution = settings.validatedResolution();
    transform.outputStereoLayout = settings.effectiveStereoLayout();
    transform.mirrorDomeWarpMeshURL = settings.mirrorDomeWarpMeshURL;
    return transform.normalized();
}

VRClipSegment makeClip(const VideoAsset& asset, const ExportSettings& settings) {
    VRClipSegment clip;
    clip.id = UUID::random();
    clip.queueItemID = clip.id;
    clip.sourceURL = asset.url;
    clip.end = std::max(asset.duration, 0.0);
    clip.transform = defaultTransform(asset, settings);
    clip.videoDecodingBackend = asset.videoDecodingBackend;
    clip.sourceOrientation = asset.sourceOrientation;
    clip.colorMetadata = asset.colorMetadata;
    return clip;
}

} // namespace panoveer
