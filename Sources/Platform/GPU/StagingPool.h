#pragma once

#include "Platform/GPU/VulkanSupport.h"

#include <vk_mem_alloc.h>

#include <cstddef>
#include <memory>
#include <mutex>
#include <vector>

namespace panoveer {

// Memory that both sides reach, mapped for as long as it lives.
class StagingBuffer {
public:
    enum class Direction { upload, download };

    // Throws Error.
    StagingBuffer(VmaAllocator allocator, Direction direction, std::size_t size);
    ~StagingBuffer();
    StagingBuffer(const StagingBuffer&) = delete;
    StagingBuffer& operator=(const StagingBuffer&) = delete;

    Direction direction() const { return direction_; }
    VkBuffer get() const { return buffer_; }
    std::byte* bytes() const { return bytes_; }
    std::size_t size() const { return size_; }

    // After the processor wrote, before the device reads; and the other way round.
    void flush() const;
    void invalidate() const;

private:
    VmaAllocator allocator_;
    Direction direction_;
    std::size_t size_;
    VkBuffer buffer_ = VK_NULL_HANDLE;
    VmaAllocation allocation_ = VK_NULL_HANDLE;
    std::byte* bytes_ = nullptr;
};

// Keeps staging buffers for the next picture, since making and mapping one costs more than filling it. Safe from any
// thread.
class StagingPool {
public:
    explicit StagingPool(VmaAllocator allocator) : allocator_(allocator) {}

    // At least `size` bytes with stale contents. Throws Error.
    std::unique_ptr<StagingBuffer> acquire(StagingBuffer::Direction direction, std::size_t size);
    // For buffers that the device no longer uses.
    void release(std::unique_ptr<StagingBuffer> buffer);

private:
    VmaAllocator allocator_;
    std::mutex mutex_;
    std::vector<std::unique_ptr<StagingBuffer>> idle_; // guarded by mutex_; the one released last at the end
    std::size_t idleBytes_ = 0;                        // guarded by mutex_
};

} // namespace panoveer
