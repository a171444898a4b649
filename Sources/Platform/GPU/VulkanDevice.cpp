#include "Platform/GPU/VulkanDevice.h"

#include "Platform/Core/Error.h"
#include "Platform/Core/Localization.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <string>

namespace panoveer {

namespace {

// One for each thing that may use the GPU at a time: preview, dome, live output, export.
constexpr std::uint32_t maximumComputeQueues = 4;
constexpr std::uint32_t maximumTransferQueues = 2;

struct QueueFamilyChoice {
    std::uint32_t family = 0;
    std::uint32_t count = 0; // 0: there is no such family
};

// Copy engines: a family that does nothing else.
QueueFamilyChoice transferFamily(const std::vector<VkQueueFamilyProperties>& families) {
    constexpr VkQueueFlags meaningful = VK_QUEUE_GRAPHICS_BIT | VK_QUEUE_COMPUTE_BIT | VK_QUEUE_TRANSFER_BIT |
                                        VK_QUEUE_VIDEO_DECODE_BIT_KHR | VK_QUEUE_VIDEO_ENCODE_BIT_KHR |
                                        VK_QUEUE_OPTICAL_FLOW_BIT_NV;
    for (std::uint32_t family = 0; family < families.size(); ++family)
        if ((families[family].queueFlags & meaningful) == VK_QUEUE_TRANSFER_BIT)
            return {family, std::min(families[family].queueCount, maximumTransferQueues)};
    return {};
}

VkFormat vulkanFormat(GPUPixelFormat format) {
    switch (format) {
    case GPUPixelFormat::bgra8Unorm: return VK_FORMAT_B8G8R8A8_UNORM;
    case GPUPixelFormat::r8Unorm: return VK_FORMAT_R8_UNORM;
    case GPUPixelFormat::rg8Unorm: return VK_FORMAT_R8G8_UNORM;
    case GPUPixelFormat::r16Unorm: return VK_FORMAT_R16_UNORM;
    case GPUPixelFormat::rg16Unorm: return VK_FORMAT_R16G16_UNORM;
    case GPUPixelFormat::rgba16Float: return VK_FORMAT_R16G16B16A16_SFLOAT;
    }
    return VK_FORMAT_UNDEFINED;
}

VkImageUsageFlags vulkanUsage(GPUTextureUsage usage) {
    VkImageUsageFlags flags = VK_IMAGE_USAGE_TRANSFER_SRC_BIT | VK_IMAGE_USAGE_TRANSFER_DST_BIT;
    if (isReadByShaders(usage))
        flags |= VK_IMAGE_USAGE_SAMPLED_BIT;
    if (isWrittenByShaders(usage))
        flags |= VK_IMAGE_USAGE_STORAGE_BIT;
    if (usage == GPUTextureUsage::renderTarget)
        flags |= VK_IMAGE_USAGE_COLOR_ATTACHMENT_BIT;
    return flags;
}

} // namespace

VkResult VulkanQueue::submit(const VkSubmitInfo& info, VkFence fence) {
    std::lock_guard lock(mutex);
    return vkQueueSubmit(handle, 1, &info, fence);
}

void VulkanQueue::waitIdle() {
    std::lock_guard lock(mutex);
    vkQueueWaitIdle(handle);
}

VulkanDevice::VulkanDevice(std::unique_ptr<VulkanInstance> instance, const VulkanCandidate& candidate)
    : instance_(std::move(instance)),
      physical_(candidate.device),
      computeFamily_(candidate.computeFamily),
      canDraw_(candidate.canDraw),
      isSoftware_(candidate.description.isSoftware),
      mapsTextures_(isSoftware_) {
    makeDevice();
    try {
        makeAllocator();
    } catch (...) {
        vkDestroyDevice(device_, nullptr);
        throw;
    }
    staging_ = std::make_unique<StagingPool>(allocator_);
    setName(VK_OBJECT_TYPE_DEVICE, reinterpret_cast<std::uint64_t>(device_), "Panoveer");
}

VulkanDevice::~VulkanDevice() {
    vkDeviceWaitIdle(device_);
    staging_.reset();
    vmaDestroyAllocator(allocator_);
    vkDestroyDevice(device_, nullptr);
}

bool VulkanDevice::hasExtension(const char* name) const {
    std::uint32_t count = 0;
    vkEnumerateDeviceExtensionProperties(physical_, nullptr, &count, nullptr);
    std::vector<VkExtensionProperties> extensions(count);
    vkEnumerateDeviceExtensionProperties(physical_, nullptr, &count, extensions.data());
    return std::ranges::any_of(extensions,
                               [&](const auto& entry) { return std::strcmp(entry.extensionName, name) == 0; });
}

void VulkanDevice::makeDevice() {
    std::uint32_t familyCount = 0;
    vkGetPhysicalDeviceQueueFamilyProperties(physical_, &familyCount, nullptr);
    std::vector<VkQueueFamilyProperties> families(familyCount);
    vkGetPhysicalDeviceQueueFamilyProperties(physical_, &familyCount, families.data());

    const QueueFamilyChoice compute{computeFamily_,
                                    std::min(families[computeFamily_].queueCount, maximumComputeQueues)};
    const QueueFamilyChoice transfer = transferFamily(families);
    const std::array<float, maximumComputeQueues> priorities{1, 1, 1, 1};
    std::vector<VkDeviceQueueCreateInfo> queues;
    for (const auto& choice : {compute, transfer}) {
        if (choice.count == 0)
            continue;
        queues.push_back({.sType = VK_STRUCTURE_TYPE_DEVICE_QUEUE_CREATE_INFO,
                          .queueFamilyIndex = choice.family,
                          .queueCount = choice.count,
                          .pQueuePriorities = priorities.data()});
        families_.push_back(choice.family);
    }

    VkPhysicalDeviceFeatures available;
    vkGetPhysicalDeviceFeatures(physical_, &available);
    const VkPhysicalDeviceFeatures features{.shaderStorageImageExtendedFormats =
                                                available.shaderStorageImageExtendedFormats,
                                            .shaderStorageImageWriteWithoutFormat = VK_TRUE};
    std::vector<const char*> extensions;
    if (hasExtension(VK_EXT_MEMORY_BUDGET_EXTENSION_NAME))
        extensions.push_back(VK_EXT_MEMORY_BUDGET_EXTENSION_NAME);
    const VkDeviceCreateInfo info{.sType = VK_STRUCTURE_TYPE_DEVICE_CREATE_INFO,
                                  .queueCreateInfoCount = std::uint32_t(queues.size()),
                                  .pQueueCreateInfos = queues.data(),
                                  .enabledExtensionCount = std::uint32_t(extensions.size()),
                                  .ppEnabledExtensionNames = extensions.data(),
                                  .pEnabledFeatures = &features};
    check(vkCreateDevice(physical_, &info, nullptr, &device_), "start the device");

    const auto take = [&](const QueueFamilyChoice& choice, std::vector<std::unique_ptr<VulkanQueue>>& list) {
        for (std::uint32_t i = 0; i < choice.count; ++i) {
            auto& queue = *list.emplace_back(std::make_unique<VulkanQueue>());
            queue.family = choice.family;
            vkGetDeviceQueue(device_, choice.family, i, &queue.handle);
        }
    };
    take(compute, computeQueues_);
    take(transfer, transferQueues_);
}

void VulkanDevice::makeAllocator() {
    VmaAllocatorCreateInfo info{};
    if (hasExtension(VK_EXT_MEMORY_BUDGET_EXTENSION_NAME))
        info.flags = VMA_ALLOCATOR_CREATE_EXT_MEMORY_BUDGET_BIT;
    info.physicalDevice = physical_;
    info.device = device_;
    info.instance = instance_->get();
    info.vulkanApiVersion = VK_API_VERSION_1_2;
    check(vmaCreateAllocator(&info, &allocator_), "manage its memory");
}

VulkanLanes VulkanDevice::nextLanes() {
    auto* compute = computeQueues_[lanesHandedOut_++ % computeQueues_.size()].get();
    if (transferQueues_.empty())
        return {compute, compute, compute, separatesLanes_};
    return {transferQueues_.front().get(), compute, transferQueues_.back().get(), true};
}

// Kernels declare no format for what they write. Which formats may be written so is told since Vulkan 1.3; before,
// B, G, R, A is not among those that may.
bool VulkanDevice::writesWithoutFormat(VkFormat format, VkImageTiling tiling) const {
    if (std::ranges::contains(forbiddenStorage_, format))
        return false;
    VkPhysicalDeviceProperties properties;
    vkGetPhysicalDeviceProperties(physical_, &properties);
    if (properties.apiVersion < VK_API_VERSION_1_3)
        return format != VK_FORMAT_B8G8R8A8_UNORM;
    VkFormatProperties3 extended{.sType = VK_STRUCTURE_TYPE_FORMAT_PROPERTIES_3};
    VkFormatProperties2 query{.sType = VK_STRUCTURE_TYPE_FORMAT_PROPERTIES_2, .pNext = &extended};
    vkGetPhysicalDeviceFormatProperties2(physical_, format, &query);
    const auto features =
        tiling == VK_IMAGE_TILING_LINEAR ? extended.linearTilingFeatures : extended.optimalTilingFeatures;
    return features & VK_FORMAT_FEATURE_2_STORAGE_WRITE_WITHOUT_FORMAT_BIT;
}

bool VulkanDevice::supports(const VulkanFormatPlan& plan, int width, int height) const {
    VkImageFormatProperties properties;
    return vkGetPhysicalDeviceImageFormatProperties(physical_, plan.format, VK_IMAGE_TYPE_2D, plan.tiling, plan.usage,
                                                    0, &properties) == VK_SUCCESS &&
           std::uint32_t(width) <= properties.maxExtent.width && std::uint32_t(height) <= properties.maxExtent.height &&
           (!(plan.usage & VK_IMAGE_USAGE_STORAGE_BIT) || writesWithoutFormat(plan.format, plan.tiling));
}

VulkanFormatPlan VulkanDevice::plan(GPUPixelFormat format, int width, int height, GPUTextureUsage usage) const {
    VulkanFormatPlan wanted{.format = vulkanFormat(format), .usage = vulkanUsage(usage)};
    std::vector<VulkanFormatPlan> plans{wanted};
    if (format == GPUPixelFormat::bgra8Unorm) {
        wanted.format = VK_FORMAT_R8G8B8A8_UNORM;
        wanted.swapsRedAndBlue = true;
        plans.push_back(wanted);
    }
    for (auto plan : plans) {
        if (mapsTextures_ && usage != GPUTextureUsage::renderTarget) { // few devices draw into rows
            auto mapped = plan;
            mapped.tiling = VK_IMAGE_TILING_LINEAR;
            mapped.isMapped = true;
            if (supports(mapped, width, height))
                return mapped;
        }
        if (supports(plan, width, height))
            return plan;
    }
    throw Error(localized("error.gpu.texture_unsupported", name(format), std::to_string(width), std::to_string(height)),
                std::string(gpuErrorDomain), VK_ERROR_FORMAT_NOT_SUPPORTED);
}

void VulkanDevice::initializeLayout(VkImage image) {
    auto& queue = *computeQueues_.front();
    const auto pool = makeOwned<OwnedCommandPool>(
        device_, vkCreateCommandPool,
        VkCommandPoolCreateInfo{.sType = VK_STRUCTURE_TYPE_COMMAND_POOL_CREATE_INFO, .queueFamilyIndex = queue.family},
        "make a command pool");
    const auto fence = makeOwned<OwnedFence>(
        device_, vkCreateFence, VkFenceCreateInfo{.sType = VK_STRUCTURE_TYPE_FENCE_CREATE_INFO}, "make a fence");
    const VkCommandBufferAllocateInfo allocation{.sType = VK_STRUCTURE_TYPE_COMMAND_BUFFER_ALLOCATE_INFO,
                                                 .commandPool = pool.get(),
                                                 .level = VK_COMMAND_BUFFER_LEVEL_PRIMARY,
                                                 .commandBufferCount = 1};
    VkCommandBuffer commands = VK_NULL_HANDLE;
    check(vkAllocateCommandBuffers(device_, &allocation, &commands), "make a command buffer");
    const VkCommandBufferBeginInfo begin{.sType = VK_STRUCTURE_TYPE_COMMAND_BUFFER_BEGIN_INFO,
                                         .flags = VK_COMMAND_BUFFER_USAGE_ONE_TIME_SUBMIT_BIT};
    check(vkBeginCommandBuffer(commands, &begin), "record commands");
    const VkImageMemoryBarrier barrier{.sType = VK_STRUCTURE_TYPE_IMAGE_MEMORY_BARRIER,
                                       .oldLayout = VK_IMAGE_LAYOUT_UNDEFINED,
                                       .newLayout = VK_IMAGE_LAYOUT_GENERAL,
                                       .srcQueueFamilyIndex = VK_QUEUE_FAMILY_IGNORED,
                                       .dstQueueFamilyIndex = VK_QUEUE_FAMILY_IGNORED,
                                       .image = image,
                                       .subresourceRange = {VK_IMAGE_ASPECT_COLOR_BIT, 0, 1, 0, 1}};
    vkCmdPipelineBarrier(commands, VK_PIPELINE_STAGE_TOP_OF_PIPE_BIT, VK_PIPELINE_STAGE_BOTTOM_OF_PIPE_BIT, 0, 0,
                         nullptr, 0, nullptr, 1, &barrier);
    check(vkEndCommandBuffer(commands), "record commands");
    const VkSubmitInfo submission{
        .sType = VK_STRUCTURE_TYPE_SUBMIT_INFO, .commandBufferCount = 1, .pCommandBuffers = &commands};
    check(queue.submit(submission, fence.get()), "submit commands");
    const VkFence handle = fence.get();
    check(vkWaitForFences(device_, 1, &handle, VK_TRUE, UINT64_MAX), "initialise a texture");
}

VulkanDevice::MemoryUse VulkanDevice::memoryUse() const {
    VkPhysicalDeviceMemoryProperties properties;
    vkGetPhysicalDeviceMemoryProperties(physical_, &properties);
    std::array<VmaBudget, VK_MAX_MEMORY_HEAPS> budgets{};
    vmaGetHeapBudgets(allocator_, budgets.data());
    MemoryUse use;
    for (std::uint32_t heap = 0; heap < properties.memoryHeapCount; ++heap) {
        if (!(properties.memoryHeaps[heap].flags & VK_MEMORY_HEAP_DEVICE_LOCAL_BIT))
            continue;
        use.budget += budgets[heap].budget;
        // A device in software counts the whole machine's memory as its own.
        use.used += isSoftware_ ? budgets[heap].statistics.blockBytes : budgets[heap].usage;
    }
    return use;
}

void VulkanDevice::setName(VkObjectType type, std::uint64_t handle, std::string_view name) const {
    if (!name.empty())
        instance_->setName(device_, type, handle, std::string(name).c_str());
}

} // namespace panoveer
