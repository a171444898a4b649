#include "Platform/GPU/GPUTexturePool.h"

#include "Platform/GPU/GPUDevice.h"

#include <algorithm>
#include <deque>
#include <mutex>

namespace panoveer {

struct GPUTexturePool::Shared {
    std::shared_ptr<GPUDevice> device;
    std::size_t maximumIdleTextures;
    std::mutex mutex;
    std::deque<std::shared_ptr<GPUTexture>> idle; // guarded by mutex; the one returned last at the end

    std::shared_ptr<GPUTexture> take(GPUPixelFormat format, int width, int height, GPUTextureUsage usage) {
        std::lock_guard lock(mutex);
        const auto found = std::ranges::find_if(idle, [&](const auto& texture) {
            return texture->format() == format && texture->width() == width && texture->height() == height &&
                   texture->usage() == usage;
        });
        if (found == idle.end())
            return nullptr;
        auto texture = std::move(*found);
        idle.erase(found);
        return texture;
    }

    void giveBack(std::shared_ptr<GPUTexture> texture) {
        std::shared_ptr<GPUTexture> oldest; // freed after the lock
        std::lock_guard lock(mutex);
        idle.push_back(std::move(texture));
        if (idle.size() > maximumIdleTextures) {
            oldest = std::move(idle.front());
            idle.pop_front();
        }
    }
};

GPUTexturePool::GPUTexturePool(std::shared_ptr<GPUDevice> device, std::size_t maximumIdleTextures)
    : shared_(std::make_shared<Shared>(std::move(device), maximumIdleTextures)) {}

std::shared_ptr<GPUTexture> GPUTexturePool::acquire(GPUPixelFormat format, int width, int height,
                                                    GPUTextureUsage usage) {
    auto texture = shared_->take(format, width, height, usage);
    if (!texture)
        texture = GPUTexture::make(shared_->device, format, width, height, usage);
    // The reference that callers see returns the texture instead of freeing it.
    auto* raw = texture.get();
    return std::shared_ptr<GPUTexture>(
        raw, [shared = shared_, kept = std::move(texture)](GPUTexture*) mutable { shared->giveBack(std::move(kept)); });
}

} // namespace panoveer
