#include "Platform/Media/VideoEncoder.h"

#include "Platform/Media/AlphaHEVCEncoder.h"
#include "Platform/Media/InterframeEncoder.h"
#include "Platform/Media/MultiviewHEVCEncoder.h"
#include "Platform/Media/ProResEncoder.h"

#include <algorithm>
#include <array>

namespace panoveer {

namespace {

constexpr std::array eightBit420{pixelFormat::yCbCr420VideoRange};
constexpr std::array mainProfile{pixelFormat::yCbCr420VideoRange, pixelFormat::bgra};
constexpr std::array tenBit420{pixelFormat::yCbCr420TenBitVideoRange};
constexpr std::array any420{pixelFormat::yCbCr420VideoRange, pixelFormat::yCbCr420TenBitVideoRange};
constexpr std::array tenBit422{pixelFormat::yCbCr422TenBitVideoRange};
constexpr std::array withAlpha{pixelFormat::bgra, pixelFormat::rgbaHalf};
constexpr std::array eightBitWithAlpha{pixelFormat::bgra};

} // namespace

void VideoEncoder::encodeViews(PixelBufferPtr left, PixelBufferPtr /*right*/, std::int64_t presentationTime,
                               std::int64_t duration) {
    encode(std::move(left), presentationTime, duration);
}

std::optional<CodecFamily> codecFamily(FourCC codec) {
    if (codec == FourCC("avc1"))
        return CodecFamily::h264;
    if (codec == FourCC("hvc1"))
        return CodecFamily::hevc;
    if (codec == FourCC("muxa"))
        return CodecFamily::hevcWithAlpha;
    if (findProResVariant(codec))
        return CodecFamily::proRes;
    return std::nullopt;
}

std::span<const FourCC> pictureFormats(FourCC codec, VideoProfile profile) {
    const auto family = codecFamily(codec);
    const bool isAutomatic = profile == VideoProfile::automatic;
    if (family == CodecFamily::h264 && (isAutomatic || profile == VideoProfile::h264High))
        return eightBit420;
    if (family == CodecFamily::hevc && isAutomatic)
        return any420;
    if (family == CodecFamily::hevc && profile == VideoProfile::hevcMain)
        return mainProfile;
    if (family == CodecFamily::hevc && profile == VideoProfile::hevcMain10)
        return tenBit420;
    if (family == CodecFamily::hevcWithAlpha && isAutomatic)
        return eightBitWithAlpha;
    if (family == CodecFamily::proRes && isAutomatic)
        return findProResVariant(codec)->hasAlpha ? std::span<const FourCC>(withAlpha) : tenBit422;
    return {};
}

std::unique_ptr<VideoEncoder> makeVideoEncoder(const EncoderConfiguration& configuration,
                                               VideoEncoder::PacketSink sink) {
    const auto& settings = configuration.settings;
    const auto family = codecFamily(settings.codec);
    if (family == CodecFamily::proRes)
        return std::make_unique<ProResEncoder>(configuration, std::move(sink));
    if (family == CodecFamily::hevcWithAlpha)
        return std::make_unique<AlphaHEVCEncoder>(configuration, std::move(sink));
    if (family == CodecFamily::hevc && settings.isMultiview())
        return std::make_unique<MultiviewHEVCEncoder>(configuration, std::move(sink));
    return std::make_unique<InterframeEncoder>(configuration, std::move(sink));
}

} // namespace panoveer
