#pragma once

#include "Platform/GPU/ShaderReflection.h"
#include "Platform/GPU/VulkanDevice.h"

namespace panoveer {

// Every kernel may take this much, which every device grants.
inline constexpr std::uint32_t maximumConstantBytes = 128;

class VulkanComputePipeline {
public:
    // Throws Error.
    VulkanComputePipeline(VulkanDevice& device, std::span<const std::uint32_t> code, std::string_view name);

    const ShaderReflection& reflection() const { return reflection_; }
    VkDescriptorSetLayout setLayout() const { return setLayout_.get(); }
    VkPipelineLayout layout() const { return layout_.get(); }
    VkPipeline get() const { return pipeline_.get(); }

private:
    ShaderReflection reflection_;
    OwnedDescriptorSetLayout setLayout_;
    OwnedPipelineLayout layout_;
    OwnedPipeline pipeline_;
};

} // namespace panoveer
