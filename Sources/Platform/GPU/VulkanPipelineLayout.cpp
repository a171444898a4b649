#include "Platform/GPU/VulkanPipelineLayout.h"

#include <vector>

namespace panoveer {

namespace {

VkDescriptorType descriptorType(const ShaderTextureBinding& texture) {
    return texture.isStorage ? VK_DESCRIPTOR_TYPE_STORAGE_IMAGE : VK_DESCRIPTOR_TYPE_SAMPLED_IMAGE;
}

} // namespace

VulkanPipelineLayout::VulkanPipelineLayout(VulkanDevice& device, std::span<const std::uint32_t> code,
                                           VkShaderStageFlags stages)
    : reflection_(reflect(code)), stages_(stages) {
    std::vector<VkDescriptorSetLayoutBinding> bindings;
    for (const auto& texture : reflection_.textures)
        bindings.push_back({.binding = texture.binding,
                            .descriptorType = descriptorType(texture),
                            .descriptorCount = 1,
                            .stageFlags = stages});
    setLayout_ = makeOwned<OwnedDescriptorSetLayout>(
        device.get(), vkCreateDescriptorSetLayout,
        VkDescriptorSetLayoutCreateInfo{.sType = VK_STRUCTURE_TYPE_DESCRIPTOR_SET_LAYOUT_CREATE_INFO,
                                        .bindingCount = std::uint32_t(bindings.size()),
                                        .pBindings = bindings.data()},
        "describe a kernel's textures");

    const VkDescriptorSetLayout setLayout = setLayout_.get();
    const VkPushConstantRange constants{stages, 0, maximumConstantBytes};
    layout_ = makeOwned<OwnedPipelineLayout>(
        device.get(), vkCreatePipelineLayout,
        VkPipelineLayoutCreateInfo{.sType = VK_STRUCTURE_TYPE_PIPELINE_LAYOUT_CREATE_INFO,
                                   .setLayoutCount = 1,
                                   .pSetLayouts = &setLayout,
                                   .pushConstantRangeCount = 1,
                                   .pPushConstantRanges = &constants},
        "describe a kernel's arguments");
}

OwnedShaderModule makeShaderModule(VulkanDevice& device, std::span<const std::uint32_t> code) {
    return makeOwned<OwnedShaderModule>(device.get(), vkCreateShaderModule,
                                        VkShaderModuleCreateInfo{.sType = VK_STRUCTURE_TYPE_SHADER_MODULE_CREATE_INFO,
                                                                 .codeSize = code.size_bytes(),
                                                                 .pCode = code.data()},
                                        "load a kernel");
}

} // namespace panoveer
