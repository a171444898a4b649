#pragma once

#include "Platform/GPU/GPUTexture.h"
#include "Platform/GPU/StagingPool.h"
#include "Platform/GPU/VulkanInstance.h"
#include "Platform/GPU/VulkanSupport.h"

#include <vk_mem_alloc.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <string_view>
#include <vector>

namespace panoveer {

// One of the device's queues, shared by whoever is given it.
struct VulkanQueue {
    VkQueue handle = VK_NULL_HANDLE;
    std::uint32_t family = 0;
    std::mutex mutex; // held around every use of the handle

    VkResult submit(const VkSubmitInfo& info, VkFence fence);
    void waitIdle();
};

// The queues of one GPUCommandQueue. Without copy engines all three are the same one.
struct VulkanLanes {
    VulkanQueue* upload = nullptr;
    VulkanQueue* compute = nullptr;
    VulkanQueue* download = nullptr;
    bool areSeparate = false; // submitted each for itself, with semaphores between them
};

// How a format of the program is held by this device.
struct VulkanFormatPlan {
    VkFormat format = VK_FORMAT_UNDEFINED;
    VkImageUsageFlags usage = 0;
    VkImageTiling tiling = VK_IMAGE_TILING_OPTIMAL;
    // The picture lies in memory that the processor reaches as well: no staging buffers, no copies.
    bool isMapped = false;
    // Stored as R, G, B, A on a device that cannot write B, G, R, A; transfers exchange the two.
    bool swapsRedAndBlue = false;
};

// The device, its queues and its memory.
class VulkanDevice {
public:
    // Throws Error.
    VulkanDevice(std::unique_ptr<VulkanInstance> instance, const VulkanCandidate& candidate);
    ~VulkanDevice();
    VulkanDevice(const VulkanDevice&) = delete;
    VulkanDevice& operator=(const VulkanDevice&) = delete;

    const VulkanInstance& instance() const { return *instance_; }
    VkDevice get() const { return device_; }
    VmaAllocator allocator() const { return allocator_; }
    // Whether its queues draw triangles; all of them run kernels.
    bool canDraw() const { return canDraw_; }
    StagingPool& staging() { return *staging_; }

    // Compute queues are handed out in turn; copy engines are shared.
    VulkanLanes nextLanes();
    // The families that textures are shared by: one, or two with copy engines.
    const std::vector<std::uint32_t>& families() const { return families_; }

    // Throws Error when the device cannot hold such a texture.
    VulkanFormatPlan plan(GPUPixelFormat format, int width, int height, GPUTextureUsage usage) const;

    // Makes another device of this one, so that each road through this layer can be tried on any machine: one whose
    // kernels cannot write a format, whose textures the processor does not reach, that has copy engines (which are the
    // compute queue in truth), or that does not draw. To be called before the first texture or queue is made.
    void forbidStorage(VkFormat format) { forbiddenStorage_.push_back(format); }
    void forbidMappedTextures() { mapsTextures_ = false; }
    void separateLanes() { separatesLanes_ = true; }
    void forbidDrawing() { canDraw_ = false; }

    // Fresh images leave the undefined layout here, once; afterwards all live in the general one.
    void initializeLayout(VkImage image);

    struct MemoryUse {
        std::uint64_t budget = 0;
        std::uint64_t used = 0;
    };
    // Of the heaps on the device.
    MemoryUse memoryUse() const;

    void setName(VkObjectType type, std::uint64_t handle, std::string_view name) const;

private:
    void makeDevice();
    void makeAllocator();
    bool hasExtension(const char* name) const;
    bool supports(const VulkanFormatPlan& plan, int width, int height) const;
    bool writesWithoutFormat(VkFormat format, VkImageTiling tiling) const;

    std::unique_ptr<VulkanInstance> instance_;
    VkPhysicalDevice physical_;
    std::uint32_t computeFamily_;
    bool canDraw_;
    bool isSoftware_;
    bool mapsTextures_; // copies within the processor's own memory are copies too many
    VkDevice device_ = VK_NULL_HANDLE;
    VmaAllocator allocator_ = VK_NULL_HANDLE;
    std::vector<std::unique_ptr<VulkanQueue>> computeQueues_;
    std::vector<std::unique_ptr<VulkanQueue>> transferQueues_; // none, one, or two: uploads and downloads
    std::vector<std::uint32_t> families_;
    std::vector<VkFormat> forbiddenStorage_;
    bool separatesLanes_ = false;
    std::atomic<std::uint32_t> lanesHandedOut_ = 0;
    std::unique_ptr<StagingPool> staging_;
};

} // namespace panoveer
