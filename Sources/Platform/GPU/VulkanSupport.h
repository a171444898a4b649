#pragma once

// Private to this folder: what turns Vulkan's C interface into owned handles and errors.

#include <vulkan/vulkan.h>

#include <string_view>
#include <utility>

namespace panoveer {

// "VK_ERROR_DEVICE_LOST", …
std::string_view resultName(VkResult result);

// Throws Error (gpuErrorDomain, the result as code) unless the call succeeded. `activity` completes "could not …".
void check(VkResult result, std::string_view activity);

// A handle that belongs to a device, destroyed with the value. The device must outlive it.
template<class Handle, auto destroy>
class DeviceHandle {
public:
    DeviceHandle() = default;
    DeviceHandle(VkDevice device, Handle handle) : device_(device), handle_(handle) {}
    DeviceHandle(DeviceHandle&& other) noexcept
        : device_(other.device_), handle_(std::exchange(other.handle_, VK_NULL_HANDLE)) {}
    DeviceHandle& operator=(DeviceHandle&& other) noexcept {
        std::swap(device_, other.device_);
        std::swap(handle_, other.handle_);
        return *this;
    }
    ~DeviceHandle() {
        if (handle_ != VK_NULL_HANDLE)
            destroy(device_, handle_, nullptr);
    }

    Handle get() const { return handle_; }

private:
    VkDevice device_ = VK_NULL_HANDLE;
    Handle handle_ = VK_NULL_HANDLE;
};

using OwnedCommandPool = DeviceHandle<VkCommandPool, vkDestroyCommandPool>;
using OwnedDescriptorPool = DeviceHandle<VkDescriptorPool, vkDestroyDescriptorPool>;
using OwnedDescriptorSetLayout = DeviceHandle<VkDescriptorSetLayout, vkDestroyDescriptorSetLayout>;
using OwnedFence = DeviceHandle<VkFence, vkDestroyFence>;
using OwnedFramebuffer = DeviceHandle<VkFramebuffer, vkDestroyFramebuffer>;
using OwnedImageView = DeviceHandle<VkImageView, vkDestroyImageView>;
using OwnedPipeline = DeviceHandle<VkPipeline, vkDestroyPipeline>;
using OwnedPipelineLayout = DeviceHandle<VkPipelineLayout, vkDestroyPipelineLayout>;
using OwnedRenderPass = DeviceHandle<VkRenderPass, vkDestroyRenderPass>;
using OwnedSemaphore = DeviceHandle<VkSemaphore, vkDestroySemaphore>;
using OwnedShaderModule = DeviceHandle<VkShaderModule, vkDestroyShaderModule>;

// Calls vkCreate… and owns what it made.
template<class Owned, class Info, class Create>
Owned makeOwned(VkDevice device, Create create, const Info& info, std::string_view activity) {
    decltype(std::declval<Owned>().get()) handle = VK_NULL_HANDLE;
    check(create(device, &info, nullptr, &handle), activity);
    return Owned(device, handle);
}

} // namespace panoveer
