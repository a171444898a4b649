#pragma once

#include "Panoveer/Model/Records/RecordEnums.h"
#include "Panoveer/Model/Records/SourceVideoOrientation.h"
#include "Panoveer/Model/Records/VideoColorMetadata.h"
#include "Panoveer/Rendering/Projection/ProjectionRenderer.h"

#include <array>
#include <cstdint>
#include <memory>
#include <optional>

namespace panoveer {

class GPUTexture;

struct UInt2 {
    std::uint32_t x = 0;
    std::uint32_t y = 0;
    friend bool operator==(const UInt2&, const UInt2&) = default;
};

// One decoded picture, ready for the kernels. A value; copies share the textures. The enumerations reach the kernels
// as their index.
//
//   layout                                          primary plane   chroma plane
//   bgra                                            bgra8Unorm      none
//   yCbCrVideoRange, yCbCrFullRange                 r8Unorm         rg8Unorm
//   yCbCr10BitVideoRange, yCbCr10BitFullRange       r16Unorm        rg16Unorm, samples in the high ten bits
struct VRSourceFrame {
    enum class TextureLayout { bgra, yCbCrVideoRange, yCbCrFullRange, yCbCr10BitVideoRange, yCbCr10BitFullRange };
    enum class YCbCrMatrix { ituR709, ituR601, ituR2020 };
    using ColorPrimaries = VideoColorPrimaries;
    using TransferFunction = VideoTransferFunction;
    using AlphaMode = panoveer::AlphaMode;

    std::shared_ptr<GPUTexture> primaryTexture; // null only in a description without textures
    std::shared_ptr<GPUTexture> chromaTexture;  // interleaved CbCr; null for bgra
    TextureLayout textureLayout = TextureLayout::bgra;
    YCbCrMatrix yCbCrMatrix = YCbCrMatrix::ituR709;
    ColorPrimaries colorPrimaries = ColorPrimaries::bt709;
    TransferFunction transferFunction = TransferFunction::bt709;
    SourceVideoOrientation sourceOrientation = SourceVideoOrientation::up;
    AlphaMode alphaMode = AlphaMode::opaque;

    // The frame that a pixel buffer of this format makes, without its textures. No value for a format that cannot be a
    // source (RGhA).
    static std::optional<VRSourceFrame> describing(FourCC format, const SourcePictureDescription& description);

    // The size of the upright picture: that of the primary texture, exchanged when the orientation turns it.
    UInt2 sourceSize() const;

    // What the kernels bind as chroma: a frame without a chroma plane shows its primary texture twice.
    const std::shared_ptr<GPUTexture>& chromaOrPrimary() const {
        return chromaTexture ? chromaTexture : primaryTexture;
    }
};

template<>
inline constexpr auto enumCases<VRSourceFrame::TextureLayout> = std::to_array<EnumCase<VRSourceFrame::TextureLayout>>({
    {VRSourceFrame::TextureLayout::bgra, "bgra"},
    {VRSourceFrame::TextureLayout::yCbCrVideoRange, "yCbCrVideoRange"},
    {VRSourceFrame::TextureLayout::yCbCrFullRange, "yCbCrFullRange"},
    {VRSourceFrame::TextureLayout::yCbCr10BitVideoRange, "yCbCr10BitVideoRange"},
    {VRSourceFrame::TextureLayout::yCbCr10BitFullRange, "yCbCr10BitFullRange"},
});

template<>
inline constexpr auto enumCases<VRSourceFrame::YCbCrMatrix> = std::to_array<EnumCase<VRSourceFrame::YCbCrMatrix>>({
    {VRSourceFrame::YCbCrMatrix::ituR709, "ituR709"},
    {VRSourceFrame::YCbCrMatrix::ituR601, "ituR601"},
    {VRSourceFrame::YCbCrMatrix::ituR2020, "ituR2020"},
});

template<>
inline constexpr auto enumCases<AlphaMode> = std::to_array<EnumCase<AlphaMode>>({
    {AlphaMode::opaque, "opaque"},
    {AlphaMode::straight, "straight"},
    {AlphaMode::premultiplied, "premultiplied"},
});

// The size of the upright picture from the size of the stored one.
constexpr UInt2 uprightSize(UInt2 stored, SourceVideoOrientation orientation) {
    return swapsDimensions(orientation) ? UInt2{stored.y, stored.x} : stored;
}

} // namespace panoveer
