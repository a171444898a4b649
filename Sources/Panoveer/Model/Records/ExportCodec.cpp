#include "Panoveer/Model/Records/ExportCodec.h"

#include "Platform/Core/Localization.h"
#include "Platform/Media/PixelBuffer.h"

#include <array>

namespace panoveer {

namespace {

using enum ExportCodec;
using namespace pixelFormat;

// A text that people see: a key with at most one argument, or a literal where the name is the same in every language.
struct DisplayText {
    std::string_view literal = {};
    std::string_view key = {};
    std::string_view argument = {};
};

struct CodecEntry {
    ExportCodec codec;
    DisplayText name;
    DisplayText profile;
    ExportCodecProperties properties;
};

constexpr ExportCodecProperties h26x(FourCC type, std::string_view extension, FourCC format,
                                     AutomaticBitrateRule rule) {
    return {.codecType = type,
            .fileExtension = extension,
            .pixelFormatSDR = format,
            .pixelFormatHDR = format,
            .bitrate = rule,
            .referenceMbps = {},
            .isTenBitCapable = format == yCbCr420TenBitVideoRange};
}

constexpr ExportCodecProperties multiview(FourCC format, AutomaticBitrateRule rule) {
    auto result = h26x("hvc1", "mov", format, rule);
    result.isMultiviewStereo = true;
    return result;
}

constexpr ExportCodecProperties hevcAlpha(AutomaticBitrateRule rule) {
    auto result = h26x("muxa", "mov", bgra, rule);
    result.keepsAlpha = true;
    return result;
}

constexpr ExportCodecProperties proRes422(FourCC type, double referenceMbps) {
    return {.codecType = type,
            .fileExtension = "mov",
            .pixelFormatSDR = yCbCr422TenBitVideoRange,
            .pixelFormatHDR = yCbCr422TenBitVideoRange,
            .bitrate = {},
            .referenceMbps = referenceMbps,
            .isTenBitCapable = true};
}

constexpr ExportCodecProperties proResAlpha(FourCC type, double referenceMbps) {
    auto result = proRes422(type, referenceMbps);
    result.pixelFormatSDR = bgra;
    result.pixelFormatHDR = rgbaHalf;
    result.keepsAlpha = true;
    return result;
}

constexpr auto sd420 = yCbCr420VideoRange;
constexpr auto ten420 = yCbCr420TenBitVideoRange;
constexpr std::string_view multiviewKey = "export.codec_quality.mvhevc";

constexpr std::array<CodecEntry, 12> codecs = {{
    {hevc8, {.key = "export_codec.hevc8"}, {"HEVC Main, 8-bit 4:2:0"}, h26x("hvc1", "mp4", sd420, {3, 6})},
    {hevc10, {.key = "export_codec.hevc10"}, {"HEVC Main 10, 10-bit 4:2:0"}, h26x("hvc1", "mp4", ten420, {4, 8})},
    {mvhevc8,
     {.key = "export_codec.mvhevc8"},
     {.key = multiviewKey, .argument = "8-bit 4:2:0"},
     multiview(sd420, {3, 6})},
    {mvhevc10,
     {.key = "export_codec.mvhevc10"},
     {.key = multiviewKey, .argument = "10-bit 4:2:0"},
     multiview(ten420, {4, 8})},
    {hevcWithAlpha, {.key = "export_codec.hevc_alpha"}, {.key = "export.codec_quality.hevc_alpha"}, hevcAlpha({6, 12})},
    {h264, {.key = "export_codec.h264"}, {"H.264 High, 8-bit 4:2:0"}, h26x("avc1", "mp4", sd420, {5, 10})},
    {proRes, {.key = "export_codec.prores"}, {.key = "export.codec_quality.prores_master"}, proRes422("apcn", 147)},
    {proRes422Proxy, {"ProRes 422 Proxy"}, {"ProRes 422 Proxy"}, proRes422("apco", 45)},
    {proRes422LT, {"ProRes 422 LT"}, {"ProRes 422 LT"}, proRes422("apcs", 102)},
    {proRes422HQ, {"ProRes 422 HQ"}, {"ProRes 422 HQ"}, proRes422("apch", 220)},
    {proRes4444, {"ProRes 4444"}, {.key = "export.codec_quality.prores4444_alpha"}, proResAlpha("ap4h", 330)},
    {proRes4444XQ, {"ProRes 4444 XQ"}, {.key = "export.codec_quality.prores4444xq_alpha"}, proResAlpha("ap4x", 500)},
}};

static_assert(
    [] {
        for (std::size_t i = 0; i < codecs.size(); ++i)
            if (std::size_t(codecs[i].codec) != i)
                return false;
        return true;
    }(),
    "the table must list the codecs in declared order");

constexpr const CodecEntry& entry(ExportCodec codec) { return codecs[std::size_t(codec)]; }

std::string resolved(const DisplayText& text) {
    if (text.key.empty())
        return std::string(text.literal);
    return text.argument.empty() ? localized(text.key) : localized(text.key, text.argument);
}

} // namespace

const ExportCodecProperties& properties(ExportCodec codec) { return entry(codec).properties; }

std::string displayName(ExportCodec codec) { return resolved(entry(codec).name); }

std::string profileText(ExportCodec codec) { return resolved(entry(codec).profile); }

FourCC encoderPixelFormat(ExportCodec codec, ExportColorMode colorMode) {
    const auto& fixed = properties(codec);
    return colorMode == ExportColorMode::convertToSDR ? fixed.pixelFormatSDR : fixed.pixelFormatHDR;
}

ExportCodec withoutMultiview(ExportCodec codec) {
    switch (codec) {
    case mvhevc8: return hevc8;
    case mvhevc10: return hevc10;
    default: return codec;
    }
}

} // namespace panoveer
