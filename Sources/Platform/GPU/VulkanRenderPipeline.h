#pragma once

#include "Platform/GPU/GPURenderPipeline.h"
#include "Platform/GPU/VulkanPipelineLayout.h"

namespace panoveer {

class VulkanRenderPipeline {
public:
    // Throws Error.
    VulkanRenderPipeline(VulkanDevice& device, const ShaderFunction& vertexFunction,
                         const ShaderFunction& fragmentFunction, std::span<const GPUVertexAttribute> attributes,
                         std::uint32_t stride, VkFormat colorFormat, std::string_view label);

    // The textures are those of the fragment function.
    const VulkanPipelineLayout& layout() const { return layout_; }
    VkRenderPass renderPass() const { return renderPass_.get(); }
    VkPipeline get() const { return pipeline_.get(); }

private:
    VulkanPipelineLayout layout_;
    OwnedRenderPass renderPass_;
    OwnedPipeline pipeline_;
};

} // namespace panoveer
