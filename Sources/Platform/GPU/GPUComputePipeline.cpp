#include "Platform/GPU/GPUComputePipeline.h"

#include "Platform/GPU/GPUDevice.h"
#include "Platform/GPU/ShaderLibrary.h"
#include "Platform/GPU/VulkanComputePipeline.h"

#include <vector>

namespace panoveer {

namespace {

VkDescriptorType descriptorType(const ShaderTextureBinding& texture) {
    return texture.isStorage ? VK_DESCRIPTOR_TYPE_STORAGE_IMAGE : VK_DESCRIPTOR_TYPE_SAMPLED_IMAGE;
}

} // namespace

VulkanComputePipeline::VulkanComputePipeline(VulkanDevice& device, std::span<const std::uint32_t> code,
                                             std::string_view name)
    : reflection_(reflect(code)) {
    std::vector<VkDescriptorSetLayoutBinding> bindings;
    for (const auto& texture : reflection_.textures)
        bindings.push_back({.binding = texture.binding,
                            .descriptorType = descriptorType(texture),
                            .descriptorCount = 1,
                            .stageFlags = VK_SHADER_STAGE_COMPUTE_BIT});
    setLayout_ = makeOwned<OwnedDescriptorSetLayout>(
        device.get(), vkCreateDescriptorSetLayout,
        VkDescriptorSetLayoutCreateInfo{.sType = VK_STRUCTURE_TYPE_DESCRIPTOR_SET_LAYOUT_CREATE_INFO,
                                        .bindingCount = std::uint32_t(bindings.size()),
                                        .pBindings = bindings.data()},
        "describe a kernel's textures");

    const VkDescriptorSetLayout setLayout = setLayout_.get();
    const VkPushConstantRange constants{VK_SHADER_STAGE_COMPUTE_BIT, 0, maximumConstantBytes};
    layout_ = makeOwned<OwnedPipelineLayout>(
        device.get(), vkCreatePipelineLayout,
        VkPipelineLayoutCreateInfo{.sType = VK_STRUCTURE_TYPE_PIPELINE_LAYOUT_CREATE_INFO,
                                   .setLayoutCount = 1,
                                   .pSetLayouts = &setLayout,
                                   .pushConstantRangeCount = 1,
                                   .pPushConstantRanges = &constants},
        "describe a kernel's arguments");

    const auto module = makeOwned<OwnedShaderModule>(
        device.get(), vkCreateShaderModule,
        VkShaderModuleCreateInfo{
            .sType = VK_STRUCTURE_TYPE_SHADER_MODULE_CREATE_INFO, .codeSize = code.size_bytes(), .pCode = code.data()},
        "load a kernel");
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
