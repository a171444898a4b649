#pragma once

#include "Platform/GPU/VulkanPipelineLayout.h"

#include <string_view>

namespace panoveer {

class VulkanComputePipeline {
public:
    // Throws Error.
    VulkanComputePipeline(VulkanDevice& device, std::span<const std::uint32_t> code, std::string_view name);

    const VulkanPipelineLayout& layout() const { return layout_; }
    VkPipeline get() const { return pipeline_.get(); }

private:
    VulkanPipelineLayout layout_;
    OwnedPipeline pipeline_;
};

} // namespace panoveer
