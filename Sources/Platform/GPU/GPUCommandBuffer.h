#pragma once

#include "Platform/Core/Error.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>

namespace panoveer {

class GPUComputePipeline;
class GPUDevice;
class GPUTexture;
class VulkanCommandQueue;

// Work for the GPU: first all uploads, then all dispatches in order, each seeing what the earlier ones wrote, then all
// downloads, whatever the order in which they were recorded. Made by a GPUCommandQueue, used once, by one thread at a
// time. Keeps what it uses alive until it has completed; destroying it earlier waits for the GPU.
class GPUCommandBuffer {
public:
    GPUCommandBuffer(std::shared_ptr<GPUDevice> device, std::shared_ptr<VulkanCommandQueue> queue);
    ~GPUCommandBuffer();
    GPUCommandBuffer(const GPUCommandBuffer&) = delete;
    GPUCommandBuffer& operator=(const GPUCommandBuffer&) = delete;

    // Replaces the whole texture. The rows are read before the call returns; rowBytes is the distance between them.
    // Throws Error when there is no memory to pass them through.
    void upload(const std::shared_ptr<GPUTexture>& texture, const std::byte* rows, std::size_t rowBytes);

    // Runs a kernel once for every place of a grid. textures[N] is bound where the kernel says binding = N; constants
    // (at most 128 bytes) are its push constants.
    void dispatch(const std::shared_ptr<GPUComputePipeline>& pipeline,
                  std::span<const std::shared_ptr<GPUTexture>> textures, std::span<const std::byte> constants,
                  int gridWidth, int gridHeight);

    // Has waitUntilCompleted() fill these rows with the whole texture; they must stay there until then. Bytes between
    // rows are left alone.
    void download(const std::shared_ptr<GPUTexture>& texture, std::byte* rows, std::size_t rowBytes);

    // Hands the work to the GPU and returns. A failure is told by error(). Nothing can be recorded afterwards.
    void commit();

    // Blocks until committed work is done and every download is in place.
    void waitUntilCompleted();

    // What went wrong in commit() or on the GPU; complete after waitUntilCompleted().
    const std::optional<Error>& error() const;

private:
    struct Recording;
    std::unique_ptr<Recording> recording_;
};

} // namespace panoveer
