#include "Platform/GPU/GPURenderPipeline.h"

#include "Platform/Core/Error.h"
#include "Platform/Core/Localization.h"
#include "Platform/GPU/GPUDevice.h"
#include "Platform/GPU/ShaderLibrary.h"
#include "Platform/GPU/VulkanRenderPipeline.h"

#include <array>
#include <vector>

namespace panoveer {

namespace {

constexpr VkFormat floatFormats[] = {VK_FORMAT_R32_SFLOAT, VK_FORMAT_R32G32_SFLOAT, VK_FORMAT_R32G32B32_SFLOAT,
                                     VK_FORMAT_R32G32B32A32_SFLOAT};

// Clears the target and keeps what is drawn. Command buffers have their own barriers around it.
OwnedRenderPass makeRenderPass(VulkanDevice& device, VkFormat colorFormat) {
    const VkAttachmentDescription target{.format = colorFormat,
                                         .samples = VK_SAMPLE_COUNT_1_BIT,
                                         .loadOp = VK_ATTACHMENT_LOAD_OP_CLEAR,
                                         .storeOp = VK_ATTACHMENT_STORE_OP_STORE,
                                         .stencilLoadOp = VK_ATTACHMENT_LOAD_OP_DONT_CARE,
                                         .stencilStoreOp = VK_ATTACHMENT_STORE_OP_DONT_CARE,
                                         .initialLayout = VK_IMAGE_LAYOUT_GENERAL,
                                         .finalLayout = VK_IMAGE_LAYOUT_GENERAL};
    const VkAttachmentReference reference{0, VK_IMAGE_LAYOUT_GENERAL};
    const VkSubpassDescription subpass{.pipelineBindPoint = VK_PIPELINE_BIND_POINT_GRAPHICS,
                                       .colorAttachmentCount = 1,
                                       .pColorAttachments = &reference};
    return makeOwned<OwnedRenderPass>(device.get(), vkCreateRenderPass,
                                      VkRenderPassCreateInfo{.sType = VK_STRUCTURE_TYPE_RENDER_PASS_CREATE_INFO,
                                                             .attachmentCount = 1,
                                                             .pAttachments = &target,
                                                             .subpassCount = 1,
                                                             .pSubpasses = &subpass},
                                      "describe a picture that is drawn");
}

std::vector<VkVertexInputAttributeDescription> describe(std::span<const GPUVertexAttribute> attributes) {
    std::vector<VkVertexInputAttributeDescription> described;
    for (const auto& attribute : attributes)
        described.push_back({.location = std::uint32_t(described.size()),
                             .binding = 0,
                             .format = floatFormats[attribute.count - 1],
                             .offset = attribute.offset});
    return described;
}

} // namespace

VulkanRenderPipeline::VulkanRenderPipeline(VulkanDevice& device, const ShaderFunction& vertexFunction,
                                           const ShaderFunction& fragmentFunction,
                                           std::span<const GPUVertexAttribute> attributes, std::uint32_t stride,
                                           VkFormat colorFormat, std::string_view label)
    : layout_(device, fragmentFunction.code, VK_SHADER_STAGE_VERTEX_BIT | VK_SHADER_STAGE_FRAGMENT_BIT),
      renderPass_(makeRenderPass(device, colorFormat)) {
    const auto vertexModule = makeShaderModule(device, vertexFunction.code);
    const auto fragmentModule = makeShaderModule(device, fragmentFunction.code);
    const auto stage = [](VkShaderStageFlagBits which, const OwnedShaderModule& module) {
        return VkPipelineShaderStageCreateInfo{.sType = VK_STRUCTURE_TYPE_PIPELINE_SHADER_STAGE_CREATE_INFO,
                                               .stage = which,
                                               .module = module.get(),
                                               .pName = "main"};
    };
    const std::array stages{stage(VK_SHADER_STAGE_VERTEX_BIT, vertexModule),
                            stage(VK_SHADER_STAGE_FRAGMENT_BIT, fragmentModule)};
    const VkVertexInputBindingDescription vertices{0, stride, VK_VERTEX_INPUT_RATE_VERTEX};
    const auto inputs = describe(attributes);
    const VkPipelineVertexInputStateCreateInfo vertexInput{
        .sType = VK_STRUCTURE_TYPE_PIPELINE_VERTEX_INPUT_STATE_CREATE_INFO,
        .vertexBindingDescriptionCount = 1,
        .pVertexBindingDescriptions = &vertices,
        .vertexAttributeDescriptionCount = std::uint32_t(inputs.size()),
        .pVertexAttributeDescriptions = inputs.data()};
    const VkPipelineInputAssemblyStateCreateInfo assembly{
        .sType = VK_STRUCTURE_TYPE_PIPELINE_INPUT_ASSEMBLY_STATE_CREATE_INFO,
        .topology = VK_PRIMITIVE_TOPOLOGY_TRIANGLE_LIST};
    const VkPipelineViewportStateCreateInfo viewport{
        .sType = VK_STRUCTURE_TYPE_PIPELINE_VIEWPORT_STATE_CREATE_INFO, .viewportCount = 1, .scissorCount = 1};
    const VkPipelineRasterizationStateCreateInfo rasterization{
        .sType = VK_STRUCTURE_TYPE_PIPELINE_RASTERIZATION_STATE_CREATE_INFO,
        .polygonMode = VK_POLYGON_MODE_FILL,
        .cullMode = VK_CULL_MODE_NONE,
        .lineWidth = 1};
    const VkPipelineMultisampleStateCreateInfo samples{.sType =
                                                           VK_STRUCTURE_TYPE_PIPELINE_MULTISAMPLE_STATE_CREATE_INFO,
                                                       .rasterizationSamples = VK_SAMPLE_COUNT_1_BIT};
    const VkPipelineColorBlendAttachmentState allChannels{.colorWriteMask =
                                                              VK_COLOR_COMPONENT_R_BIT | VK_COLOR_COMPONENT_G_BIT |
                                                              VK_COLOR_COMPONENT_B_BIT | VK_COLOR_COMPONENT_A_BIT};
    const VkPipelineColorBlendStateCreateInfo blending{.sType =
                                                           VK_STRUCTURE_TYPE_PIPELINE_COLOR_BLEND_STATE_CREATE_INFO,
                                                       .attachmentCount = 1,
                                                       .pAttachments = &allChannels};
    constexpr std::array dynamicStates{VK_DYNAMIC_STATE_VIEWPORT, VK_DYNAMIC_STATE_SCISSOR};
    const VkPipelineDynamicStateCreateInfo dynamic{.sType = VK_STRUCTURE_TYPE_PIPELINE_DYNAMIC_STATE_CREATE_INFO,
                                                   .dynamicStateCount = std::uint32_t(dynamicStates.size()),
                                                   .pDynamicStates = dynamicStates.data()};
    const VkGraphicsPipelineCreateInfo info{.sType = VK_STRUCTURE_TYPE_GRAPHICS_PIPELINE_CREATE_INFO,
                                            .stageCount = std::uint32_t(stages.size()),
                                            .pStages = stages.data(),
                                            .pVertexInputState = &vertexInput,
                                            .pInputAssemblyState = &assembly,
                                            .pViewportState = &viewport,
                                            .pRasterizationState = &rasterization,
                                            .pMultisampleState = &samples,
                                            .pColorBlendState = &blending,
                                            .pDynamicState = &dynamic,
                                            .layout = layout_.get(),
                                            .renderPass = renderPass_.get()};
    VkPipeline pipeline = VK_NULL_HANDLE;
    check(vkCreateGraphicsPipelines(device.get(), VK_NULL_HANDLE, 1, &info, nullptr, &pipeline), "prepare drawing");
    pipeline_ = OwnedPipeline(device.get(), pipeline);
    device.setName(VK_OBJECT_TYPE_PIPELINE, reinterpret_cast<std::uint64_t>(pipeline), label);
}

GPURenderPipeline::GPURenderPipeline(std::shared_ptr<GPUDevice> device, const ShaderFunction& vertexFunction,
                                     const ShaderFunction& fragmentFunction,
                                     std::span<const GPUVertexAttribute> attributes, std::uint32_t stride,
                                     GPUPixelFormat colorFormat, std::string_view label)
    : device_(std::move(device)), colorFormat_(colorFormat) {
    auto& vulkan = device_->vulkan();
    if (!vulkan.canDraw())
        throw Error(localized("error.gpu.cannot_draw"), std::string(gpuErrorDomain), VK_ERROR_FEATURE_NOT_PRESENT);
    // The plan does not depend on the size.
    const auto format = vulkan.plan(colorFormat, 1, 1, GPUTextureUsage::renderTarget).format;
    vulkan_ = std::make_unique<VulkanRenderPipeline>(vulkan, vertexFunction, fragmentFunction, attributes, stride,
                                                     format, label);
}

GPURenderPipeline::~GPURenderPipeline() = default;

} // namespace panoveer
