#include "Panoveer/Services/Export/ExportArtifactValidator.h"

#include "Panoveer/Services/Export/MP4Box.h"
#include "Panoveer/Services/Intake/FFmpegReaderError.h"
#include "Panoveer/Services/Intake/FFmpegRuntime.h"
#include "Platform/Core/Text.h"
#include "Platform/Media/MediaAsset.h"
#include "Platform/Media/PictureFile.h"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <memory>
#include <set>
#include <system_error>

namespace panoveer {

namespace {

using Failure = ExportArtifactValidationError;
using Expectation = ExportMovieValidationExpectation;

bool isRegularFileWithContent(const URL& url) {
    std::error_code failure;
    return std::filesystem::is_regular_file(url.path(), failure) &&
           std::filesystem::file_size(url.path(), failure) > 0 && !failure;
}

std::shared_ptr<const MediaAsset> loadPlayable(const URL& url) {
    std::shared_ptr<const MediaAsset> asset;
    try {
        asset = MediaAsset::load(url);
    } catch (const Error& error) {
        if (error.domain() != mediaErrorDomain)
            throw;
        auto failure = Failure::unplayableMovie(url);
        failure.setUnderlying(std::make_shared<Error>(error));
        throw failure;
    }
    if (!asset->isPlayable())
        throw Failure::unplayableMovie(url);
    return asset;
}

void checkTrackCounts(const MediaAsset& asset, const Expectation& expectation) {
    if (asset.videoTracks().size() != 1)
        throw Failure::invalidVideoTrackCount(std::int64_t(asset.videoTracks().size()));
    const auto audioTrackCount = std::int64_t(asset.audioTracks().size());
    if (audioTrackCount != expectation.audioTrackCount)
        throw Failure::invalidAudioTrackCount(expectation.audioTrackCount, audioTrackCount);
}

void checkDuration(double actual, const Expectation& expectation) {
    const auto tolerance = expectation.durationTolerance();
    if (!std::isfinite(actual) || std::abs(actual - expectation.durationSeconds) > tolerance)
        throw Failure::invalidDuration(expectation.durationSeconds, actual, tolerance);
}

void checkDimensions(const VideoTrack& track, const Expectation& expectation) {
    // The size of a vector under the transform, without its translation.
    const auto& transform = track.preferredTransform;
    const auto width = std::llround(std::abs(transform.a * track.naturalWidth + transform.c * track.naturalHeight));
    const auto height = std::llround(std::abs(transform.b * track.naturalWidth + transform.d * track.naturalHeight));
    // A multiview track has the size of one eye.
    const auto expectedWidth =
        properties(expectation.codec).isMultiviewStereo ? expectation.width / 2 : expectation.width;
    if (width != expectedWidth || height != expectation.height)
        throw Failure::invalidDimensions(expectedWidth, expectation.height, width, height);
}

// A file names HEVC with alpha as it names all HEVC: "muxa" is only what the encoder is asked for.
FourCC sampleEntryType(ExportCodec codec) {
    const auto type = properties(codec).codecType;
    return type == FourCC("muxa") ? FourCC("hvc1") : type;
}

void checkFormat(const VideoTrack& track, const Expectation& expectation) {
    if (track.formatDescriptions.empty())
        throw Failure::of(Failure::Kind::missingVideoFormatDescription);
    const auto& format = track.formatDescriptions.front();
    if (expectation.checksStereoLayers && !(format.hasLeftStereoEyeView && format.hasRightStereoEyeView))
        throw Failure::of(Failure::Kind::missingStereoLayers);
    const auto codecType = sampleEntryType(expectation.codec);
    if (format.codecType != codecType)
        throw Failure::unexpectedCodec(ExportArtifactValidator::fourCC(codecType),
                                       ExportArtifactValidator::fourCC(format.codecType));
}

// A second reader that shares nothing with the first but the file.
void checkWithFFmpeg(const URL& url, const Expectation& expectation) {
    const auto probed = [&] {
        try {
            return FFmpegRuntime::probe(url);
        } catch (const FFmpegReaderError& error) {
            throw Failure::ffmpegProbeFailed(error.what());
        }
    }();
    if (probed.width != expectation.width || probed.height != expectation.height || !(probed.duration > 0))
        throw Failure::of(Failure::Kind::ffmpegMetadataMismatch);
    if (probed.hasAudioStream != (expectation.audioTrackCount > 0))
        throw Failure::of(Failure::Kind::ffmpegAudioMismatch);
    if (probed.colorMetadata.isHDR() != (expectation.colorMode != ExportColorMode::convertToSDR))
        throw Failure::of(Failure::Kind::colorMetadataMismatch);
}

std::set<std::string> namesOfPNGFiles(const URL& folder) {
    std::set<std::string> names;
    std::error_code failure;
    for (std::filesystem::directory_iterator entry(folder.path(), failure), end; !failure && entry != end;
         entry.increment(failure)) {
        const auto file = URL::fromFilePath(entry->path());
        if (lowercased(file.pathExtension()) == "png")
            names.insert(file.lastPathComponent());
    }
    if (failure)
        throw posixError(folder.path().native(), failure.value());
    return names;
}

void checkPNG(const URL& url, std::int64_t width, std::int64_t height) {
    if (!isRegularFileWithContent(url))
        throw Failure::invalidPNG(url);
    PictureInfo info;
    try {
        info = readPNGInfo(url.path());
    } catch (const Error& error) {
        auto failure = Failure::invalidPNG(url);
        failure.setUnderlying(std::make_shared<Error>(error));
        throw failure;
    }
    if (info.frameCount != 1 || info.width != width || info.height != height)
        throw Failure::invalidPNG(url);
}

} // namespace

void ExportArtifactValidator::validateMovie(const URL& url, const Expectation& expectation) {
    if (!isRegularFileWithContent(url))
        throw Failure::missingOrEmptyFile(url);
    const auto asset = loadPlayable(url);
    checkTrackCounts(*asset, expectation);
    checkDuration(asset->durationSeconds(), expectation);
    const auto& track = asset->videoTracks().front();
    checkDimensions(track, expectation);
    checkFormat(track, expectation);
    checkWithFFmpeg(url, expectation);
}

void ExportArtifactValidator::validatePNGDirectory(const URL& url, std::span<const std::string> expectedFileNames,
                                                   std::int64_t width, std::int64_t height) {
    const std::set<std::string> expected(expectedFileNames.begin(), expectedFileNames.end());
    if (namesOfPNGFiles(url) != expected || expected.size() != expectedFileNames.size())
        throw Failure::of(Failure::Kind::invalidPNGSet);
    for (const auto& name : expectedFileNames)
        checkPNG(url.appendingPathComponent(name), width, height);
}

std::string ExportArtifactValidator::fourCC(FourCC code) { return MP4Tag::text(code); }

} // namespace panoveer
