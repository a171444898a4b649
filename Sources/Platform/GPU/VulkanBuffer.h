#pragma once

#include "Platform/GPU/VulkanDevice.h"

#include <cstddef>
#include <span>
#include <string_view>

namespace panoveer {

// A vertex or index buffer in memory that the processor writes and the device reads.
class VulkanBuffer {
public:
    // Throws Error.
    VulkanBuffer(VulkanDevice& device, std::span<const std::byte> bytes, std::string_view label);
    ~VulkanBuffer();
    VulkanBuffer(const VulkanBuffer&) = delete;
    VulkanBuffer& operator=(const VulkanBuffer&) = delete;

    VkBuffer get() const { return buffer_; }

private:
    VulkanDevice& device_;
    VkBuffer buffer_ = VK_NULL_HANDLE;
    VmaAllocation allocation_ = VK_NULL_HANDLE;
};

} // namespace panoveer
