#pragma once

#include "Platform/GPU/GPUDevice.h"
#include "Platform/GPU/VulkanSupport.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <vector>

namespace panoveer {

// A device that could be used, before it is.
struct VulkanCandidate {
    VkPhysicalDevice device = VK_NULL_HANDLE;
    std::uint32_t computeFamily = 0;
    bool canDraw = false; // the family has graphics as well
    GPUDeviceDescription description;
};

// The connection to Vulkan's loader, with the validation layer when it was asked for.
class VulkanInstance {
public:
    // Null when this machine has no Vulkan driver at all.
    static std::unique_ptr<VulkanInstance> make();
    ~VulkanInstance();
    VulkanInstance(const VulkanInstance&) = delete;
    VulkanInstance& operator=(const VulkanInstance&) = delete;

    VkInstance get() const { return instance_; }

    // Those that can run the program's kernels, the preferred one first.
    std::vector<VulkanCandidate> candidates() const;

    bool isValidated() const { return messenger_ != VK_NULL_HANDLE; }
    std::uint64_t validationMessageCount() const { return messageCount_; }

    // Names an object in debuggers and in messages of the validation layer.
    void setName(VkDevice device, VkObjectType type, std::uint64_t handle, const char* name) const;

private:
    VulkanInstance() = default;
    void startValidation();

    VkInstance instance_ = VK_NULL_HANDLE;
    VkDebugUtilsMessengerEXT messenger_ = VK_NULL_HANDLE;
    PFN_vkSetDebugUtilsObjectNameEXT setObjectName_ = nullptr;
    std::atomic<std::uint64_t> messageCount_ = 0;
};

} // namespace panoveer
