#include "Platform/Media/PixelBuffer.h"

#include "Platform/Core/Error.h"

#include <algorithm>
#include <cstdlib>
#include <limits>
#include <new>
#include <string>

namespace panoveer {

namespace {

constexpr std::size_t alignment = 64;
constexpr int maximumSide = 65536;

constexpr std::size_t alignedUp(std::size_t value) { return (value + alignment - 1) / alignment * alignment; }

// Planes with null data, and how many bytes they take one behind the other.
std::size_t layOutPlanes(const PixelFormatLayout& layout, int width, int height, std::vector<PixelPlane>& planes) {
    const auto sample = std::size_t(layout.bytesPerSample);
    planes.push_back(
        {nullptr, alignedUp(std::size_t(width) * std::size_t(layout.samplesPerPixel) * sample), width, height});
    if (layout.planeCount == 2) {
        const int chromaWidth = (width + (1 << layout.chromaWidthShift) - 1) >> layout.chromaWidthShift;
        const int chromaHeight = (height + (1 << layout.chromaHeightShift) - 1) >> layout.chromaHeightShift;
        planes.push_back({nullptr, alignedUp(std::size_t(chromaWidth) * 2 * sample), chromaWidth, chromaHeight});
    }
    std::size_t total = 0;
    for (const auto& plane : planes)
        total += plane.rowBytes * std::size_t(plane.height);
    return total;
}

const PixelFormatLayout& requireLayout(FourCC format, int width, int height) {
    static const auto known = [] {
        std::vector<std::pair<FourCC, PixelFormatLayout>> table;
        for (auto code :
             {pixelFormat::bgra, pixelFormat::rgbaHalf, pixelFormat::yCbCr420VideoRange, pixelFormat::yCbCr420FullRange,
              pixelFormat::yCbCr420TenBitVideoRange, pixelFormat::yCbCr420TenBitFullRange,
              pixelFormat::yCbCr422TenBitVideoRange, pixelFormat::yCbCr444TenBitVideoRange})
            table.emplace_back(code, *layoutOf(code));
        return table;
    }();
    const auto found = std::ranges::find(known, format, &std::pair<FourCC, PixelFormatLayout>::first);
    if (found == known.end())
        throw Error("Unknown pixel format " + format.text(), std::string(mediaErrorDomain), -6680);
    if (width < 1 || height < 1 || width > maximumSide || height > maximumSide)
        throw Error("Invalid picture size " + std::to_string(width) + "x" + std::to_string(height),
                    std::string(mediaErrorDomain), -6681);
    return found->second;
}

} // namespace

std::optional<PixelFormatLayout> layoutOf(FourCC format) {
    using namespace pixelFormat;
    if (format == bgra)
        return PixelFormatLayout{};
    if (format == rgbaHalf)
        return PixelFormatLayout{.bytesPerSample = 2};
    if (format == yCbCr420VideoRange || format == yCbCr420FullRange)
        return PixelFormatLayout{2, 1, 1, 1, 1, format == yCbCr420FullRange};
    if (format == yCbCr420TenBitVideoRange || format == yCbCr420TenBitFullRange)
        return PixelFormatLayout{2, 2, 1, 1, 1, format == yCbCr420TenBitFullRange};
    if (format == yCbCr422TenBitVideoRange)
        return PixelFormatLayout{2, 2, 1, 1, 0, false};
    if (format == yCbCr444TenBitVideoRange)
        return PixelFormatLayout{2, 2, 1, 0, 0, false};
    return std::nullopt;
}

PixelBuffer::PixelBuffer(FourCC format, const PixelFormatLayout& layout, int width, int height,
                         std::vector<PixelPlane> planes, std::shared_ptr<void> owner)
    : format_(format),
      layout_(layout),
      width_(width),
      height_(height),
      planes_(std::move(planes)),
      owner_(std::move(owner)) {}

std::shared_ptr<PixelBuffer> PixelBuffer::make(FourCC format, int width, int height) {
    const auto& layout = requireLayout(format, width, height);
    std::vector<PixelPlane> planes;
    const auto size = layOutPlanes(layout, width, height, planes);
    // SIMD kernels may read one vector past the last row.
    std::shared_ptr<void> memory(std::aligned_alloc(alignment, size + alignment), std::free);
    if (!memory)
        throw std::bad_alloc();
    auto* next = static_cast<std::byte*>(memory.get());
    for (auto& plane : planes) {
        plane.data = next;
        next += plane.rowBytes * std::size_t(plane.height);
    }
    return std::shared_ptr<PixelBuffer>(
        new PixelBuffer(format, layout, width, height, std::move(planes), std::move(memory)));
}

std::shared_ptr<PixelBuffer> PixelBuffer::adopt(FourCC format, int width, int height, std::vector<PixelPlane> planes,
                                                std::shared_ptr<void> owner) {
    const auto& layout = requireLayout(format, width, height);
    return std::shared_ptr<PixelBuffer>(
        new PixelBuffer(format, layout, width, height, std::move(planes), std::move(owner)));
}

struct PixelBufferPool::Shared {
    std::mutex mutex;
    std::vector<PixelBufferPtr> idle; // guarded by mutex
    int out = 0;                      // guarded by mutex: buffers in somebody's hands
};

PixelBufferPool::PixelBufferPool(FourCC format, int width, int height)
    : format_(format), width_(width), height_(height), shared_(std::make_shared<Shared>()) {
    requireLayout(format, width, height);
}

PixelBufferPtr PixelBufferPool::acquire(int allocationThreshold) {
    PixelBufferPtr buffer;
    {
        std::lock_guard lock(shared_->mutex);
        if (allocationThreshold > 0 && shared_->out >= allocationThreshold)
            return nullptr;
        ++shared_->out;
        if (!shared_->idle.empty()) {
            buffer = std::move(shared_->idle.back());
            shared_->idle.pop_back();
        }
    }
    if (!buffer) {
        try {
            buffer = PixelBuffer::make(format_, width_, height_);
        } catch (...) {
            std::lock_guard lock(shared_->mutex);
            --shared_->out;
            throw;
        }
    }
    buffer->color() = {};
    // The reference that callers see returns the buffer to the pool instead of freeing it.
    auto* raw = buffer.get();
    return PixelBufferPtr(raw, [shared = shared_, kept = std::move(buffer)](PixelBuffer*) mutable {
        std::lock_guard lock(shared->mutex);
        shared->idle.push_back(std::move(kept));
        --shared->out;
    });
}

} // namespace panoveer
