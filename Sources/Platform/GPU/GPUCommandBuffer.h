#pragma once

#include "Platform/Core/Error.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>

namespace panoveer {

class GPUBuffer;
class GPUComputePipeline;
class GPUDevice;
class GPURenderPipeline;
class GPUTexture;
class VulkanCommandQueue;

struct GPUColor {
    float red = 0;
    float green = 0;
    float blue = 0;
    float alpha = 0;
};

// Triangles as every three indices of 32 bits name them.
struct GPUMesh {
    std::shared_ptr<GPUBuffer> vertices;
    std::shared_ptr<GPUBuffer> indices;
    std::uint32_t indexCount = 0;
};

// Work for the GPU: first all uploads, then all dispatches and drawings in order, each seeing what the earlier ones
// wrote, then all downloads, whatever the order in which they were recorded. Made by a GPUCommandQueue, used once, by
// one thread at a time. Keeps what it uses alive until it has completed; destroying it earlier waits for the GPU.
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

    // Fills the whole of a render target with a colour, and draws a mesh on it. The fragment function's textures and
    // the constants, for both functions, are given as to a kernel. The target's format is the pipeline's.
    void draw(const std::shared_ptr<GPURenderPipeline>& pipeline, const std::shared_ptr<GPUTexture>& target,
              const GPUColor& clearColor, const GPUMesh& mesh, std::span<const std::shared_ptr<GPUTexture>> textures,
              std::span<const std::byte> constants);

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
