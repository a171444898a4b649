#include "Panoveer/Services/Intake/FFmpegRuntime.h"

#include "FFmpegBridge/FFmpegBridge.h"
#include "Panoveer/Services/Intake/MediaFileSupport.h"
#include "Platform/Core/Log.h"
#include "Platform/Core/Text.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <exception>
#include <mutex>
#include <unordered_set>

namespace panoveer::FFmpegRuntime {

namespace {

constexpr Logger logger("FFmpeg");

std::mutex backendLock;                              // never held across a probe
std::unordered_set<URL> explicitSoftwarePreviewURLs; // standardized; guarded by backendLock

using ErrorBuffer = std::array<char, 1024>;

// Code points of ITU-T H.273 that the program tells apart: tables 2, 3 and 4.
enum Primaries { primariesBT2020 = 9, primariesP3D65 = 12 };
enum Transfer { transferLinear = 8, transferSRGB = 13, transferPQ = 16, transferHLG = 18 };
enum Matrix { matrixBT470BG = 5, matrixSMPTE170M = 6, matrixBT2020NonConstant = 9, matrixBT2020Constant = 10 };

// A whole sphere cropped to within a twentieth of its half counts as the half.
bool coversHalf(const PNVFFmpegVideoInfo& info) {
    const double covered = 1 - (double(info.boundLeft) + double(info.boundRight)) / 4294967296.0;
    return std::abs(0.5 - covered) < 0.05;
}

std::optional<ProjectionFormat> projectionOf(const PNVFFmpegVideoInfo& info) {
    switch (info.sphericalProjection) {
    case PNVSphericalEquirectangular:
    case PNVSphericalEquirectangularTile:
        return coversHalf(info) ? ProjectionFormat::halfEquirectangular : ProjectionFormat::equirectangular;
    case PNVSphericalCubemap: return ProjectionFormat::cubemap;
    case PNVSphericalHalfEquirectangular: return ProjectionFormat::halfEquirectangular;
    case PNVSphericalRectilinear: return ProjectionFormat::standard;
    case PNVSphericalFisheye:
    case PNVSphericalParametricImmersive: return ProjectionFormat::domemaster;
    default: break;
    }
    // A pair of eyes without a projection is spatial video: flat.
    return info.isStereoMultiview ? std::optional(ProjectionFormat::standard) : std::nullopt;
}

std::optional<StereoVideoLayout> stereoLayoutOf(const PNVFFmpegVideoInfo& info) {
    if (info.isStereoMultiview)
        return StereoVideoLayout::sideBySide;
    switch (info.stereoType) {
    case PNVStereo2D: return StereoVideoLayout::mono;
    case PNVStereoSideBySide: return StereoVideoLayout::sideBySide;
    case PNVStereoTopBottom: return StereoVideoLayout::overUnder;
    default: return std::nullopt;
    }
}

std::optional<ContainerImmersiveMetadata> immersiveMetadataOf(const PNVFFmpegVideoInfo& info) {
    ContainerImmersiveMetadata metadata;
    metadata.projection = projectionOf(info);
    metadata.stereoLayout = stereoLayoutOf(info);
    if (!metadata.projection && !metadata.stereoLayout)
        return std::nullopt;
    // The bridge orders the eyes of a multiview stream itself.
    metadata.eyesSwapped = !info.isStereoMultiview && info.stereoInverted && metadata.stereoLayout &&
                           metadata.stereoLayout != StereoVideoLayout::mono;
    metadata.isStereoMultiview = info.isStereoMultiview != 0;
    if (const double angle = info.stereoHorizontalFieldOfView; angle > 0 && angle < 180)
        metadata.horizontalFieldOfView = angle;
    if (info.stereoBaseline != 0)
        metadata.stereoBaselineMillimeters = double(info.stereoBaseline) / 1000;
    return metadata;
}

FFmpegAudioStreamInfo audioStreamInfo(const PNVFFmpegAudioStreamInfo& stream) {
    const auto channels =
        std::clamp<std::size_t>(std::size_t(std::max(stream.channelCount, 0)), 0, std::size(stream.channelIDs));
    return {.streamIndex = stream.streamIndex,
            .streamID = stream.streamID,
            .channelCount = stream.channelCount,
            .sampleRate = stream.sampleRate,
            .ambisonicOrder = stream.ambisonicOrder < 0 ? std::nullopt : std::optional<int>(stream.ambisonicOrder),
            .isDefault = stream.isDefault != 0,
            .channelMask = stream.channelMask,
            .channelIDs = {stream.channelIDs, stream.channelIDs + channels},
            .codecName = stream.codecName};
}

} // namespace

SourceVideoOrientation sourceOrientation(int rotationDegrees) {
    const int degrees = (rotationDegrees % 360 + 360) % 360;
    if (degrees >= 45 && degrees < 135)
        return SourceVideoOrientation::right;
    if (degrees >= 135 && degrees < 225)
        return SourceVideoOrientation::down;
    if (degrees >= 225 && degrees < 315)
        return SourceVideoOrientation::left;
    return SourceVideoOrientation::up;
}

VideoColorMetadata colorMetadata(int primaries, int transferFunction, int colorSpace) {
    VideoColorMetadata metadata;
    switch (primaries) {
    case primariesBT2020: metadata.primaries = VideoColorPrimaries::bt2020; break;
    case primariesP3D65: metadata.primaries = VideoColorPrimaries::p3D65; break;
    default: metadata.primaries = VideoColorPrimaries::bt709;
    }
    switch (transferFunction) {
    case transferPQ: metadata.transferFunction = VideoTransferFunction::pq; break;
    case transferHLG: metadata.transferFunction = VideoTransferFunction::hlg; break;
    case transferSRGB: metadata.transferFunction = VideoTransferFunction::sRGB; break;
    case transferLinear: metadata.transferFunction = VideoTransferFunction::linear; break;
    default: metadata.transferFunction = VideoTransferFunction::bt709;
    }
    switch (colorSpace) {
    case matrixBT470BG:
    case matrixSMPTE170M: metadata.yCbCrMatrix = VideoYCbCrMatrix::bt601; break;
    case matrixBT2020NonConstant:
    case matrixBT2020Constant: metadata.yCbCrMatrix = VideoYCbCrMatrix::bt2020; break;
    default: metadata.yCbCrMatrix = VideoYCbCrMatrix::bt709;
    }
    return metadata;
}

FFmpegVideoMetadata probe(const URL& url) {
    PNVFFmpegVideoInfo info;
    ErrorBuffer error{};
    if (PNVFFmpegProbe(url.path().c_str(), &info, error.data(), int32_t(error.size())) < 0)
        throw FFmpegReaderError::probeFailed(error.data());
    return {.width = info.width,
            .height = info.height,
            .duration = std::isfinite(info.duration) && info.duration > 0 ? info.duration : 0,
            .frameRate = info.frameRate > 0 ? info.frameRate : 30,
            .codecName = info.codecName,
            .codecLongName = info.codecLongName,
            .pixelFormatName = info.pixelFormatName,
            .containsAlphaChannel = info.hasAlpha != 0,
            .hasAudioStream = info.audioStreamIndex >= 0,
            .sourceOrientation = sourceOrientation(info.rotationDegrees),
            .colorMetadata = colorMetadata(info.colorPrimaries, info.colorTransfer, info.colorSpace),
            .containerImmersiveMetadata = immersiveMetadataOf(info),
            .isStereoMultiview = info.isStereoMultiview != 0};
}

std::vector<FFmpegAudioStreamInfo> probeAudioStreams(const URL& url) {
    std::array<PNVFFmpegAudioStreamInfo, 32> records{};
    std::int32_t count = 0;
    ErrorBuffer error{};
    if (PNVFFmpegProbeAudioStreams(url.path().c_str(), records.data(), int32_t(records.size()), &count, error.data(),
                                   int32_t(error.size())) < 0)
        throw FFmpegReaderError::probeFailed(error.data());
    std::vector<FFmpegAudioStreamInfo> streams;
    for (int index = 0; index < std::min(count, int32_t(records.size())); ++index)
        streams.push_back(audioStreamInfo(records[std::size_t(index)]));
    return streams;
}

std::optional<double> previousKeyframeTime(const URL& url, double seconds) noexcept {
    if (!std::isfinite(seconds) || seconds < 0)
        return std::nullopt;
    double found = 0;
    ErrorBuffer error{};
    const int result =
        PNVFFmpegPreviousKeyframeTime(url.path().c_str(), &found, error.data(), int32_t(error.size()), seconds);
    if (result < 0)
        logger.info("FFmpeg keyframe lookup failed for {}: {}", url.lastPathComponent(), error.data());
    return result > 0 && std::isfinite(found) && found >= 0 ? std::optional(found) : std::nullopt;
}

bool requiresSoftwarePreview(const URL& url) noexcept {
    {
        const std::lock_guard lock(backendLock);
        if (explicitSoftwarePreviewURLs.contains(url.standardized()))
            return true;
    }
    if (MediaFileSupport::ffmpegContainerPathExtensions.contains(lowercased(url.pathExtension())))
        return true;
    try {
        const auto metadata = probe(url);
        const auto codec = lowercased(metadata.codecName);
        return codec == "vp9" || codec == "av1" || codec == "libdav1d" || metadata.isStereoMultiview;
    } catch (const std::exception&) {
        return false; // the platform's road may know better
    }
}

void addExplicitSoftwarePreviewURL(const URL& url) {
    const std::lock_guard lock(backendLock);
    explicitSoftwarePreviewURLs.insert(url.standardized());
}

} // namespace panoveer::FFmpegRuntime
