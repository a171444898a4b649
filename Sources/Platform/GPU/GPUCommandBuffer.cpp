#include "Platform/GPU/GPUCommandBuffer.h"

#include "Platform/GPU/GPUBuffer.h"
#include "Platform/GPU/GPUComputePipeline.h"
#include "Platform/GPU/GPUDevice.h"
#include "Platform/GPU/GPURenderPipeline.h"
#include "Platform/GPU/GPUTexture.h"
#include "Platform/GPU/VulkanBuffer.h"
#include "Platform/GPU/VulkanCommandQueue.h"
#include "Platform/GPU/VulkanComputePipeline.h"
#include "Platform/GPU/VulkanRenderPipeline.h"
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

void requireConstants(std::span<const std::byte> constants) {
    if (constants.size() > maximumConstantBytes || constants.size() % 4 != 0)
        throw std::logic_error("a function's constants are too large");
}

std::size_t tightRowBytes(const GPUTexture& texture) {
    return std::size_t(texture.width()) * bytesPerPixel(texture.format());
}

VkBufferImageCopy wholePicture(const GPUTexture& texture) {
    return {.imageSubresource = {VK_IMAGE_ASPECT_COLOR_BIT, 0, 0, 1},
            .imageExtent = {std::uint32_t(texture.width()), std::uint32_t(texture.height()), 1}};
}

// What kernels do with textures, and drawings where the device draws, as barriers name it.
struct ShaderWork {
    VkPipelineStageFlags stages = VK_PIPELINE_STAGE_COMPUTE_SHADER_BIT;
    VkAccessFlags writes = VK_ACCESS_SHADER_WRITE_BIT;
    VkAccessFlags all = VK_ACCESS_SHADER_READ_BIT | VK_ACCESS_SHADER_WRITE_BIT;

    explicit ShaderWork(bool canDraw) {
        if (!canDraw)
            return;
        stages |= VK_PIPELINE_STAGE_FRAGMENT_SHADER_BIT | VK_PIPELINE_STAGE_COLOR_ATTACHMENT_OUTPUT_BIT;
        writes |= VK_ACCESS_COLOR_ATTACHMENT_WRITE_BIT;
        all |= VK_ACCESS_COLOR_ATTACHMENT_READ_BIT | VK_ACCESS_COLOR_ATTACHMENT_WRITE_BIT;
    }
};

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
        : device(std::move(gpu)),
          queue(std::move(commandQueue)),
          context(queue->acquire()),
          work(device->vulkan().canDraw()) {}
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
    VkDescriptorSet bindTextures(const VulkanPipelineLayout& layout,
                                 std::span<const std::shared_ptr<GPUTexture>> textures);
    VkCommandBuffer beginWork();
    void bindArguments(VkCommandBuffer commands, VkPipelineBindPoint point, const VulkanPipelineLayout& layout,
                       VkDescriptorSet set, std::span<const std::byte> constants);
    VkFramebuffer makeFramebuffer(const VulkanRenderPipeline& pipeline, const GPUTexture& target);
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
    ShaderWork work;
    std::vector<std::shared_ptr<const void>> kept; // pipelines and buffers
    std::vector<OwnedFramebuffer> framebuffers;
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

VkDescriptorSet GPUCommandBuffer::Recording::bindTextures(const VulkanPipelineLayout& layout,
                                                          std::span<const std::shared_ptr<GPUTexture>> textures) {
    const auto& bindings = layout.reflection().textures;
    const auto set = context->makeDescriptorSet(layout.setLayout());
    std::vector<VkDescriptorImageInfo> images(bindings.size());
    std::vector<VkWriteDescriptorSet> writes(bindings.size());
    for (std::size_t i = 0; i < bindings.size(); ++i) {
        const auto [binding, isStorage] = bindings[i];
        if (binding >= textures.size() || !textures[binding])
            throw std::logic_error("a kernel misses a texture");
        const auto& texture = textures[binding];
        if (isStorage ? !isWrittenByShaders(texture->usage()) : !isReadByShaders(texture->usage()))
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

// The lane for the next dispatch or drawing, which sees what the earlier ones wrote.
VkCommandBuffer GPUCommandBuffer::Recording::beginWork() {
    auto& lane = context->compute;
    if (lane.isRecording)
        memoryBarrier(lane.commands, work.stages, work.writes, work.stages, work.all);
    return lane.open();
}

void GPUCommandBuffer::Recording::bindArguments(VkCommandBuffer commands, VkPipelineBindPoint point,
                                                const VulkanPipelineLayout& layout, VkDescriptorSet set,
                                                std::span<const std::byte> constants) {
    vkCmdBindDescriptorSets(commands, point, layout.get(), 0, 1, &set, 0, nullptr);
    if (!constants.empty())
        vkCmdPushConstants(commands, layout.get(), layout.stages(), 0, std::uint32_t(constants.size()),
                           constants.data());
}

VkFramebuffer GPUCommandBuffer::Recording::makeFramebuffer(const VulkanRenderPipeline& pipeline,
                                                           const GPUTexture& target) {
    const VkImageView view = target.vulkan().view();
    const VkFramebufferCreateInfo info{.sType = VK_STRUCTURE_TYPE_FRAMEBUFFER_CREATE_INFO,
                                       .renderPass = pipeline.renderPass(),
                                       .attachmentCount = 1,
                                       .pAttachments = &view,
                                       .width = std::uint32_t(target.width()),
                                       .height = std::uint32_t(target.height()),
                                       .layers = 1};
    return framebuffers
        .emplace_back(
            makeOwned<OwnedFramebuffer>(device->vulkan().get(), vkCreateFramebuffer, info, "make a framebuffer"))
        .get();
}

// Closes what was opened. On one queue barriers order the lanes; between queues semaphores do.
void GPUCommandBuffer::Recording::finishLanes() {
    constexpr auto transfer = VK_PIPELINE_STAGE_TRANSFER_BIT;
    const bool isOneQueue = !queue->lanes().areSeparate;
    if (context->upload.isRecording) {
        if (isOneQueue)
            memoryBarrier(context->upload.commands, transfer, VK_ACCESS_TRANSFER_WRITE_BIT, work.stages | transfer,
                          work.all | VK_ACCESS_TRANSFER_READ_BIT);
        check(vkEndCommandBuffer(context->upload.commands), "record uploads");
    }
    if (context->compute.isRecording) {
        // Mapped textures are read by the processor as they are.
        memoryBarrier(context->compute.commands, work.stages, work.writes,
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
    kept.clear();
    framebuffers.clear();
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
    requireConstants(constants);
    const auto& vulkan = pipeline->vulkan();
    const auto set = recording_->bindTextures(vulkan.layout(), textures);
    recording_->kept.push_back(pipeline);
    const auto commands = recording_->beginWork();
    vkCmdBindPipeline(commands, VK_PIPELINE_BIND_POINT_COMPUTE, vulkan.get());
    recording_->bindArguments(commands, VK_PIPELINE_BIND_POINT_COMPUTE, vulkan.layout(), set, constants);
    const auto groups = [](int count, std::uint32_t size) { return (std::uint32_t(count) + size - 1) / size; };
    const auto& groupSize = vulkan.layout().reflection().groupSize;
    vkCmdDispatch(commands, groups(gridWidth, groupSize[0]), groups(gridHeight, groupSize[1]), 1);
}

void GPUCommandBuffer::draw(const std::shared_ptr<GPURenderPipeline>& pipeline,
                            const std::shared_ptr<GPUTexture>& target, const GPUColor& clearColor, const GPUMesh& mesh,
                            std::span<const std::shared_ptr<GPUTexture>> textures,
                            std::span<const std::byte> constants) {
    recording_->requireRecording();
    requireConstants(constants);
    if (target->usage() != GPUTextureUsage::renderTarget || target->format() != pipeline->colorFormat())
        throw std::logic_error("a texture was not made for what is drawn on it");
    recording_->use(target, true);
    const auto& vulkan = pipeline->vulkan();
    const auto set = recording_->bindTextures(vulkan.layout(), textures);
    const auto framebuffer = recording_->makeFramebuffer(vulkan, *target);
    for (const std::shared_ptr<const void>& used :
         {std::shared_ptr<const void>(pipeline), std::shared_ptr<const void>(mesh.vertices),
          std::shared_ptr<const void>(mesh.indices)})
        recording_->kept.push_back(used);

    const auto commands = recording_->beginWork();
    const VkClearValue clear{
        .color = {.float32 = {clearColor.red, clearColor.green, clearColor.blue, clearColor.alpha}}};
    const VkRect2D whole{{0, 0}, {std::uint32_t(target->width()), std::uint32_t(target->height())}};
    const VkViewport viewport{0, 0, float(target->width()), float(target->height()), 0, 1};
    const VkRenderPassBeginInfo begin{.sType = VK_STRUCTURE_TYPE_RENDER_PASS_BEGIN_INFO,
                                      .renderPass = vulkan.renderPass(),
                                      .framebuffer = framebuffer,
                                      .renderArea = whole,
                                      .clearValueCount = 1,
                                      .pClearValues = &clear};
    const VkBuffer vertices = mesh.vertices->vulkan().get();
    constexpr VkDeviceSize start = 0;
    vkCmdBeginRenderPass(commands, &begin, VK_SUBPASS_CONTENTS_INLINE);
    vkCmdBindPipeline(commands, VK_PIPELINE_BIND_POINT_GRAPHICS, vulkan.get());
    recording_->bindArguments(commands, VK_PIPELINE_BIND_POINT_GRAPHICS, vulkan.layout(), set, constants);
    vkCmdSetViewport(commands, 0, 1, &viewport);
    vkCmdSetScissor(commands, 0, 1, &whole);
    vkCmdBindVertexBuffers(commands, 0, 1, &vertices, &start);
    vkCmdBindIndexBuffer(commands, mesh.indices->vulkan().get(), 0, VK_INDEX_TYPE_UINT32);
    if (mesh.indexCount > 0)
        vkCmdDrawIndexed(commands, mesh.indexCount, 1, 0, 0, 0);
    vkCmdEndRenderPass(commands);
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
