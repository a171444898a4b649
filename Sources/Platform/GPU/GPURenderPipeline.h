#pragma once

#include "Platform/GPU/GPUTexture.h"

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>

namespace panoveer {

class GPUDevice;
class VulkanRenderPipeline;
struct ShaderFunction;

// One input of a vertex function: `layout(location = N)` of `count` floats, `offset` bytes into the vertex.
struct GPUVertexAttribute {
    std::uint32_t count = 1; // 1…4
    std::uint32_t offset = 0;
};

// The two stages that draw triangles, ready to run on one device: both sides of a triangle show, nothing is blended,
// and a later triangle covers an earlier one. Shared; safe from any thread.
class GPURenderPipeline {
public:
    // attributes[N] is location N; vertices lie `stride` bytes apart. Targets are textures of `colorFormat`. Throws
    // Error when the device does not take the functions, or cannot draw.
    GPURenderPipeline(std::shared_ptr<GPUDevice> device, const ShaderFunction& vertexFunction,
                      const ShaderFunction& fragmentFunction, std::span<const GPUVertexAttribute> attributes,
                      std::uint32_t stride, GPUPixelFormat colorFormat, std::string_view label = {});
    ~GPURenderPipeline();
    GPURenderPipeline(const GPURenderPipeline&) = delete;
    GPURenderPipeline& operator=(const GPURenderPipeline&) = delete;

    GPUPixelFormat colorFormat() const { return colorFormat_; }

    // For the classes of this layer.
    const VulkanRenderPipeline& vulkan() const { return *vulkan_; }

private:
    std::shared_ptr<GPUDevice> device_;
    GPUPixelFormat colorFormat_;
    std::unique_ptr<VulkanRenderPipeline> vulkan_;
};

} // namespace panoveer
