#include "Platform/GPU/GPUComputePipeline.h"

#include "Platform/GPU/GPUDevice.h"
#include "Platform/GPU/ShaderLibrary.h"
#include "Platform/GPU/VulkanComputePipeline.h"

namespace panoveer {

VulkanComputePipeline::VulkanComputePipeline(VulkanDevice& device, std::span<const std::uint32_t> code,
                                             std::string_view name)
    : layout_(device, code, VK_SHADER_STAGE_COMPUTE_BIT) {
    const auto module = makeShaderModule(device, code);
    const VkComputePipelineCreateInfo info{.sType = VK_STRUCTURE_TYPE_COMPUTE_PIPELINE_CREATE_INFO,
                                           .stage = {.sType = VK_STRUCTURE_TYPE_PIPELINE_SHADER_STAGE_CREATE_INFO,
                                                     .stage = VK_SHADER_STAGE_COMPUTE_BIT,
                                                     .module = module.get(),
                                                     .pName = "main"},
                                           .layout = layout_.get()};
    VkPipeline pipeline = VK_NULL_HANDLE;
    check(vkCreateComputePipelines(device.get(), VK_NULL_HANDLE, 1, &info, nullptr, &pipeline), "prepare a kernel");
    pipeline_ = OwnedPipeline(device.get(), pipeline);
    device.setName(VK_OBJECT_TYPE_PIPELINE, reinterpret_cast<std::uint64_t>(pipeline), name);
}

GPUComputePipeline::GPUComputePipeline(std::shared_ptr<GPUDevice> device, const ShaderFunction& function)
    : device_(std::move(device)),
      name_(function.name),
      vulkan_(std::make_unique<VulkanComputePipeline>(device_->vulkan(), function.code, name_)) {}

GPUComputePipeline::~GPUComputePipeline() = default;

} // namespace panoveer
