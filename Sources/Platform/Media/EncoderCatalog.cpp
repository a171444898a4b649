#include "Platform/Media/EncoderCatalog.h"

#include "Platform/Media/VideoEncoder.h"
#include "Platform/Media/X265Library.h"

#include <cmath>
#include <cstdint>
#include <format>
#include <limits>

namespace panoveer {

namespace {

constexpr int largestSide = 65535; // that a sample entry can name

// libavutil's av_image_check_size: it holds no larger picture, whatever its format.
bool fitsLibAV(std::int64_t width, std::int64_t height) {
    return 8 * (width + 128) * (height + 128) < std::numeric_limits<int>::max();
}

// In pictures narrower than four of its 16-pixel lookahead blocks, x265 (4.1) writes past the end of a row of costs.
constexpr int smallestHEVCWidth = 64;
constexpr int smallestHEVCHeight = 16; // libavcodec refuses less

// Rec. ITU-T H.264, table A-1 and A.3.1: the largest level, 6.2, allows so many macroblocks in a picture, and a side of
// at most the square root of eight times that.
constexpr std::int64_t largestH264Picture = 139264;

std::optional<std::string> levelRefusal(int width, int height) {
    const std::int64_t columns = (width + 15) / 16, rows = (height + 15) / 16;
    const auto longestSide = std::int64_t(std::sqrt(8.0 * double(largestH264Picture)));
    if (columns * rows > largestH264Picture || columns > longestSide || rows > longestSide)
        return std::format("{}x{} is beyond H.264's largest level, 6.2", width, height);
    return std::nullopt;
}

// What can be told without opening an encoder.
std::optional<std::string> refusalByRule(const VideoSettings& settings) {
    const auto [width, height] = std::pair(settings.width, settings.height);
    const auto family = codecFamily(settings.codec);
    if (!family)
        return std::format("There is no encoder for \"{}\"", settings.codec.text());
    const auto formats = pictureFormats(settings.codec, settings.profile);
    if (formats.empty())
        return std::format("The profile is not one of \"{}\"", settings.codec.text());
    const bool hasLayers = settings.isMultiview() || family == CodecFamily::hevcWithAlpha;
    if (const auto& absence = X265Library::shared().absence(); hasLayers && !absence.empty())
        return absence;
    if (width < 1 || height < 1 || width > largestSide || height > largestSide)
        return std::format("{}x{} is not a picture size that a movie can have", width, height);
    auto layout = layoutOf(formats.front()).value_or(PixelFormatLayout{});
    if (family == CodecFamily::hevcWithAlpha) // takes BGRA, but encodes 4:2:0
        layout.chromaWidthShift = layout.chromaHeightShift = 1;
    if (settings.isMultiview() && family != CodecFamily::hevc)
        return std::format("\"{}\" has no layers for two eyes", settings.codec.text());
    if (width % (1 << layout.chromaWidthShift) != 0 || height % (1 << layout.chromaHeightShift) != 0)
        return std::format("{}x{} does not fit the chroma samples of \"{}\", which need even sides", width, height,
                           settings.codec.text());
    if (!fitsLibAV(width, height))
        return std::format("{}x{} is larger than any encoder here takes", width, height);
    const bool isHEVC = family == CodecFamily::hevc || family == CodecFamily::hevcWithAlpha;
    if (isHEVC && (width < smallestHEVCWidth || height < smallestHEVCHeight))
        return std::format("{}x{} is smaller than x265 takes", width, height);
    return family == CodecFamily::h264 ? levelRefusal(width, height) : std::nullopt;
}

std::optional<std::string> refusalByOpening(const VideoSettings& settings) {
    EncoderConfiguration configuration{.settings = settings,
                                       .pictureFormat = pictureFormats(settings.codec, settings.profile).front(),
                                       .timescale = 30,
                                       .frameDuration = {1, 30},
                                       .isProbe = true};
    configuration.settings.averageBitRate.reset();
    configuration.settings.maximumKeyFrameInterval.reset();
    configuration.settings.color = {};
    try {
        makeVideoEncoder(configuration, [](PacketPtr) {});
        return std::nullopt;
    } catch (const std::exception&) {
        return std::format("{} at {}x{}", currentError().what(), settings.width, settings.height);
    }
}

} // namespace

EncoderCatalog& EncoderCatalog::shared() {
    static EncoderCatalog catalog;
    return catalog;
}

std::optional<std::string> EncoderCatalog::refusal(const VideoSettings& settings) {
    if (auto reason = refusalByRule(settings))
        return reason;
    const Key key(settings.codec, settings.width, settings.height, settings.profile, settings.isMultiview());
    {
        std::lock_guard lock(mutex_);
        if (const auto known = answers_.find(key); known != answers_.end())
            return known->second;
    }
    // Outside the lock: others may ask for what is known already meanwhile.
    auto answer = refusalByOpening(settings);
    std::lock_guard lock(mutex_);
    return answers_.emplace(key, std::move(answer)).first->second;
}

EncoderCatalog::LayerLibrary EncoderCatalog::layerLibrary() {
    const auto& library = X265Library::shared();
    return {library.path(), library.absence()};
}

bool EncoderCatalog::supportsStereoMultiview(int bitDepth) {
    VideoSettings settings{.codec = FourCC("hvc1"),
                           .width = smallestHEVCWidth,
                           .height = smallestHEVCWidth,
                           .profile = bitDepth == 10 ? VideoProfile::hevcMain10 : VideoProfile::hevcMain};
    settings.immersiveMedia.multiview.emplace();
    return !refusal(settings);
}

} // namespace panoveer
