#pragma once

#include "Panoveer/Model/Records/RecordCoding.h"

#include <algorithm>
#include <cmath>

// The fields of the records, in the order in which they are written, and what is corrected when they are read.
namespace panoveer {

template<>
struct RecordTable<OutputResolution> {
    using R = OutputResolution;
    static constexpr auto fields = std::tuple{
        required("width", &R::width),
        required("height", &R::height),
    };
};

template<>
struct RecordTable<FisheyeCircle> {
    using R = FisheyeCircle;
    static constexpr auto fields = std::tuple{
        required("centerX", &R::centerX),
        required("centerY", &R::centerY),
        required("radius", &R::radius),
    };
};

template<>
struct RecordTable<CGSizeValue> {
    using R = CGSizeValue;
    static constexpr auto fields = std::tuple{
        required("width", &R::width),
        required("height", &R::height),
    };
};

template<>
struct RecordTable<VideoColorMetadata> {
    using R = VideoColorMetadata;
    static constexpr auto fields = std::tuple{
        required("primaries", &R::primaries),
        required("transferFunction", &R::transferFunction),
        required("yCbCrMatrix", &R::yCbCrMatrix),
        optional("masteringDisplayColorVolume", &R::masteringDisplayColorVolume),
        optional("contentLightLevelInfo", &R::contentLightLevelInfo),
    };
};

// Read as it stands: the clip that holds it normalises it.
template<>
struct RecordTable<VRTransform> {
    using R = VRTransform;
    static constexpr auto fields = std::tuple{
        required("sourceFormat", &R::sourceFormat),
        required("outputFormat", &R::outputFormat),
        defaulted("sourcePreset", &R::sourcePreset),
        defaulted("sourceStereoLayout", &R::sourceStereoLayout),
        defaulted("sourceEyesSwapped", &R::sourceEyesSwapped),
        defaulted("outputStereoLayout", &R::outputStereoLayout),
        defaulted("monoStereoEye", &R::monoStereoEye),
        required("fovDegrees", &R::fovDegrees),
        defaulted("standardDistance", &R::standardDistance),
        required("yawDegrees", &R::yawDegrees),
        required("pitchDegrees", &R::pitchDegrees),
        required("rollDegrees", &R::rollDegrees),
        required("domemasterThetaDegrees", &R::domemasterThetaDegrees),
        required("outputResolution", &R::outputResolution),
        optional("mirrorDomeWarpMeshURL", &R::mirrorDomeWarpMeshURL),
        optional("fisheyeCircle", &R::fisheyeCircle),
        optional("sourceHorizontalFieldOfView", &R::sourceHorizontalFieldOfView),
        optional("sourceStereoBaselineMillimeters", &R::sourceStereoBaselineMillimeters),
    };
};

template<>
struct RecordTable<VRClipSegment> {
    using R = VRClipSegment;
    static constexpr auto fields = std::tuple{
        required("id", &R::id),
        // A clip from before the queue had entries is an entry of its own.
        defaulted("queueItemID", &R::queueItemID, [](const R& clip) { return clip.id; }),
        required("sourceURL", &R::sourceURL),
        required("start", &R::start),
        required("end", &R::end),
        required("transform", &R::transform),
        optional("exportFileName", &R::exportFileName),
        optional("markedInPoint", &R::markedInPoint),
        optional("markedOutPoint", &R::markedOutPoint),
        defaulted("videoDecodingBackend", &R::videoDecodingBackend),
        defaulted("sourceOrientation", &R::sourceOrientation),
        defaulted("colorMetadata", &R::colorMetadata),
    };

    static void correct(R& clip) { clip = clip.normalized(0); }
};

template<>
struct RecordTable<ImmersiveFormatDetection> {
    using R = ImmersiveFormatDetection;
    static constexpr auto fields = std::tuple{
        required("projection", &R::projection),
        required("stereoLayout", &R::stereoLayout),
        required("eyesSwapped", &R::eyesSwapped),
        optional("fisheyeCircle", &R::fisheyeCircle),
        optional("fisheyeFieldOfView", &R::fisheyeFieldOfView),
        required("isDualFisheyeLens", &R::isDualFisheyeLens),
        required("source", &R::source),
        optional("isStereoMultiview", &R::isStereoMultiview),
        optional("horizontalFieldOfView", &R::horizontalFieldOfView),
        optional("stereoBaselineMillimeters", &R::stereoBaselineMillimeters),
    };
};

template<>
struct RecordTable<VideoAsset> {
    using R = VideoAsset;
    static constexpr auto fields = std::tuple{
        required("id", &R::id),
        required("url", &R::url),
        optional("securityScopedBookmark", &R::securityScopedBookmark),
        required("displayName", &R::displayName),
        required("duration", &R::duration),
        required("frameRate", &R::frameRate),
        required("naturalSize", &R::naturalSize),
        required("detectedFormat", &R::detectedFormat),
        defaulted("playbackStatus", &R::playbackStatus),
        defaulted("liveSyphonCompatibility", &R::liveSyphonCompatibility),
        defaulted("containsAlphaChannel", &R::containsAlphaChannel),
        defaulted("videoDecodingBackend", &R::videoDecodingBackend),
        optional("ffmpegPlaybackClockURL", &R::ffmpegPlaybackClockURL),
        defaulted("sourceOrientation", &R::sourceOrientation),
        defaulted("colorMetadata", &R::colorMetadata),
        optional("formatDetection", &R::formatDetection),
    };

    static void correct(R& asset) {
        asset.duration = std::max(0.0, asset.duration);
        if (!(asset.frameRate > 0))
            asset.frameRate = 30.0;
    }
};

template<>
struct RecordTable<ExportSettings> {
    using R = ExportSettings;
    static constexpr auto fields = std::tuple{
        required("mode", &R::mode),
        required("codec", &R::codec),
        required("outputFormat", &R::outputFormat),
        required("customWidth", &R::customWidth),
        required("customHeight", &R::customHeight),
        optional("mirrorDomeWarpMeshURL", &R::mirrorDomeWarpMeshURL),
        optional("mirrorDomeWarpMeshBookmark", &R::mirrorDomeWarpMeshBookmark),
        defaulted("stereoLayout", &R::stereoLayout),
        defaulted("vrMetadataMode", &R::vrMetadataMode),
        defaulted("bitrateMode", &R::bitrateMode),
        defaulted("customBitrateMbps", &R::customBitrateMbps),
        defaulted("frameRateMode", &R::frameRateMode),
        defaulted("customFrameRate", &R::customFrameRate),
        defaulted("colorMode", &R::colorMode),
        defaulted("audioMode", &R::audioMode),
    };

    static void correct(R& settings) {
        settings.vrMetadataMode = migratedToSelectableMode(settings.vrMetadataMode);
        auto& rate = settings.customFrameRate;
        rate = std::isfinite(rate) && rate > 0 ? std::clamp(std::round(rate * 1000) / 1000, 1.0, 240.0) : 30.0;
    }
};

} // namespace panoveer
