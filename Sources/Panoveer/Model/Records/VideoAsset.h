#pragma once

#include "Panoveer/Model/Records/ImmersiveFormatDetection.h"
#include "Panoveer/Model/Records/VRClipSegment.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace panoveer {

enum class VideoPlaybackStatus { playable, conversionRequired };

enum class LiveSyphonCompatibility { compatible, transcodeRecommended };

// A size in pixels.
struct CGSizeValue {
    double width = 0;
    double height = 0;
    friend bool operator==(const CGSizeValue&, const CGSizeValue&) = default;
};

// One imported source file in the library.
struct VideoAsset {
    UUID id;
    URL url;
    std::optional<std::vector<std::uint8_t>> securityScopedBookmark;
    std::string displayName;
    double duration = 0;     // seconds
    double frameRate = 30.0; // frames per second
    CGSizeValue naturalSize; // as displayed, orientation applied
    ProjectionFormat detectedFormat = ProjectionFormat::standard;
    VideoPlaybackStatus playbackStatus = VideoPlaybackStatus::playable;
    LiveSyphonCompatibility liveSyphonCompatibility = LiveSyphonCompatibility::compatible;
    bool containsAlphaChannel = false;
    VideoDecodingBackend videoDecodingBackend = VideoDecodingBackend::automatic;
    std::optional<URL> ffmpegPlaybackClockURL; // the audio proxy that drives the clock of an FFmpeg-decoded preview
    SourceVideoOrientation sourceOrientation = SourceVideoOrientation::up;
    VideoColorMetadata colorMetadata;
    std::optional<ImmersiveFormatDetection> formatDetection;

    friend bool operator==(const VideoAsset&, const VideoAsset&) = default;
};

} // namespace panoveer
