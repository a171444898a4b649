#pragma once

#include "Platform/GPU/ShaderReflection.h"
#include "Platform/GPU/VulkanDevice.h"

#include <cstdint>
#include <span>

namespace panoveer {

// Constants that every pipeline takes; every device grants this much.
inline constexpr std::uint32_t maximumConstantBytes = 128;

// What a pipeline is given when it runs: the textures that a function names, and constants.
class VulkanPipelineLayout {
public:
    // `code` is the function that names the textures; `stages` are those of the pipeline. Throws Error.
    VulkanPipelineLayout(VulkanDevice& device, std::span<const std::uint32_t> code, VkShaderStageFlags stages);

    const ShaderReflection& reflection() const { return reflection_; }
    VkShaderStageFlags stages() const { return stages_; }
    VkDescriptorSetLayout setLayout() const { return setLayout_.get(); }
    VkPipelineLayout get() const { return layout_.get(); }

private:
    ShaderReflection reflection_;
    VkShaderStageFlags stages_;
    OwnedDescriptorSetLayout setLayout_;
    OwnedPipelineLayout layout_;
};

// Throws Error.
OwnedShaderModule makeShaderModule(VulkanDevice& device, std::span<const std::uint32_t> code);

} // namespace panoveer
