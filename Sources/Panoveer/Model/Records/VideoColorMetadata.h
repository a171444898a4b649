#pragma once

#include <cstdint>
#include <optional>
#include <vector>

namespace panoveer {

enum class VideoColorPrimaries { bt709, bt2020, p3D65 };

enum class VideoTransferFunction { bt709, pq, hlg, sRGB, linear };

enum class VideoYCbCrMatrix { bt601, bt709, bt2020 };

// The colours of a source, with the HDR side data as read, carried untouched.
struct VideoColorMetadata {
    VideoColorPrimaries primaries = VideoColorPrimaries::bt709;
    VideoTransferFunction transferFunction = VideoTransferFunction::bt709;
    VideoYCbCrMatrix yCbCrMatrix = VideoYCbCrMatrix::bt709;
    std::optional<std::vector<std::uint8_t>> masteringDisplayColorVolume; // payload of an mdcv box, 24 bytes
    std::optional<std::vector<std::uint8_t>> contentLightLevelInfo;       // payload of a clli box, 4 bytes

    static const VideoColorMetadata rec709;

    bool isHDR() const {
        return transferFunction == VideoTransferFunction::pq || transferFunction == VideoTransferFunction::hlg;
    }

    friend bool operator==(const VideoColorMetadata&, const VideoColorMetadata&) = default;
};

inline const VideoColorMetadata VideoColorMetadata::rec709{};

} // namespace panoveer
