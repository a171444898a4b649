#include "Panoveer/Services/Export/ExportVideoSettings.h"

#include "Panoveer/Model/Records/ExportCodec.h"
#include "Panoveer/Services/Export/ExportSizeEstimator.h"
#include "Panoveer/Services/Intake/FFmpegRuntime.h"
#include "Platform/Core/Text.h"

#include <algorithm>
#include <cmath>

namespace panoveer {

namespace {

constexpr int defaultKeyFrameInterval = 60;
constexpr double defaultFrameRate = 30;

// Code points of ITU-T H.273, tables 2, 3 and 4.
namespace h273 {
constexpr int bt709 = 1;
constexpr int bt470bgMatrix = 5;
constexpr int smpte170mMatrix = 6;
constexpr int linearTransfer = 8;
constexpr int bt2020 = 9;
constexpr int bt2020ConstantLuminance = 10;
constexpr int p3D65Primaries = 12;
constexpr int sRGBTransfer = 13;
constexpr int pqTransfer = 16;
constexpr int hlgTransfer = 18;
constexpr int unspecified = 2;
constexpr int reserved = 0;
} // namespace h273

bool says(int codePoint) { return codePoint != h273::unspecified && codePoint != h273::reserved; }

bool isUsableRate(const std::optional<double>& rate) { return rate && std::isfinite(*rate) && *rate > 0; }

VideoProfile profile(ExportCodec codec) {
    switch (codec) {
    case ExportCodec::hevc8:
    case ExportCodec::mvhevc8: return VideoProfile::hevcMain;
    case ExportCodec::hevc10:
    case ExportCodec::mvhevc10: return VideoProfile::hevcMain10;
    case ExportCodec::h264: return VideoProfile::h264High;
    default: return VideoProfile::automatic;
    }
}

} // namespace

ColorAttachments outputColor(ExportColorMode mode) {
    switch (mode) {
    case ExportColorMode::convertToSDR: break;
    case ExportColorMode::preserveHDR:
        return {.primaries = h273::bt2020,
                .transfer = h273::pqTransfer,
                .matrix = h273::bt2020,
                .masteringDisplayColorVolume = {},
                .contentLightLevelInfo = {}};
    case ExportColorMode::hdrHLG:
        return {.primaries = h273::bt2020,
                .transfer = h273::hlgTransfer,
                .matrix = h273::bt2020,
                .masteringDisplayColorVolume = {},
                .contentLightLevelInfo = {}};
    }
    return {.primaries = h273::bt709,
            .transfer = h273::bt709,
            .matrix = h273::bt709,
            .masteringDisplayColorVolume = {},
            .contentLightLevelInfo = {}};
}

void attachColorMetadata(PixelBuffer& output, ExportColorMode mode, const ColorAttachments& source) {
    output.color() = outputColor(mode);
    if (mode == ExportColorMode::preserveHDR) {
        output.color().masteringDisplayColorVolume = source.masteringDisplayColorVolume;
        output.color().contentLightLevelInfo = source.contentLightLevelInfo;
    }
}

VideoSettings videoSettings(ExportCodec codec, std::int64_t width, std::int64_t height,
                            std::optional<double> bitrateMbps, std::optional<double> targetFrameRate,
                            ExportColorMode colorMode, const ImmersiveMediaProperties& immersiveMetadata) {
    VideoSettings settings;
    settings.codec = properties(codec).codecType;
    settings.width = int(width);
    settings.height = int(height);
    settings.profile = profile(codec);
    settings.color = outputColor(colorMode);
    settings.immersiveMedia = immersiveMetadata;
    const bool isProRes = properties(codec).isProRes();
    if (!isProRes)
        settings.maximumKeyFrameInterval = defaultKeyFrameInterval;
    if (bitrateMbps)
        settings.averageBitRate = std::int64_t(*bitrateMbps * 1000000);
    if (targetFrameRate) {
        const int rate = int(std::lround(*targetFrameRate));
        settings.expectedSourceFrameRate = rate;
        if (!isProRes)
            settings.maximumKeyFrameInterval = std::max(rate, 1);
    }
    return settings;
}

double outputFrameRate(const ExportOutputDescriptor& descriptor) {
    const auto& planned = descriptor.targetFrameRate ? descriptor.targetFrameRate : descriptor.frameRate;
    if (isUsableRate(planned))
        return *planned;
    if (!descriptor.segments.empty()) {
        try {
            const std::optional<double> probed = FFmpegRuntime::probe(descriptor.segments.front().sourceURL).frameRate;
            if (isUsableRate(probed))
                return *probed;
        } catch (const Error&) {
            // A source that cannot be probed has no rate to offer; reading it will tell what is wrong with it.
        }
    }
    return defaultFrameRate;
}

double totalDurationSeconds(const ExportOutputDescriptor& descriptor) {
    double total = 0;
    for (const auto& segment : descriptor.segments)
        total += std::max(segment.end - segment.start, 0.0);
    return total;
}

double estimatedOutputBytes(const ExportOutputDescriptor& descriptor) {
    ExportSettings settings;
    settings.codec = descriptor.codec;
    settings.outputFormat = descriptor.outputFormat;
    settings.stereoLayout = descriptor.stereoLayout;
    settings.customWidth = descriptor.resolution.width;
    settings.customHeight = descriptor.resolution.height;
    if (descriptor.bitrateMbps) {
        settings.bitrateMode = ExportBitrateMode::custom;
        settings.customBitrateMbps = *descriptor.bitrateMbps;
    }
    return ExportSizeEstimator::estimatedBytes(settings, totalDurationSeconds(descriptor),
                                               descriptor.frameRate.value_or(defaultFrameRate));
}

FourCC preferredNativeOutputPixelFormat(ExportCodec codec, ExportColorMode colorMode) {
    return encoderPixelFormat(codec, colorMode);
}

FourCC preferredNativeSourcePixelFormat(std::string_view codecName, std::string_view pixelFormatName) {
    const auto codec = lowercased(codecName);
    const auto format = lowercased(pixelFormatName);
    const auto has = [](const std::string& text, std::string_view part) {
        return text.find(part) != std::string::npos;
    };
    if (has(format, "yuva") || has(format, "alpha"))
        return pixelFormat::bgra;
    if (has(codec, "prores"))
        return has(format, "444") ? pixelFormat::yCbCr444TenBitVideoRange : pixelFormat::yCbCr422TenBitVideoRange;
    if ((codec == "h264" || codec == "hevc") && has(format, "420")) {
        const bool fullRange = has(format, "yuvj");
        if (has(format, "12") || has(format, "16") || has(format, "10") || has(format, "p010"))
            return fullRange ? pixelFormat::yCbCr420TenBitFullRange : pixelFormat::yCbCr420TenBitVideoRange;
        return fullRange ? pixelFormat::yCbCr420FullRange : pixelFormat::yCbCr420VideoRange;
    }
    return pixelFormat::bgra;
}

VideoColorMetadata colorMetadata(const ColorAttachments& attachments, const VideoColorMetadata& fallback) {
    auto result = fallback;
    if (says(attachments.primaries))
        result.primaries = attachments.primaries == h273::bt2020           ? VideoColorPrimaries::bt2020
                           : attachments.primaries == h273::p3D65Primaries ? VideoColorPrimaries::p3D65
                                                                           : VideoColorPrimaries::bt709;
    if (says(attachments.transfer)) {
        switch (attachments.transfer) {
        case h273::pqTransfer: result.transferFunction = VideoTransferFunction::pq; break;
        case h273::hlgTransfer: result.transferFunction = VideoTransferFunction::hlg; break;
        case h273::sRGBTransfer: result.transferFunction = VideoTransferFunction::sRGB; break;
        case h273::linearTransfer: result.transferFunction = VideoTransferFunction::linear; break;
        default: result.transferFunction = VideoTransferFunction::bt709; break;
        }
    }
    if (says(attachments.matrix)) {
        const int matrix = attachments.matrix;
        result.yCbCrMatrix = matrix == h273::bt470bgMatrix || matrix == h273::smpte170mMatrix ? VideoYCbCrMatrix::bt601
                             : matrix == h273::bt2020 || matrix == h273::bt2020ConstantLuminance
                                 ? VideoYCbCrMatrix::bt2020
                                 : VideoYCbCrMatrix::bt709;
    }
    return result;
}

} // namespace panoveer
