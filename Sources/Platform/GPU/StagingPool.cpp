#include "Platform/GPU/StagingPool.h"

#include <algorithm>

namespace panoveer {

namespace {

// Source and output of a handful of 8K pictures.
constexpr std::size_t maximumIdleBytes = std::size_t(1) << 30;
constexpr std::size_t granularity = std::size_t(1) << 16;

constexpr std::size_t roundedUp(std::size_t size) { return (size + granularity - 1) / granularity * granularity; }

} // namespace

StagingBuffer::StagingBuffer(VmaAllocator allocator, Direction direction, std::size_t size)
    : allocator_(allocator), direction_(direction), size_(size) {
    const bool uploads = direction == Direction::upload;
    const VkBufferCreateInfo info{
        .sType = VK_STRUCTURE_TYPE_BUFFER_CREATE_INFO,
        .size = size,
        .usage = VkBufferUsageFlags(uploads ? VK_BUFFER_USAGE_TRANSFER_SRC_BIT : VK_BUFFER_USAGE_TRANSFER_DST_BIT)};
    // Read back through the processor's cache; written past it.
    const VmaAllocationCreateInfo memory{
        .flags = VMA_ALLOCATION_CREATE_MAPPED_BIT |
                 VmaAllocationCreateFlags(uploads ? VMA_ALLOCATION_CREATE_HOST_ACCESS_SEQUENTIAL_WRITE_BIT
                                                  : VMA_ALLOCATION_CREATE_HOST_ACCESS_RANDOM_BIT),
        .usage = VMA_MEMORY_USAGE_AUTO_PREFER_HOST};
    VmaAllocationInfo made;
    check(vmaCreateBuffer(allocator, &info, &memory, &buffer_, &allocation_, &made), "make a transfer buffer");
    bytes_ = static_cast<std::byte*>(made.pMappedData);
}

StagingBuffer::~StagingBuffer() { vmaDestroyBuffer(allocator_, buffer_, allocation_); }

void StagingBuffer::flush() const { vmaFlushAllocation(allocator_, allocation_, 0, VK_WHOLE_SIZE); }

void StagingBuffer::invalidate() const { vmaInvalidateAllocation(allocator_, allocation_, 0, VK_WHOLE_SIZE); }

std::unique_ptr<StagingBuffer> StagingPool::acquire(StagingBuffer::Direction direction, std::size_t size) {
    {
        std::lock_guard lock(mutex_);
        // The smallest that fits and is not wasted on so little.
        auto best = idle_.end();
        for (auto candidate = idle_.begin(); candidate != idle_.end(); ++candidate) {
            const auto& buffer = **candidate;
            if (buffer.direction() == direction && buffer.size() >= size && buffer.size() / 2 <= roundedUp(size) &&
                (best == idle_.end() || buffer.size() < (*best)->size()))
                best = candidate;
        }
        if (best != idle_.end()) {
            auto found = std::move(*best);
            idle_.erase(best);
            idleBytes_ -= found->size();
            return found;
        }
    }
    return std::make_unique<StagingBuffer>(allocator_, direction, roundedUp(size));
}

void StagingPool::release(std::unique_ptr<StagingBuffer> buffer) {
    std::vector<std::unique_ptr<StagingBuffer>> surplus; // freed after the lock
    std::lock_guard lock(mutex_);
    idleBytes_ += buffer->size();
    idle_.push_back(std::move(buffer));
    auto kept = idle_.begin();
    for (; idleBytes_ > maximumIdleBytes; ++kept) {
        idleBytes_ -= (*kept)->size();
        surplus.push_back(std::move(*kept));
    }
    idle_.erase(idle_.begin(), kept);
}

} // namespace panoveer
