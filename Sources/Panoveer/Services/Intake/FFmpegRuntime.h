#pragma once

#include "Panoveer/Model/Records/SourceVideoOrientation.h"
#include "Panoveer/Model/Records/VideoColorMetadata.h"
#include "Panoveer/Services/Intake/ContainerImmersiveMetadata.h"
#include "Panoveer/Services/Intake/FFmpegReaderError.h"
#include "Platform/Core/URL.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace panoveer {

// What a probe tells of a file's video.
struct FFmpegVideoMetadata {
    int width = 0;         // pixels; both eyes for stereo multiview
    int height = 0;        // pixels
    double duration = 0;   // seconds; 0 when not known
    double frameRate = 30; // frames per second; 30 when not known
    std::string codecName; // of the decoder: "hevc", "libdav1d"
    std::string codecLongName;
    std::string pixelFormatName; // "yuv420p10le"
    bool containsAlphaChannel = false;
    bool hasAudioStream = false;
    SourceVideoOrientation sourceOrientation = SourceVideoOrientation::up;
    VideoColorMetadata colorMetadata; // never with mastering display or light level data
    std::optional<ContainerImmersiveMetadata> containerImmersiveMetadata;
    bool isStereoMultiview = false;

    friend bool operator==(const FFmpegVideoMetadata&, const FFmpegVideoMetadata&) = default;
};

struct FFmpegAudioStreamInfo {
    std::int32_t streamIndex = 0; // index in the container
    int streamID = 0;
    int channelCount = 0;
    int sampleRate = 0; // Hz
    std::optional<int> ambisonicOrder;
    bool isDefault = false;
    std::uint64_t channelMask = 0;        // FFmpeg's native layout mask; 0 for any other layout
    std::vector<std::int32_t> channelIDs; // FFmpeg's AVChannel of each channel, at most 64
    std::string codecName;                // "aac"

    friend bool operator==(const FFmpegAudioStreamInfo&, const FFmpegAudioStreamInfo&) = default;
};

// Stateless calls over the bridge; each opens the file afresh. Any thread.
namespace FFmpegRuntime {

// Throws FFmpegReaderError::probeFailed.
FFmpegVideoMetadata probe(const URL& url);

// The audio streams, at most 32. Throws FFmpegReaderError::probeFailed.
std::vector<FFmpegAudioStreamInfo> probeAudioStreams(const URL& url);

// Seconds of the key frame at or before a time, by the container's own index; no value when it has none. Never throws:
// a file that cannot be read is logged.
std::optional<double> previousKeyframeTime(const URL& url, double seconds) noexcept;

// Whether the platform's player cannot preview the file, so that it is decoded here. Never throws.
bool requiresSoftwarePreview(const URL& url) noexcept;

// Marks a file as one to preview in software, for as long as the program runs. For whoever makes or restores a
// VideoAsset whose backend is `ffmpeg`.
void addExplicitSoftwarePreviewURL(const URL& url);

// The mappings of a probe from code points of ITU-T H.273, and from a clockwise rotation in degrees.
VideoColorMetadata colorMetadata(int primaries, int transferFunction, int colorSpace);
SourceVideoOrientation sourceOrientation(int rotationDegrees);

} // namespace FFmpegRuntime

} // namespace panoveer
