#pragma once

#include <memory>
#include <string>

namespace panoveer {

class GPUDevice;
class VulkanComputePipeline;
struct ShaderFunction;

// A kernel, ready to run on one device. Shared; safe from any thread.
class GPUComputePipeline {
public:
    // Throws Error when the device does not take the kernel.
    GPUComputePipeline(std::shared_ptr<GPUDevice> device, const ShaderFunction& function);
    ~GPUComputePipeline();
    GPUComputePipeline(const GPUComputePipeline&) = delete;
    GPUComputePipeline& operator=(const GPUComputePipeline&) = delete;

    const std::string& name() const { return name_; }

    // For the classes of this layer.
    const VulkanComputePipeline& vulkan() const { return *vulkan_; }

private:
    std::shared_ptr<GPUDevice> device_;
    std::string name_;
    std::unique_ptr<VulkanComputePipeline> vulkan_;
};

} // namespace panoveer
