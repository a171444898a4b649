#pragma once

#include "Platform/Core/AffineTransform.h"
#include "Platform/Core/FourCC.h"
#include "Platform/Core/URL.h"
#include "Platform/Media/PixelBuffer.h"

#include <memory>
#include <string>
#include <vector>

namespace panoveer {

// What the format description of a video track says.
struct VideoFormatDescription {
    FourCC codecType;            // sample entry or codec tag: "avc1", "hvc1", "apcn", "vp09", …
    std::string codecName;       // libavcodec's short name: "h264", "hevc", "prores"
    std::string pixelFormatName; // libavutil's name: "yuv420p10le"
    int width = 0;               // coded size in pixels, before any transform
    int height = 0;
    bool containsAlpha = false;
    ColorAttachments color;      // code points and HDR payloads as the container or the stream states them
    bool isFullRange = false;
    // The eyes that a multiview stream carries; both false for ordinary video.
    bool hasLeftStereoEyeView = false;
    bool hasRightStereoEyeView = false;
};

struct VideoTrack {
    int streamIndex = 0; // index in the container
    double naturalWidth = 0;  // display size in pixels before preferredTransform, pixel aspect ratio applied
    double naturalHeight = 0;
    AffineTransform preferredTransform;
    double nominalFrameRate = 0; // frames per second; 0 when not known
    std::vector<VideoFormatDescription> formatDescriptions;
    bool isDecodable = false; // this road has a decoder for the codec
};

struct AudioTrack {
    int streamIndex = 0;
    FourCC codecType;
    int channelCount = 0;
    double sampleRate = 0;
};

// A media file opened on the native road: QuickTime/MP4 family, AVI, Matroska/WebM; H.264, single-view HEVC, ProRes,
// Motion JPEG, MPEG-4 part 2 and DV. Any other container or codec has no video track here and belongs to the FFmpeg
// road. Immutable once loaded; any thread may read it.
class MediaAsset {
public:
    // Opens the file and reads its tracks. Throws Error in posixErrorDomain when the file cannot be opened, and in
    // mediaErrorDomain when it is not a movie that this road reads.
    static std::shared_ptr<const MediaAsset> load(const URL& url);

    const URL& url() const { return url_; }
    double durationSeconds() const { return durationSeconds_; }
    // At least one track that this road can decode.
    bool isPlayable() const;
    const std::vector<VideoTrack>& videoTracks() const { return videoTracks_; }
    const std::vector<AudioTrack>& audioTracks() const { return audioTracks_; }

private:
    MediaAsset() = default;

    URL url_;
    double durationSeconds_ = 0;
    std::vector<VideoTrack> videoTracks_;
    std::vector<AudioTrack> audioTracks_;
};

} // namespace panoveer
