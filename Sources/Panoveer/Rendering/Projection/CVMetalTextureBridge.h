#pragma once

#include "Panoveer/Rendering/Projection/ProjectionRenderer.h"
#include "Panoveer/Rendering/Projection/VRSourceFrame.h"
#include "Platform/GPU/GPUTexture.h"
#include "Platform/GPU/GPUTexturePool.h"
#include "Platform/Media/PixelBuffer.h"

#include <memory>

namespace panoveer {

class GPUCommandBuffer;
class GPUDevice;

// Makes the planes of pixel buffers into textures. Owned by whoever records the command buffers that use them; one
// thread at a time. Everything throws VRMetalProjectionError.textureCreationFailed for a plane that cannot be a
// texture.
class CVMetalTextureBridge {
public:
    explicit CVMetalTextureBridge(std::shared_ptr<GPUDevice> device);

    // A texture that holds the plane as it is now, once the commands run. The buffer may be changed at once.
    std::shared_ptr<GPUTexture> sourceTexture(const PixelBuffer& pixelBuffer, GPUPixelFormat pixelFormat,
                                              int planeIndex, GPUCommandBuffer& commands);

    // A texture whose contents lie in the plane when the commands have completed; the buffer must stay until then.
    std::shared_ptr<GPUTexture> outputTexture(const PixelBuffer& pixelBuffer, GPUPixelFormat pixelFormat,
                                              int planeIndex, GPUCommandBuffer& commands);

    // A whole picture with the textures that its format asks for.
    VRSourceFrame sourceFrame(const PixelBuffer& pixelBuffer, const SourcePictureDescription& description,
                              GPUCommandBuffer& commands);

private:
    std::shared_ptr<GPUTexture> makeTexture(const PixelBuffer& pixelBuffer, GPUPixelFormat pixelFormat, int planeIndex,
                                            GPUTextureUsage usage);

    GPUTexturePool retainedTextures_;
};

} // namespace panoveer
