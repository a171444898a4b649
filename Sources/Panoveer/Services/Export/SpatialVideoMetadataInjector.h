#pragma once

#include "Panoveer/Services/Export/ByteStreams.h"
#include "Panoveer/Services/Export/SpatialAudioDescriptor.h"
#include "Panoveer/Services/Export/SpatialVideoMetadataRequest.h"
#include "Platform/Core/URL.h"

#include <functional>
#include <optional>
#include <span>
#include <stop_token>

namespace panoveer {

// Tells players what a finished MP4 or QuickTime movie shows: spherical and stereo boxes of both generations in the
// video track, ambisonic boxes in audio tracks. Sample data is copied as it is; the tables that point at it move along.
// Stateless, any thread; blocking. Throws SpatialVideoMetadataError, Error in posixErrorDomain for the file system, and
// Cancelled.
struct SpatialVideoMetadataInjector {
    using AudioDescriptors = std::span<const std::optional<SpatialAudioDescriptor>>;
    using StereoMode = SpatialVideoMetadataRequest::StereoMode;

    // Rewrites the movie under its own name: a copy is made beside it and takes its place at once. On any failure the
    // copy is removed and the movie is as it was. `spatialAudio` has one entry for each audio track in file order,
    // empty for a plain track; tracks beyond its end are plain.
    // `beforeReplacing` is told of the finished copy.
    static void injectMetadata(const URL& url, const SpatialVideoMetadataRequest& video, AudioDescriptors spatialAudio,
                               std::stop_token stop = {},
                               const std::function<void(const URL& copy)>& beforeReplacing = {});

    // The same from any bytes to any others; `url` only names the movie in errors.
    static void rewrite(const ByteSource& input, const URL& url, const SpatialVideoMetadataRequest& video,
                        AudioDescriptors spatialAudio, ByteSink& output, std::stop_token stop = {});

    // Read a finished movie back and throw unless it says exactly what was asked for: projection, both generations and
    // stereo layout; the stereo layout alone; the ambisonic tracks.
    static void validateMetadata(const URL& url, const SpatialVideoMetadataRequest& video);
    static void validateStereoMetadata(const URL& url, StereoMode mode);
    static void validateSpatialAudio(const URL& url, AudioDescriptors expected);
};

} // namespace panoveer
