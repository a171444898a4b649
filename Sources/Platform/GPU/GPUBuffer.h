#pragma once

#include <cstddef>
#include <memory>
#include <span>
#include <string_view>

namespace panoveer {

class GPUDevice;
class VulkanBuffer;

// Vertices or indices on the GPU. Filled when it is made and never changed, so it is shared freely; safe from any
// thread.
class GPUBuffer {
public:
    // Throws Error (gpuErrorDomain) when there is no memory for it. `label` names it in debuggers.
    static std::shared_ptr<GPUBuffer> make(std::shared_ptr<GPUDevice> device, std::span<const std::byte> bytes,
                                           std::string_view label = {});
    ~GPUBuffer();
    GPUBuffer(const GPUBuffer&) = delete;
    GPUBuffer& operator=(const GPUBuffer&) = delete;

    std::size_t size() const { return size_; }

    // For the classes of this layer.
    const VulkanBuffer& vulkan() const { return *vulkan_; }

private:
    GPUBuffer(std::shared_ptr<GPUDevice> device, std::span<const std::byte> bytes, std::string_view label);

    std::shared_ptr<GPUDevice> device_;
    std::size_t size_;
    std::unique_ptr<VulkanBuffer> vulkan_;
};

} // namespace panoveer
