#include "Panoveer/Rendering/Projection/CVMetalTextureBridge.h"

#include "Panoveer/Rendering/Projection/VRMetalProjectionError.h"
#include "Platform/GPU/GPUCommandBuffer.h"

namespace panoveer {

namespace {

constexpr std::size_t maximumRetainedTextures = 12;

struct PlaneFormats {
    GPUPixelFormat primary;
    GPUPixelFormat chroma; // of layouts that have such a plane
};

PlaneFormats planeFormats(VRSourceFrame::TextureLayout layout) {
    switch (layout) {
    case VRSourceFrame::TextureLayout::bgra: return {GPUPixelFormat::bgra8Unorm, GPUPixelFormat::bgra8Unorm};
    case VRSourceFrame::TextureLayout::yCbCrVideoRange:
    case VRSourceFrame::TextureLayout::yCbCrFullRange: return {GPUPixelFormat::r8Unorm, GPUPixelFormat::rg8Unorm};
    case VRSourceFrame::TextureLayout::yCbCr10BitVideoRange:
    case VRSourceFrame::TextureLayout::yCbCr10BitFullRange:
        return {GPUPixelFormat::r16Unorm, GPUPixelFormat::rg16Unorm};
    }
    return {};
}

// Bytes from one pixel of a plane to the next.
std::size_t bytesPerPlanePixel(const PixelFormatLayout& layout, int planeIndex) {
    const int samples = planeIndex == 0 ? layout.samplesPerPixel : 2;
    return std::size_t(samples) * std::size_t(layout.bytesPerSample);
}

} // namespace

CVMetalTextureBridge::CVMetalTextureBridge(std::shared_ptr<GPUDevice> device)
    : retainedTextures_(std::move(device), maximumRetainedTextures) {}

std::shared_ptr<GPUTexture> CVMetalTextureBridge::makeTexture(const PixelBuffer& pixelBuffer,
                                                              GPUPixelFormat pixelFormat, int planeIndex,
                                                              GPUTextureUsage usage) {
    if (bytesPerPlanePixel(pixelBuffer.layout(), planeIndex) != bytesPerPixel(pixelFormat))
        throw VRMetalProjectionError(VRMetalProjectionError::Case::textureCreationFailed,
                                     VRMetalProjectionError::invalidPixelFormatStatus);
    const auto& plane = pixelBuffer.plane(planeIndex);
    try {
        return retainedTextures_.acquire(pixelFormat, plane.width, plane.height, usage);
    } catch (const Error& failure) {
        throw VRMetalProjectionError(VRMetalProjectionError::Case::textureCreationFailed, failure);
    }
}

std::shared_ptr<GPUTexture> CVMetalTextureBridge::sourceTexture(const PixelBuffer& pixelBuffer,
                                                                GPUPixelFormat pixelFormat, int planeIndex,
                                                                GPUCommandBuffer& commands) {
    auto texture = makeTexture(pixelBuffer, pixelFormat, planeIndex, GPUTextureUsage::shaderRead);
    const auto& plane = pixelBuffer.plane(planeIndex);
    commands.upload(texture, plane.data, plane.rowBytes);
    return texture;
}

std::shared_ptr<GPUTexture> CVMetalTextureBridge::outputTexture(const PixelBuffer& pixelBuffer,
                                                                GPUPixelFormat pixelFormat, int planeIndex,
                                                                GPUCommandBuffer& commands) {
    auto texture = makeTexture(pixelBuffer, pixelFormat, planeIndex, GPUTextureUsage::shaderWrite);
    const auto& plane = pixelBuffer.plane(planeIndex);
    commands.download(texture, plane.data, plane.rowBytes);
    return texture;
}

VRSourceFrame CVMetalTextureBridge::sourceFrame(const PixelBuffer& pixelBuffer,
                                                const SourcePictureDescription& description,
                                                GPUCommandBuffer& commands) {
    auto frame = VRSourceFrame::describing(pixelBuffer.format(), description);
    if (!frame)
        throw VRMetalProjectionError(VRMetalProjectionError::Case::textureCreationFailed,
                                     VRMetalProjectionError::invalidPixelFormatStatus);
    const auto formats = planeFormats(frame->textureLayout);
    frame->primaryTexture = sourceTexture(pixelBuffer, formats.primary, 0, commands);
    if (pixelBuffer.planeCount() > 1)
        frame->chromaTexture = sourceTexture(pixelBuffer, formats.chroma, 1, commands);
    return *frame;
}

} // namespace panoveer
