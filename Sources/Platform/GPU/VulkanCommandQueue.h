#pragma once

#include "Platform/GPU/VulkanDevice.h"

#include <cstddef>
#include <memory>
#include <mutex>
#include <vector>

namespace panoveer {

// One of the three parts of a command buffer.
struct CommandLane {
    OwnedCommandPool pool;
    VkCommandBuffer commands = VK_NULL_HANDLE;
    bool isRecording = false;

    // The commands, opened on first use. Throws Error.
    VkCommandBuffer open();
};

// What recording and running one command buffer takes. Used again and again, since making it costs more than a
// picture's commands do.
class CommandContext {
public:
    // Throws Error.
    CommandContext(VulkanDevice& device, const VulkanLanes& lanes);

    // Throws Error.
    VkDescriptorSet makeDescriptorSet(VkDescriptorSetLayout layout);
    // After the device is done with it. Throws Error.
    void reset();

    CommandLane upload;
    CommandLane compute;
    CommandLane download;
    OwnedSemaphore laneFinished[2]; // the first and the second lane in use
    OwnedFence fence;

private:
    VulkanDevice& device_;
    std::vector<OwnedDescriptorPool> descriptorPools_; // the last one is being filled
};

// Lanes and the contexts that run on them. Safe from any thread.
class VulkanCommandQueue {
public:
    explicit VulkanCommandQueue(VulkanDevice& device) : device_(device), lanes_(device.nextLanes()) {}

    VulkanDevice& device() const { return device_; }
    const VulkanLanes& lanes() const { return lanes_; }

    // Throws Error.
    std::unique_ptr<CommandContext> acquire();
    // A context that the device no longer uses.
    void release(std::unique_ptr<CommandContext> context) noexcept;

private:
    VulkanDevice& device_;
    VulkanLanes lanes_;
    std::mutex mutex_;
    std::vector<std::unique_ptr<CommandContext>> idle_; // guarded by mutex_
};

} // namespace panoveer
