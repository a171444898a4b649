#include "Platform/GPU/GPUBuffer.h"

#include "Platform/GPU/GPUDevice.h"
#include "Platform/GPU/VulkanBuffer.h"

#include <algorithm>
#include <cstring>

namespace panoveer {

VulkanBuffer::VulkanBuffer(VulkanDevice& device, std::span<const std::byte> bytes, std::string_view label)
    : device_(device) {
    const auto& families = device.families();
    const VkBufferCreateInfo info{
        .sType = VK_STRUCTURE_TYPE_BUFFER_CREATE_INFO,
        .size = std::max<VkDeviceSize>(bytes.size(), 4), // an empty mesh is drawn from a buffer too
        .usage = VK_BUFFER_USAGE_VERTEX_BUFFER_BIT | VK_BUFFER_USAGE_INDEX_BUFFER_BIT,
        .sharingMode = families.size() > 1 ? VK_SHARING_MODE_CONCURRENT : VK_SHARING_MODE_EXCLUSIVE,
        .queueFamilyIndexCount = families.size() > 1 ? std::uint32_t(families.size()) : 0,
        .pQueueFamilyIndices = families.data()};
    const VmaAllocationCreateInfo memory{.flags = VMA_ALLOCATION_CREATE_MAPPED_BIT |
                                                  VMA_ALLOCATION_CREATE_HOST_ACCESS_SEQUENTIAL_WRITE_BIT,
                                         .usage = VMA_MEMORY_USAGE_AUTO_PREFER_DEVICE};
    VmaAllocationInfo made;
    check(vmaCreateBuffer(device.allocator(), &info, &memory, &buffer_, &allocation_, &made), "make a buffer");
    if (!bytes.empty())
        std::memcpy(made.pMappedData, bytes.data(), bytes.size());
    vmaFlushAllocation(device.allocator(), allocation_, 0, VK_WHOLE_SIZE);
    device.setName(VK_OBJECT_TYPE_BUFFER, reinterpret_cast<std::uint64_t>(buffer_), label);
}

VulkanBuffer::~VulkanBuffer() { vmaDestroyBuffer(device_.allocator(), buffer_, allocation_); }

std::shared_ptr<GPUBuffer> GPUBuffer::make(std::shared_ptr<GPUDevice> device, std::span<const std::byte> bytes,
                                           std::string_view label) {
    return std::shared_ptr<GPUBuffer>(new GPUBuffer(std::move(device), bytes, label));
}

GPUBuffer::GPUBuffer(std::shared_ptr<GPUDevice> device, std::span<const std::byte> bytes, std::string_view label)
    : device_(std::move(device)),
      size_(bytes.size()),
      vulkan_(std::make_unique<VulkanBuffer>(device_->vulkan(), bytes, label)) {}

GPUBuffer::~GPUBuffer() = default;

} // namespace panoveer
