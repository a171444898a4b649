#include "Platform/GPU/GPUTexture.h"

#include "Platform/GPU/GPUDevice.h"
#include "Platform/GPU/VulkanTexture.h"

#include <stdexcept>

namespace panoveer {

std::string_view name(GPUPixelFormat format) {
    switch (format) {
    case GPUPixelFormat::bgra8Unorm: return "bgra8Unorm";
    case GPUPixelFormat::r8Unorm: return "r8Unorm";
    case GPUPixelFormat::rg8Unorm: return "rg8Unorm";
    case GPUPixelFormat::r16Unorm: return "r16Unorm";
    case GPUPixelFormat::rg16Unorm: return "rg16Unorm";
    case GPUPixelFormat::rgba16Float: return "rgba16Float";
    }
    return {};
}

VulkanTexture::VulkanTexture(VulkanDevice& device, GPUPixelFormat format, int width, int height, GPUTextureUsage usage,
                             std::string_view label)
    : device_(device), plan_(device.plan(format, width, height, usage)) {
    const auto& families = device.families();
    const VkImageCreateInfo info{.sType = VK_STRUCTURE_TYPE_IMAGE_CREATE_INFO,
                                 .imageType = VK_IMAGE_TYPE_2D,
                                 .format = plan_.format,
                                 .extent = {std::uint32_t(width), std::uint32_t(height), 1},
                                 .mipLevels = 1,
                                 .arrayLayers = 1,
                                 .samples = VK_SAMPLE_COUNT_1_BIT,
                                 .tiling = plan_.tiling,
                                 .usage = plan_.usage,
                                 .sharingMode =
                                     families.size() > 1 ? VK_SHARING_MODE_CONCURRENT : VK_SHARING_MODE_EXCLUSIVE,
                                 .queueFamilyIndexCount = families.size() > 1 ? std::uint32_t(families.size()) : 0,
                                 .pQueueFamilyIndices = families.data(),
                                 .initialLayout = VK_IMAGE_LAYOUT_UNDEFINED};
    VmaAllocationCreateInfo memory{.usage = VMA_MEMORY_USAGE_AUTO_PREFER_DEVICE};
    if (plan_.isMapped)
        memory.flags = VMA_ALLOCATION_CREATE_HOST_ACCESS_RANDOM_BIT | VMA_ALLOCATION_CREATE_MAPPED_BIT;
    VmaAllocationInfo made;
    check(vmaCreateImage(device.allocator(), &info, &memory, &image_, &allocation_, &made), "make a texture");
    try {
        device.setName(VK_OBJECT_TYPE_IMAGE, reinterpret_cast<std::uint64_t>(image_), label);
        const VkImageViewCreateInfo viewInfo{.sType = VK_STRUCTURE_TYPE_IMAGE_VIEW_CREATE_INFO,
                                             .image = image_,
                                             .viewType = VK_IMAGE_VIEW_TYPE_2D,
                                             .format = plan_.format,
                                             .subresourceRange = {VK_IMAGE_ASPECT_COLOR_BIT, 0, 1, 0, 1}};
        view_ = makeOwned<OwnedImageView>(device.get(), vkCreateImageView, viewInfo, "make a texture view");
        device.initializeLayout(image_);
    } catch (...) {
        vmaDestroyImage(device.allocator(), image_, allocation_);
        throw;
    }
    if (plan_.isMapped) {
        const VkImageSubresource whole{VK_IMAGE_ASPECT_COLOR_BIT, 0, 0};
        VkSubresourceLayout layout;
        vkGetImageSubresourceLayout(device.get(), image_, &whole, &layout);
        rows_ = static_cast<std::byte*>(made.pMappedData) + layout.offset;
        rowBytes_ = layout.rowPitch;
    }
}

VulkanTexture::~VulkanTexture() {
    view_ = {};
    vmaDestroyImage(device_.allocator(), image_, allocation_);
}

void VulkanTexture::flush() const { vmaFlushAllocation(device_.allocator(), allocation_, 0, VK_WHOLE_SIZE); }

void VulkanTexture::invalidate() const { vmaInvalidateAllocation(device_.allocator(), allocation_, 0, VK_WHOLE_SIZE); }

void VulkanTexture::beginUse(bool writes) {
    std::lock_guard lock(mutex_);
    if (isWritten_ || (writes && readers_ > 0))
        throw std::logic_error("a texture is written while another command buffer uses it");
    if (writes)
        isWritten_ = true;
    else
        ++readers_;
}

void VulkanTexture::endUse(bool writes) {
    std::lock_guard lock(mutex_);
    if (writes)
        isWritten_ = false;
    else
        --readers_;
}

std::shared_ptr<GPUTexture> GPUTexture::make(std::shared_ptr<GPUDevice> device, GPUPixelFormat format, int width,
                                             int height, GPUTextureUsage usage, std::string_view label) {
    return std::shared_ptr<GPUTexture>(new GPUTexture(std::move(device), format, width, height, usage, label));
}

GPUTexture::GPUTexture(std::shared_ptr<GPUDevice> device, GPUPixelFormat format, int width, int height,
                       GPUTextureUsage usage, std::string_view label)
    : device_(std::move(device)),
      format_(format),
      usage_(usage),
      width_(width),
      height_(height),
      vulkan_(std::make_unique<VulkanTexture>(device_->vulkan(), format, width, height, usage, label)) {}

GPUTexture::~GPUTexture() = default;

} // namespace panoveer
