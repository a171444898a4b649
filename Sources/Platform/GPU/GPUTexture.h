#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>

namespace panoveer {

class GPUDevice;
class VulkanTexture;

enum class GPUPixelFormat { bgra8Unorm, r8Unorm, rg8Unorm, r16Unorm, rg16Unorm, rgba16Float };

constexpr std::size_t bytesPerPixel(GPUPixelFormat format) {
    switch (format) {
    case GPUPixelFormat::r8Unorm: return 1;
    case GPUPixelFormat::rg8Unorm:
    case GPUPixelFormat::r16Unorm: return 2;
    case GPUPixelFormat::bgra8Unorm:
    case GPUPixelFormat::rg16Unorm: return 4;
    case GPUPixelFormat::rgba16Float: return 8;
    }
    return 0;
}

std::string_view name(GPUPixelFormat format);

// What is done with a texture: kernels read it, write it, or both; or triangles are drawn on it, and it is read.
enum class GPUTextureUsage { shaderRead, shaderWrite, shaderReadWrite, renderTarget };

constexpr bool isReadByShaders(GPUTextureUsage usage) { return usage != GPUTextureUsage::shaderWrite; }
constexpr bool isWrittenByShaders(GPUTextureUsage usage) {
    return usage == GPUTextureUsage::shaderWrite || usage == GPUTextureUsage::shaderReadWrite;
}

// A two-dimensional picture on the GPU, without mipmaps. Every texture can also be uploaded to and downloaded from.
// Shared by those who use it; command buffers keep it alive. A texture that one command buffer writes must not be used
// by another until the first has completed.
class GPUTexture {
public:
    // Throws Error (gpuErrorDomain) when the device cannot hold such a texture. `label` names it in debuggers.
    static std::shared_ptr<GPUTexture> make(std::shared_ptr<GPUDevice> device, GPUPixelFormat format, int width,
                                            int height, GPUTextureUsage usage, std::string_view label = {});
    ~GPUTexture();
    GPUTexture(const GPUTexture&) = delete;
    GPUTexture& operator=(const GPUTexture&) = delete;

    GPUPixelFormat format() const { return format_; }
    GPUTextureUsage usage() const { return usage_; }
    int width() const { return width_; }
    int height() const { return height_; }

    // For the classes of this layer.
    VulkanTexture& vulkan() const { return *vulkan_; }

private:
    GPUTexture(std::shared_ptr<GPUDevice> device, GPUPixelFormat format, int width, int height, GPUTextureUsage usage,
               std::string_view label);

    std::shared_ptr<GPUDevice> device_;
    GPUPixelFormat format_;
    GPUTextureUsage usage_;
    int width_;
    int height_;
    std::unique_ptr<VulkanTexture> vulkan_;
};

} // namespace panoveer
