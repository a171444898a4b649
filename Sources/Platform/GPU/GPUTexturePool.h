#pragma once

#include "Platform/GPU/GPUTexture.h"

#include <cstddef>
#include <memory>

namespace panoveer {

// Hands out textures and takes them back when their last reference goes, so that a row of pictures of one size makes
// its textures once. Safe from any thread; textures may outlive the pool.
class GPUTexturePool {
public:
    // Keeps at most `maximumIdleTextures`, those returned last.
    GPUTexturePool(std::shared_ptr<GPUDevice> device, std::size_t maximumIdleTextures);

    // A texture with stale contents. Throws Error as GPUTexture::make does.
    std::shared_ptr<GPUTexture> acquire(GPUPixelFormat format, int width, int height, GPUTextureUsage usage);

private:
    struct Shared;
    std::shared_ptr<Shared> shared_;
};

} // namespace panoveer
