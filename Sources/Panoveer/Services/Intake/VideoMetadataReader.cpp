#include "Panoveer/Services/Intake/VideoMetadataReader.h"

#include "Panoveer/Model/Records/ProjectionFormat.h"
#include "Panoveer/Model/Records/SourceVideoOrientation.h"
#include "Panoveer/Services/Intake/CanonRawMetadataReader.h"
#include "Panoveer/Services/Intake/DualFisheyeLensHint.h"
#include "Panoveer/Services/Intake/FFmpegReaderError.h"
#include "Panoveer/Services/Intake/FFmpegRuntime.h"
#include "Panoveer/Services/Intake/ImmersiveFrameSampler.h"
#include "Panoveer/Services/Intake/MediaFileSupport.h"
#include "Platform/Core/Localization.h"
#include "Platform/Core/Log.h"
#include "Platform/Core/Text.h"
#include "Platform/Media/AssetReader.h"
#include "Platform/Media/MediaAsset.h"

#include <algorithm>
#include <cmath>
#include <exception>
#include <utility>

namespace panoveer {

namespace {

constexpr double fallbackFrameRate = 30.0;
constexpr std::string_view canonRawExtension = "crm";

void throwIfCancelled(const std::stop_token& stop) {
    if (stop.stop_requested())
        throw Cancelled();
}

std::string lowercasedExtension(const URL& url) { return lowercased(url.pathExtension()); }

// Containers that often carry codecs which a reader opens and then cannot decode.
bool requiresDecodeValidation(const URL& url) {
    const auto extension = lowercasedExtension(url);
    return extension == "avi" || extension == "mkv" || extension == "webm";
}

// Pixels; anything a damaged header may hold ends within the range of int.
int roundedPixels(double length) { return std::isfinite(length) ? int(std::lround(std::clamp(length, 0.0, 1e6))) : 0; }

// What all roads say alike of a file.
VideoAsset makeAsset(const URL& url, CGSizeValue naturalSize, double duration, double frameRate) {
    VideoAsset asset;
    asset.id = UUID::random();
    asset.url = url;
    asset.displayName = url.baseName();
    asset.duration = std::isfinite(duration) ? std::max(duration, 0.0) : 0.0;
    asset.frameRate = std::isfinite(frameRate) && frameRate > 0 ? frameRate : fallbackFrameRate;
    asset.naturalSize = naturalSize;
    asset.detectedFormat =
        detectedProjectionFormat(roundedPixels(naturalSize.width), roundedPixels(naturalSize.height));
    asset.playbackStatus = lowercasedExtension(url) == canonRawExtension ? VideoPlaybackStatus::conversionRequired
                                                                         : VideoPlaybackStatus::playable;
    return asset;
}

// A width and a height have no sign, whichever way the transform turns or mirrors them.
CGSizeValue displaySize(const VideoTrack& track) {
    const auto& turn = track.preferredTransform;
    return {std::abs(turn.a * track.naturalWidth + turn.c * track.naturalHeight),
            std::abs(turn.b * track.naturalWidth + turn.d * track.naturalHeight)};
}

std::optional<std::vector<std::uint8_t>> absentWhenEmpty(const std::vector<std::uint8_t>& payload) {
    return payload.empty() ? std::nullopt : std::optional(payload);
}

VideoColorMetadata colorMetadata(const ColorAttachments& color) {
    auto result = FFmpegRuntime::colorMetadata(color.primaries, color.transfer, color.matrix);
    result.masteringDisplayColorVolume = absentWhenEmpty(color.masteringDisplayColorVolume);
    result.contentLightLevelInfo = absentWhenEmpty(color.contentLightLevelInfo);
    return result;
}

bool canDecodeFirstVideoFrame(const std::shared_ptr<const MediaAsset>& asset, const VideoTrack& track) {
    try {
        AssetReader reader(asset, 0, asset->durationSeconds());
        if (!reader.canAddOutput(track, pixelFormat::bgra))
            return false;
        reader.addOutput(track, pixelFormat::bgra);
        if (!reader.startReading())
            return false;
        const bool hasFrame = reader.copyNextSampleBuffer().has_value();
        reader.cancelReading();
        return hasFrame;
    } catch (const Error&) {
        return false;
    }
}

VideoAsset readNatively(const URL& url, const std::stop_token& stop) {
    const auto media = MediaAsset::load(url);
    throwIfCancelled(stop);
    if (media->videoTracks().empty())
        throw VideoMetadataError(VideoMetadataError::Case::noVideoTrack);
    const auto& track = media->videoTracks().front();
    const bool needsFFmpeg = FFmpegRuntime::requiresSoftwarePreview(url);
    throwIfCancelled(stop);
    if (!needsFFmpeg &&
        (!track.isDecodable || (requiresDecodeValidation(url) && !canDecodeFirstVideoFrame(media, track))))
        throw VideoMetadataError(VideoMetadataError::Case::noVideoTrack);

    auto asset = makeAsset(url, displaySize(track), media->durationSeconds(), track.nominalFrameRate);
    asset.liveSyphonCompatibility = MediaFileSupport::liveSyphonCompatibility(url, needsFFmpeg);
    asset.videoDecodingBackend = needsFFmpeg ? VideoDecodingBackend::ffmpeg : VideoDecodingBackend::avFoundation;
    asset.sourceOrientation = detectedOrientation(track.preferredTransform);
    if (!track.formatDescriptions.empty()) {
        const auto& description = track.formatDescriptions.front();
        asset.containsAlphaChannel = description.containsAlpha;
        asset.colorMetadata = colorMetadata(description.color);
    }
    return asset;
}

VideoAsset readWithFFmpeg(const URL& url, const std::stop_token& stop,
                          const VideoMetadataReader::PlaybackClockBuilder& buildPlaybackClock) {
    const auto found = FFmpegRuntime::probe(url);
    throwIfCancelled(stop);
    CGSizeValue size{double(found.width), double(found.height)};
    if (swapsDimensions(found.sourceOrientation))
        std::swap(size.width, size.height);
    auto asset = makeAsset(url, size, found.duration, found.frameRate);
    asset.liveSyphonCompatibility = LiveSyphonCompatibility::transcodeRecommended;
    asset.containsAlphaChannel = found.containsAlphaChannel;
    asset.videoDecodingBackend = VideoDecodingBackend::ffmpeg;
    asset.sourceOrientation = found.sourceOrientation;
    asset.colorMetadata = found.colorMetadata;
    if (buildPlaybackClock)
        asset.ffmpegPlaybackClockURL = buildPlaybackClock(url, asset.duration, found.hasAudioStream, stop);
    return asset;
}

VideoAsset readCanonRaw(const URL& url) {
    const auto found = CanonRawMetadataReader::read(url);
    auto asset = makeAsset(url, {std::round(found.width), std::round(found.height)}, found.duration, found.frameRate);
    asset.videoDecodingBackend = VideoDecodingBackend::ffmpeg;
    return asset;
}

std::optional<ContainerImmersiveMetadata> containerMetadata(const URL& url) {
    try {
        return FFmpegRuntime::probe(url).containerImmersiveMetadata;
    } catch (const Error&) {
        return std::nullopt;
    }
}

VideoAsset readByAnyRoad(const URL& url, const std::stop_token& stop,
                         const VideoMetadataReader::PlaybackClockBuilder& buildPlaybackClock) {
    const auto extension = lowercasedExtension(url);
    if (MediaFileSupport::ffmpegContainerPathExtensions.contains(extension)) {
        FFmpegRuntime::addExplicitSoftwarePreviewURL(url);
        return readWithFFmpeg(url, stop, buildPlaybackClock);
    }
    std::exception_ptr nativeFailure;
    try {
        return readNatively(url, stop);
    } catch (const Error&) {
        nativeFailure = std::current_exception();
    }
    throwIfCancelled(stop);
    try {
        return readWithFFmpeg(url, stop, buildPlaybackClock);
    } catch (const Error& failure) {
        if (extension == canonRawExtension)
            return readCanonRaw(url);
        // A file that FFmpeg cannot even inspect is described best by the native road.
        const auto* ofFFmpeg = dynamic_cast<const FFmpegReaderError*>(&failure);
        if (ofFFmpeg && ofFFmpeg->reason() == FFmpegReaderError::Case::probeFailed)
            std::rethrow_exception(nativeFailure);
        throw;
    }
}

} // namespace

VideoMetadataError::VideoMetadataError(Case reason)
    : Error(localized("error.metadata.no_video_track")), reason_(reason) {}

VideoAsset VideoMetadataReader::readStreams(const URL& url, const std::stop_token& stop,
                                            const PlaybackClockBuilder& buildPlaybackClock) {
    throwIfCancelled(stop);
    auto asset = readByAnyRoad(url, stop, buildPlaybackClock);
    if (asset.videoDecodingBackend == VideoDecodingBackend::ffmpeg)
        FFmpegRuntime::addExplicitSoftwarePreviewURL(url);
    return asset;
}

VideoAsset VideoMetadataReader::withFormatDetection(VideoAsset asset, const std::stop_token& stop,
                                                    const StatedImmersiveFormat& stated) {
    const auto container = containerMetadata(asset.url);
    std::vector<GrayscaleImage> frames;
    if (asset.playbackStatus == VideoPlaybackStatus::playable)
        frames = ImmersiveFrameSampler::frames(asset.url, asset.videoDecodingBackend == VideoDecodingBackend::ffmpeg,
                                               asset.duration, stop);
    asset.formatDetection = ImmersiveFormatDetector::detect(
        roundedPixels(asset.naturalSize.width), roundedPixels(asset.naturalSize.height), container,
        asset.url.baseName(), DualFisheyeLensHint::isDualFisheye(asset.url), frames, stated);
    asset.detectedFormat = asset.formatDetection->projection;
    return asset;
}

} // namespace panoveer
