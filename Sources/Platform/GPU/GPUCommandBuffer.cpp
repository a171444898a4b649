#include "Platform/GPU/GPUCommandBuffer.h"

#include "Platform/GPU/GPUComputePipeline.h"
#include "Platform/GPU/GPUDevice.h"
#include "Platform/GPU/GPUTexture.h"
#include "Platform/GPU/VulkanCommandQueue.h"
#include "Platform/GPU/VulkanComputePipeline.h"
#include "Platform/GPU/VulkanTexture.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>
#include <vector>

namespace panoveer {

namespace {

struct Rows {
    std::byte* bytes;
    std::size_t rowBytes;
};
struct ConstantRows {
    const std::byte* bytes;
    std::size_t rowBytes;
};

// Pixels of four bytes with the first and the third exchanged.
void copyPixelsSwapped(std::byte* to, const std::byte* from, int width) {
    for (int x = 0; x < width; ++x) {
        std::uint32_t pixel;
        std::memcpy(&pixel, from + std::size_t(x) * 4, sizeof pixel);
        pixel = (pixel & 0xff00ff00) | (pixel & 0xff) << 16 | (pixel >> 16 & 0xff);
        std::memcpy(to + std::size_t(x) * 4, &pixel, sizeof pixel);
    }
}

void copyPicture(const GPUTexture& texture, Rows to, ConstantRows from) {
    const auto width = std::size_t(texture.width()) * bytesPerPixel(texture.format());
    const auto height = std::size_t(texture.height());
    if (texture.vulkan().swapsRedAndBlue()) {
        for (std::size_t y = 0; y < height; ++y)
            copyPixelsSwapped(to.bytes + y * to.rowBytes, from.bytes + y * from.rowBytes, texture.width());
    } else if (to.rowBytes == width && from.rowBytes == width) {
        std::memcpy(to.bytes, from.bytes, width * height);
    } else {
        for (std::size_t y = 0; y < height; ++y)
            std::memcpy(to.bytes + y * to.rowBytes, from.bytes + y * from.rowBytes, width);
    }
}

std::size_t tightRowBytes(const GPUTexture& texture) {
    return std::size_t(texture.width()) * bytesPerPixel(texture.format());
}

VkBufferImageCopy wholePicture(const GPUTexture& texture) {
    return {.imageSubresource = {VK_IMAGE_ASPECT_COLOR_BIT, 0, 0, 1},
            .imageExtent = {std::uint32_t(texture.width()), std::uint32_t(texture.height()), 1}};
}

void memoryBarrier(VkCommandBuffer commands, VkPipelineStageFlags from, VkAccessFlags written, VkPipelineStageFlags to,
                   VkAccessFlags used) {
    const VkMemoryBarrier barrier{
        .sType = VK_STRUCTURE_TYPE_MEMORY_BARRIER, .srcAccessMask = written, .dstAccessMask = used};
    vkCmdPipelineBarrier(commands, from, to, 0, 1, &barrier, 0, nullptr, 0, nullptr);
}

} // namespace

struct GPUCommandBuffer::Recording {
    enum class State { recording, committed, completed };

    struct Use {
        std::shared_ptr<GPUTexture> texture;
        bool writes;
    };

    struct Download {
        GPUTexture* texture;
        const StagingBuffer* staging; // null: the texture itself is mapped
        Rows rows;
    };

    Recording(std::shared_ptr<GPUDevice> gpu, std::shared_ptr<VulkanCommandQueue> commandQueue)
        : device(std::move(gpu)), queue(std::move(commandQueue)), context(queue->acquire()) {}
    ~Recording() {
        waitForDevice();
        release();
    }

    void requireRecording() const {
        if (state != State::recording)
            throw std::logic_error("a committed command buffer cannot be recorded into");
    }
    void use(const std::shared_ptr<GPUTexture>& texture, bool writes);
    StagingBuffer& makeStaging(StagingBuffer::Direction direction, const GPUTexture& texture);
    VkDescriptorSet bind(const VulkanComputePipeline& pipeline, std::span<const std::shared_ptr<GPUTexture>> textures);
    void finishLanes();
    void submitLanes();
    void waitForDevice();
    void fillDownloads();
    void release();

    std::shared_ptr<GPUDevice> device;
    std::shared_ptr<VulkanCommandQueue> queue;
    std::unique_ptr<CommandContext> context; // null when completed
    State state = State::recording;
    std::vector<Use> uses;
    std::vector<std::shared_ptr<GPUComputePipeline>> pipelines;
    std::vector<std::unique_ptr<StagingBuffer>> staging;
    std::vector<Download> downloads;
    std::optional<Error> error;
};

void GPUCommandBuffer::Recording::use(const std::shared_ptr<GPUTexture>& texture, bool writes) {
    const auto found = std::ranges::find(uses, texture, &Use::texture);
    if (found == uses.end()) {
        texture->vulkan().beginUse(writes);
        uses.push_back({texture, writes});
    } else if (writes && !found->writes) {
        texture->vulkan().endUse(false);
        found->writes = false;
        try {
            texture->vulkan().beginUse(true);
        } catch (...) {
            texture->vulkan().beginUse(false);
            throw;
        }
        found->writes = true;
    }
}

StagingBuffer& GPUCommandBuffer::Recording::makeStaging(StagingBuffer::Direction direction, const GPUTexture& texture) {
    const auto size = tightRowBytes(texture) * std::size_t(texture.height());
    return *staging.emplace_back(device->vulkan().staging().acquire(direction, size));
}

VkDescriptorSet GPUCommandBuffer::Recording::bind(const VulkanComputePipeline& pipeline,
                                                  std::span<const std::shared_ptr<GPUTexture>> textures) {
    const auto& bindings = pipeline.reflection().textures;
    const auto set = context->makeDescriptorSet(pipeline.setLayout());
    std::vector<VkDescriptorImageInfo> images(bindings.size());
    std::vector<VkWriteDescriptorSet> writes(bindings.size());
    for (std::size_t i = 0; i < bindings.size(); ++i) {
        const auto [binding, isStorage] = bindings[i];
        if (binding >= textures.size() || !textures[binding])
            throw std::logic_error("a kernel misses a texture");
        const auto& texture = textures[binding];
        if (texture->usage() == (isStorage ? GPUTextureUsage::shaderRead : GPUTextureUsage::shaderWrite))
            throw std::logic_error("a texture was not made for what a kernel does with it");
        use(texture, isStorage);
        images[i] = {.imageView = texture->vulkan().view(), .imageLayout = VK_IMAGE_LAYOUT_GENERAL};
        writes[i] = {.sType = VK_STRUCTURE_TYPE_WRITE_DESCRIPTOR_SET,
                     .dstSet = set,
                     .dstBinding = binding,
                     .descriptorCount = 1,
                     .descriptorType = isStorage ? VK_DESCRIPTOR_TYPE_STORAGE_IMAGE : VK_DESCRIPTOR_TYPE_SAMPLED_IMAGE,
                     .pImageInfo = &images[i]};
    }
    vkUpdateDescriptorSets(device->vulkan().get(), std::uint32_t(writes.size()), writes.data(), 0, nullptr);
    return set;
}

// Closes what was opened. On one queue barriers order the lanes; between queues semaphores do.
void GPUCommandBuffer::Recording::finishLanes() {
    constexpr auto kernel = VK_PIPELINE_STAGE_COMPUTE_SHADER_BIT;
    constexpr auto transfer = VK_PIPELINE_STAGE_TRANSFER_BIT;
    const bool isOneQueue = !queue->lanes().areSeparate;
    if (context->upload.isRecording) {
        if (isOneQueue)
            memoryBarrier(context->upload.commands, transfer, VK_ACCESS_TRANSFER_WRITE_BIT, kernel | transfer,
                          VK_ACCESS_SHADER_READ_BIT | VK_ACCESS_SHADER_WRITE_BIT | VK_ACCESS_TRANSFER_READ_BIT);
        check(vkEndCommandBuffer(context->upload.commands), "record uploads");
    }
    if (context->compute.isRecording) {
        // Mapped textures are read by the processor as they are.
        memoryBarrier(context->compute.commands, kernel, VK_ACCESS_SHADER_WRITE_BIT,
                      VK_PIPELINE_STAGE_HOST_BIT | (isOneQueue ? VkPipelineStageFlags(transfer) : 0u),
                      VK_ACCESS_HOST_READ_BIT | (isOneQueue ? VkAccessFlags(VK_ACCESS_TRANSFER_READ_BIT) : 0u));
        check(vkEndCommandBuffer(context->compute.commands), "record kernels");
    }
    if (context->download.isRecording) {
        memoryBarrier(context->download.commands, transfer, VK_ACCESS_TRANSFER_WRITE_BIT, VK_PIPELINE_STAGE_HOST_BIT,
                      VK_ACCESS_HOST_READ_BIT);
        check(vkEndCommandBuffer(context->download.commands), "record downloads");
    }
}

void GPUCommandBuffer::Recording::submitLanes() {
    struct Submission {
        VulkanQueue* queue;
        std::vector<VkCommandBuffer> commands;
    };
    const auto& lanes = queue->lanes();
    std::vector<Submission> submissions;
    const auto add = [&](VulkanQueue* to, const CommandLane& lane) {
        if (!lane.isRecording)
            return;
        if (submissions.empty() || lanes.areSeparate)
            submissions.push_back({to, {}});
        submissions.back().commands.push_back(lane.commands);
    };
    add(lanes.upload, context->upload);
    add(lanes.compute, context->compute);
    add(lanes.download, context->download);

    const VkPipelineStageFlags everything = VK_PIPELINE_STAGE_ALL_COMMANDS_BIT;
    for (std::size_t i = 0; i < submissions.size(); ++i) {
        const bool isFirst = i == 0;
        const bool isLast = i + 1 == submissions.size();
        const VkSemaphore before = isFirst ? VK_NULL_HANDLE : context->laneFinished[i - 1].get();
        const VkSemaphore after = isLast ? VK_NULL_HANDLE : context->laneFinished[i].get();
        const VkSubmitInfo info{.sType = VK_STRUCTURE_TYPE_SUBMIT_INFO,
                                .waitSemaphoreCount = isFirst ? 0u : 1u,
                                .pWaitSemaphores = &before,
                                .pWaitDstStageMask = &everything,
                                .commandBufferCount = std::uint32_t(submissions[i].commands.size()),
                                .pCommandBuffers = submissions[i].commands.data(),
                                .signalSemaphoreCount = isLast ? 0u : 1u,
                                .pSignalSemaphores = &after};
        const auto result = submissions[i].queue->submit(info, isLast ? context->fence.get() : VK_NULL_HANDLE);
        if (result != VK_SUCCESS) {
            for (std::size_t submitted = 0; submitted < i; ++submitted)
                submissions[submitted].queue->waitIdle();
            context.reset(); // its semaphores may be left signalled
            check(result, "submit commands");
        }
    }
    state = submissions.empty() ? State::completed : State::committed;
}

void GPUCommandBuffer::Recording::waitForDevice() {
    if (state != State::committed)
        return;
    state = State::completed;
    const VkFence fence = context->fence.get();
    const auto result = vkWaitForFences(device->vulkan().get(), 1, &fence, VK_TRUE, UINT64_MAX);
    if (result == VK_SUCCESS)
        return;
    context.reset();
    try {
        check(result, "finish commands");
    } catch (const Error& failure) {
        error = failure;
    }
}

void GPUCommandBuffer::Recording::fillDownloads() {
    for (const auto& download : downloads) {
        const auto& texture = download.texture->vulkan();
        if (download.staging) {
            download.staging->invalidate();
            copyPicture(*download.texture, download.rows,
                        {download.staging->bytes(), tightRowBytes(*download.texture)});
        } else {
            texture.invalidate();
            copyPicture(*download.texture, download.rows, {texture.rows(), texture.rowBytes()});
        }
    }
}

void GPUCommandBuffer::Recording::release() {
    state = State::completed;
    downloads.clear();
    for (const auto& [texture, writes] : uses)
        texture->vulkan().endUse(writes);
    uses.clear();
    pipelines.clear();
    for (auto& buffer : staging)
        device->vulkan().staging().release(std::move(buffer));
    staging.clear();
    if (context)
        queue->release(std::move(context));
}

GPUCommandBuffer::GPUCommandBuffer(std::shared_ptr<GPUDevice> device, std::shared_ptr<VulkanCommandQueue> queue)
    : recording_(std::make_unique<Recording>(std::move(device), std::move(queue))) {}

GPUCommandBuffer::~GPUCommandBuffer() = default;

void GPUCommandBuffer::upload(const std::shared_ptr<GPUTexture>& texture, const std::byte* rows, std::size_t rowBytes) {
    recording_->requireRecording();
    recording_->use(texture, true);
    const auto& vulkan = texture->vulkan();
    if (vulkan.isMapped()) {
        copyPicture(*texture, {vulkan.rows(), vulkan.rowBytes()}, {rows, rowBytes});
        vulkan.flush();
        return;
    }
    const auto& staging = recording_->makeStaging(StagingBuffer::Direction::upload, *texture);
    copyPicture(*texture, {staging.bytes(), tightRowBytes(*texture)}, {rows, rowBytes});
    staging.flush();
    const auto region = wholePicture(*texture);
    vkCmdCopyBufferToImage(recording_->context->upload.open(), staging.get(), vulkan.image(), VK_IMAGE_LAYOUT_GENERAL,
                           1, &region);
}

void GPUCommandBuffer::dispatch(const std::shared_ptr<GPUComputePipeline>& pipeline,
                                std::span<const std::shared_ptr<GPUTexture>> textures,
                                std::span<const std::byte> constants, int gridWidth, int gridHeight) {
    recording_->requireRecording();
    if (constants.size() > maximumConstantBytes || constants.size() % 4 != 0)
        throw std::logic_error("a kernel's constants are too large");
    const auto& vulkan = pipeline->vulkan();
    const auto set = recording_->bind(vulkan, textures);
    auto& lane = recording_->context->compute;
    constexpr auto kernel = VK_PIPELINE_STAGE_COMPUTE_SHADER_BIT;
    if (lane.isRecording)
        memoryBarrier(lane.commands, kernel, VK_ACCESS_SHADER_WRITE_BIT, kernel,
                      VK_ACCESS_SHADER_READ_BIT | VK_ACCESS_SHADER_WRITE_BIT);
    const auto commands = lane.open();
    vkCmdBindPipeline(commands, VK_PIPELINE_BIND_POINT_COMPUTE, vulkan.get());
    vkCmdBindDescriptorSets(commands, VK_PIPELINE_BIND_POINT_COMPUTE, vulkan.layout(), 0, 1, &set, 0, nullptr);
    if (!constants.empty())
        vkCmdPushConstants(commands, vulkan.layout(), VK_SHADER_STAGE_COMPUTE_BIT, 0, std::uint32_t(constants.size()),
                           constants.data());
    const auto groups = [](int count, std::uint32_t size) { return (std::uint32_t(count) + size - 1) / size; };
    const auto& groupSize = vulkan.reflection().groupSize;
    vkCmdDispatch(commands, groups(gridWidth, groupSize[0]), groups(gridHeight, groupSize[1]), 1);
    recording_->pipelines.push_back(pipeline);
}

void GPUCommandBuffer::download(const std::shared_ptr<GPUTexture>& texture, std::byte* rows, std::size_t rowBytes) {
    recording_->requireRecording();
    recording_->use(texture, false);
    const StagingBuffer* staging = nullptr;
    if (!texture->vulkan().isMapped()) {
        staging = &recording_->makeStaging(StagingBuffer::Direction::download, *texture);
        const auto region = wholePicture(*texture);
        vkCmdCopyImageToBuffer(recording_->context->download.open(), texture->vulkan().image(), VK_IMAGE_LAYOUT_GENERAL,
                               staging->get(), 1, &region);
    }
    recording_->downloads.push_back({texture.get(), staging, {rows, rowBytes}});
}

void GPUCommandBuffer::commit() {
    recording_->requireRecording();
    try {
        recording_->finishLanes();
        recording_->submitLanes();
    } catch (const Error& failure) {
        recording_->error = failure;
        recording_->state = Recording::State::completed;
    }
}

void GPUCommandBuffer::waitUntilCompleted() {
    if (recording_->state == Recording::State::recording)
        throw std::logic_error("a command buffer is waited for before it is committed");
    recording_->waitForDevice();
    if (!recording_->error)
        recording_->fillDownloads();
    recording_->release();
}

const std::optional<Error>& GPUCommandBuffer::error() const { return recording_->error; }

} // namespace panoveer
