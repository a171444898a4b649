#pragma once

#include "Platform/Core/FourCC.h"

#include <optional>
#include <string>
#include <string_view>

namespace panoveer {

enum class ExportColorMode { convertToSDR, preserveHDR, hdrHLG };

// What a movie is encoded with. The order is the one that pickers list.
enum class ExportCodec {
    hevc8,
    hevc10,
    mvhevc8,
    mvhevc10,
    hevcWithAlpha,
    h264,
    proRes,
    proRes422Proxy,
    proRes422LT,
    proRes422HQ,
    proRes4444,
    proRes4444XQ,
};

// The automatic bitrate of a codec: factor times megapixels, in Mbit/s at 30 frames per second, but not below floor.
struct AutomaticBitrateRule {
    double factor = 0;
    double floor = 0; // Mbit/s
};

// What is fixed about a codec.
struct ExportCodecProperties {
    FourCC codecType;               // of the sample entry
    std::string_view fileExtension; // "mp4" or "mov": also names the container
    FourCC pixelFormatSDR;          // see encoderPixelFormat
    FourCC pixelFormatHDR;
    std::optional<AutomaticBitrateRule> bitrate; // none for ProRes, whose quality governs
    std::optional<double> referenceMbps;         // ProRes only: at 1920x1080 and 29.97 frames per second
    bool isMultiviewStereo = false;              // each eye is a layer of its own
    bool keepsAlpha = false;
    bool isTenBitCapable = false; // can carry HDR

    bool isProRes() const { return referenceMbps.has_value(); }
};

const ExportCodecProperties& properties(ExportCodec codec);

// For pickers, in the language in force: "HEVC 10-bit".
std::string displayName(ExportCodec codec);
// Profile, depth and chroma: "HEVC Main 10, 10-bit 4:2:0".
std::string profileText(ExportCodec codec);

// Of the pictures that the encoder is given.
FourCC encoderPixelFormat(ExportCodec codec, ExportColorMode colorMode);

// The plain codec of the same depth for a multiview one; any other codec as it is.
ExportCodec withoutMultiview(ExportCodec codec);

} // namespace panoveer
