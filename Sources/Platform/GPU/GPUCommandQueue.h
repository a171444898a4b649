#pragma once

#include <memory>

namespace panoveer {

class GPUCommandBuffer;
class GPUDevice;
class VulkanCommandQueue;

// A road into the GPU. Each renderer has its own, so that a busy one does not hold up the others where the hardware has
// several. On hardware with copy engines, uploads and downloads of one command buffer run beside the dispatches of
// another. Safe from any thread.
class GPUCommandQueue {
public:
    // Throws Error when the device has no memory for it.
    explicit GPUCommandQueue(std::shared_ptr<GPUDevice> device);

    const std::shared_ptr<GPUDevice>& device() const { return device_; }

    // Throws Error when the device has no memory for it.
    std::unique_ptr<GPUCommandBuffer> makeCommandBuffer();

private:
    std::shared_ptr<GPUDevice> device_;
    std::shared_ptr<VulkanCommandQueue> vulkan_;
};

} // namespace panoveer
