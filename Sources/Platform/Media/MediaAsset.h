#pragma once

#include "Platform/Core/AffineTransform.h"
#include "Platform/Core/FourCC.h"
#include "Platform/Core/URL.h"
#include "Platform/Media/AudioChannelLayout.h"
#include "Platform/Media/PixelBuffer.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

struct AVCodecParameters;

namespace panoveer {

// What the format description of a video track says.
struct VideoFormatDescription {
    FourCC codecType;            // sample entry or codec tag: "avc1", "hvc1", "apcn", "vp09", …
    std::string codecName;       // libavcodec's short name: "h264", "hevc", "prores"
    std::string pixelFormatName; // libavutil's name: "yuv420p10le"
    int width = 0;               // coded size in pixels, before any transform
    int height = 0;
    bool containsAlpha = false;
    ColorAttachments color; // code points and HDR payloads as the container or the stream states them
    bool isFullRange = false;
    // The eyes that a multiview stream carries; both false for ordinary video.
    bool hasLeftStereoEyeView = false;
    bool hasRightStereoEyeView = false;
};

struct VideoTrack {
    int streamIndex = 0;     // index in the container
    double naturalWidth = 0; // display size in pixels before preferredTransform, pixel aspect ratio applied
    double naturalHeight = 0;
    AffineTransform preferredTransform;
    double nominalFrameRate = 0; // frames per second; 0 when not known
    std::vector<VideoFormatDescription> formatDescriptions;
    bool isDecodable = false;                                   // this road decodes it: a listed multiview track is not
    std::shared_ptr<const AVCodecParameters> decoderParameters; // what AssetReader sets its decoder up with
};

struct AudioTrack {
    int streamIndex = 0; // index in the container
    FourCC codecType;    // 0 where the container gives none
    int channelCount = 0;
    double sampleRate = 0;
    std::string codecDescription; // for people: "AAC (LC)", "PCM signed 24-bit little-endian"
    // The channels in the order in which they decode; absent where nothing tells.
    std::optional<AudioChannelLayout> layout;
    bool isLinearPCM = false;
    std::optional<std::string> languageCode;        // ISO 639-2/T: "ita"; absent when undetermined
    std::optional<std::string> extendedLanguageTag; // BCP 47: "pt-BR"
    bool isDecodable = false;
    std::shared_ptr<const AVCodecParameters> decoderParameters; // what AssetAudioReader sets its decoder up with
};

// A media file opened on the native road: QuickTime/MP4 family, AVI, Matroska/WebM; H.264, HEVC, ProRes, Motion JPEG,
// MPEG-4 part 2 and DV. A track of any other codec is not listed and belongs to the FFmpeg road, as every other
// container does. Multiview HEVC is listed, so that a finished movie can be checked, but is not decodable here. Cover
// pictures and thumbnails are no video tracks. Immutable once loaded; any thread may read it.
//
// All times are on the movie's axis: edit lists applied, and a start that the container puts later than 0 taken off,
// as the FFmpeg road does.
class MediaAsset {
public:
    // Opens the file and reads its tracks. Throws Error in posixErrorDomain when the file cannot be opened, and in
    // mediaErrorDomain when it is not a movie that this road reads.
    static std::shared_ptr<const MediaAsset> load(const URL& url);

    const URL& url() const { return url_; }
    // Of the longest track; 0 when not known.
    double durationSeconds() const { return durationSeconds_; }
    // Where the pictures end of the video track that lasts longest, of any codec; 0 where the container does not tell.
    double videoEndSeconds() const { return videoEndSeconds_; }
    // The container's time at second 0 of the movie, at least 0.
    double startOffsetSeconds() const { return startOffsetSeconds_; }
    // At least one track that this road can decode, or one of multiview HEVC with both eyes, which players can.
    bool isPlayable() const;
    const std::vector<VideoTrack>& videoTracks() const { return videoTracks_; }
    const std::vector<AudioTrack>& audioTracks() const { return audioTracks_; }

private:
    MediaAsset() = default;

    URL url_;
    double durationSeconds_ = 0;
    double videoEndSeconds_ = 0;
    double startOffsetSeconds_ = 0;
    std::vector<VideoTrack> videoTracks_;
    std::vector<AudioTrack> audioTracks_;
};

} // namespace panoveer
