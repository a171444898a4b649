#include "Platform/GPU/GPUCommandQueue.h"

#include "Platform/Core/Error.h"
#include "Platform/GPU/GPUCommandBuffer.h"
#include "Platform/GPU/GPUDevice.h"
#include "Platform/GPU/VulkanCommandQueue.h"

namespace panoveer {

namespace {

// Enough for every kernel of a picture; a command buffer with more work gets further pools.
constexpr std::uint32_t setsPerPool = 8;
constexpr std::uint32_t texturesPerPool = 32;

CommandLane makeLane(VkDevice device, std::uint32_t family) {
    CommandLane lane;
    lane.pool = makeOwned<OwnedCommandPool>(device, vkCreateCommandPool,
                                            VkCommandPoolCreateInfo{.sType = VK_STRUCTURE_TYPE_COMMAND_POOL_CREATE_INFO,
                                                                    .flags = VK_COMMAND_POOL_CREATE_TRANSIENT_BIT,
                                                                    .queueFamilyIndex = family},
                                            "make a command pool");
    const VkCommandBufferAllocateInfo info{.sType = VK_STRUCTURE_TYPE_COMMAND_BUFFER_ALLOCATE_INFO,
                                           .commandPool = lane.pool.get(),
                                           .level = VK_COMMAND_BUFFER_LEVEL_PRIMARY,
                                           .commandBufferCount = 1};
    check(vkAllocateCommandBuffers(device, &info, &lane.commands), "make a command buffer");
    return lane;
}

OwnedDescriptorPool makeDescriptorPool(VkDevice device) {
    const VkDescriptorPoolSize sizes[] = {{VK_DESCRIPTOR_TYPE_SAMPLED_IMAGE, texturesPerPool},
                                          {VK_DESCRIPTOR_TYPE_STORAGE_IMAGE, texturesPerPool}};
    return makeOwned<OwnedDescriptorPool>(
        device, vkCreateDescriptorPool,
        VkDescriptorPoolCreateInfo{.sType = VK_STRUCTURE_TYPE_DESCRIPTOR_POOL_CREATE_INFO,
                                   .maxSets = setsPerPool,
                                   .poolSizeCount = std::uint32_t(std::size(sizes)),
                                   .pPoolSizes = sizes},
        "make a descriptor pool");
}

} // namespace

VkCommandBuffer CommandLane::open() {
    if (isRecording)
        return commands;
    const VkCommandBufferBeginInfo info{.sType = VK_STRUCTURE_TYPE_COMMAND_BUFFER_BEGIN_INFO,
                                        .flags = VK_COMMAND_BUFFER_USAGE_ONE_TIME_SUBMIT_BIT};
    check(vkBeginCommandBuffer(commands, &info), "record commands");
    isRecording = true;
    // What completed command buffers wrote is available; this makes it visible, without waiting for those in flight.
    const VkMemoryBarrier barrier{.sType = VK_STRUCTURE_TYPE_MEMORY_BARRIER,
                                  .dstAccessMask = VK_ACCESS_MEMORY_READ_BIT | VK_ACCESS_MEMORY_WRITE_BIT};
    vkCmdPipelineBarrier(commands, VK_PIPELINE_STAGE_TOP_OF_PIPE_BIT, VK_PIPELINE_STAGE_ALL_COMMANDS_BIT, 0, 1,
                         &barrier, 0, nullptr, 0, nullptr);
    return commands;
}

CommandContext::CommandContext(VulkanDevice& device, const VulkanLanes& lanes)
    : upload(makeLane(device.get(), lanes.upload->family)),
      compute(makeLane(device.get(), lanes.compute->family)),
      download(makeLane(device.get(), lanes.download->family)),
      device_(device) {
    for (auto& semaphore : laneFinished)
        semaphore = makeOwned<OwnedSemaphore>(device.get(), vkCreateSemaphore,
                                              VkSemaphoreCreateInfo{.sType = VK_STRUCTURE_TYPE_SEMAPHORE_CREATE_INFO},
                                              "make a semaphore");
    fence = makeOwned<OwnedFence>(device.get(), vkCreateFence,
                                  VkFenceCreateInfo{.sType = VK_STRUCTURE_TYPE_FENCE_CREATE_INFO}, "make a fence");
    descriptorPools_.push_back(makeDescriptorPool(device.get()));
}

VkDescriptorSet CommandContext::makeDescriptorSet(VkDescriptorSetLayout layout) {
    VkDescriptorSetAllocateInfo info{.sType = VK_STRUCTURE_TYPE_DESCRIPTOR_SET_ALLOCATE_INFO,
                                     .descriptorPool = descriptorPools_.back().get(),
                                     .descriptorSetCount = 1,
                                     .pSetLayouts = &layout};
    VkDescriptorSet set = VK_NULL_HANDLE;
    auto result = vkAllocateDescriptorSets(device_.get(), &info, &set);
    if (result == VK_ERROR_OUT_OF_POOL_MEMORY || result == VK_ERROR_FRAGMENTED_POOL) {
        info.descriptorPool = descriptorPools_.emplace_back(makeDescriptorPool(device_.get())).get();
        result = vkAllocateDescriptorSets(device_.get(), &info, &set);
    }
    check(result, "bind textures");
    return set;
}

void CommandContext::reset() {
    for (auto* lane : {&upload, &compute, &download}) {
        if (lane->isRecording)
            check(vkResetCommandPool(device_.get(), lane->pool.get(), 0), "reset commands");
        lane->isRecording = false;
    }
    descriptorPools_.resize(1);
    check(vkResetDescriptorPool(device_.get(), descriptorPools_.front().get(), 0), "reset descriptors");
    const VkFence handle = fence.get();
    check(vkResetFences(device_.get(), 1, &handle), "reset a fence");
}

std::unique_ptr<CommandContext> VulkanCommandQueue::acquire() {
    {
        std::lock_guard lock(mutex_);
        if (!idle_.empty()) {
            auto context = std::move(idle_.back());
            idle_.pop_back();
            return context;
        }
    }
    return std::make_unique<CommandContext>(device_, lanes_);
}

void VulkanCommandQueue::release(std::unique_ptr<CommandContext> context) noexcept {
    try {
        context->reset();
        std::lock_guard lock(mutex_);
        idle_.push_back(std::move(context));
    } catch (const std::exception&) {
        // A context that cannot be reset is dropped; the next command buffer makes its own.
    }
}

GPUCommandQueue::GPUCommandQueue(std::shared_ptr<GPUDevice> device)
    : device_(std::move(device)), vulkan_(std::make_shared<VulkanCommandQueue>(device_->vulkan())) {}

std::unique_ptr<GPUCommandBuffer> GPUCommandQueue::makeCommandBuffer() {
    return std::make_unique<GPUCommandBuffer>(device_, vulkan_);
}

} // namespace panoveer
