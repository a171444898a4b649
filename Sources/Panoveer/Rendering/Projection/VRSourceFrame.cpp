#include "Panoveer/Rendering/Projection/VRSourceFrame.h"

#include "Platform/GPU/GPUTexture.h"

namespace panoveer {

namespace {

std::optional<VRSourceFrame::TextureLayout> textureLayout(FourCC format) {
    using enum VRSourceFrame::TextureLayout;
    if (format == pixelFormat::bgra)
        return bgra;
    const auto layout = layoutOf(format);
    if (!layout || !layout->isYCbCr())
        return std::nullopt;
    if (layout->bytesPerSample == 1)
        return layout->isFullRange ? yCbCrFullRange : yCbCrVideoRange;
    return layout->isFullRange ? yCbCr10BitFullRange : yCbCr10BitVideoRange;
}

VRSourceFrame::YCbCrMatrix yCbCrMatrix(VideoYCbCrMatrix matrix) {
    switch (matrix) {
    case VideoYCbCrMatrix::bt601: return VRSourceFrame::YCbCrMatrix::ituR601;
    case VideoYCbCrMatrix::bt709: return VRSourceFrame::YCbCrMatrix::ituR709;
    case VideoYCbCrMatrix::bt2020: return VRSourceFrame::YCbCrMatrix::ituR2020;
    }
    return VRSourceFrame::YCbCrMatrix::ituR709;
}

} // namespace

std::optional<VRSourceFrame> VRSourceFrame::describing(FourCC format, const SourcePictureDescription& description) {
    const auto layout = panoveer::textureLayout(format);
    if (!layout)
        return std::nullopt;
    VRSourceFrame frame;
    frame.textureLayout = *layout;
    frame.yCbCrMatrix = panoveer::yCbCrMatrix(description.yCbCrMatrix);
    frame.colorPrimaries = description.colorPrimaries;
    frame.transferFunction = description.transferFunction;
    frame.sourceOrientation = description.orientation;
    frame.alphaMode = description.alphaMode;
    return frame;
}

UInt2 VRSourceFrame::sourceSize() const {
    const UInt2 stored{std::uint32_t(primaryTexture->width()), std::uint32_t(primaryTexture->height())};
    return uprightSize(stored, sourceOrientation);
}

} // namespace panoveer
