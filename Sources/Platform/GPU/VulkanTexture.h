#pragma once

#include "Platform/GPU/VulkanDevice.h"

#include <mutex>
#include <string_view>

namespace panoveer {

// A texture's image, and who uses it at the moment.
class VulkanTexture {
public:
    // Throws Error.
    VulkanTexture(VulkanDevice& device, GPUPixelFormat format, int width, int height, GPUTextureUsage usage,
                  std::string_view label);
    ~VulkanTexture();
    VulkanTexture(const VulkanTexture&) = delete;
    VulkanTexture& operator=(const VulkanTexture&) = delete;

    VkImage image() const { return image_; }
    VkImageView view() const { return view_.get(); }
    bool isMapped() const { return plan_.isMapped; }
    bool swapsRedAndBlue() const { return plan_.swapsRedAndBlue; }

    // Of a mapped texture.
    std::byte* rows() const { return rows_; }
    std::size_t rowBytes() const { return rowBytes_; }
    void flush() const;
    void invalidate() const;

    // A command buffer announces what it will do with the texture, and takes it back when it is done. Throws
    // std::logic_error when that collides with another one that is not done.
    void beginUse(bool writes);
    void endUse(bool writes);

private:
    VulkanDevice& device_;
    VulkanFormatPlan plan_;
    VkImage image_ = VK_NULL_HANDLE;
    VmaAllocation allocation_ = VK_NULL_HANDLE;
    OwnedImageView view_;
    std::byte* rows_ = nullptr;
    std::size_t rowBytes_ = 0;
    std::mutex mutex_;
    int readers_ = 0;        // guarded by mutex_
    bool isWritten_ = false; // guarded by mutex_
};

} // namespace panoveer
