#include "Panoveer/Services/Export/ExportBufferBudget.h"

#include "Platform/Media/PixelBuffer.h"

#include <algorithm>

namespace panoveer {

namespace {

std::uint64_t bytesPerBuffer(FourCC format, std::uint64_t pixels) {
    if (format == pixelFormat::rgbaHalf)
        return 8 * pixels;
    if (format == pixelFormat::yCbCr420TenBitVideoRange || format == pixelFormat::yCbCr420TenBitFullRange)
        return 3 * pixels;
    if (format == pixelFormat::yCbCr420VideoRange || format == pixelFormat::yCbCr420FullRange)
        return 3 * pixels / 2;
    return 4 * pixels;
}

} // namespace

ExportBufferBudget ExportBufferBudget::make(FourCC outputFormat, std::int64_t width, std::int64_t height,
                                            const ExportMemory& memory) {
    const auto pixels =
        std::uint64_t(std::max<std::int64_t>(width, 1)) * std::uint64_t(std::max<std::int64_t>(height, 1));
    ExportBufferBudget budget;
    budget.bytesPerPixelBuffer = bytesPerBuffer(outputFormat, pixels);

    const auto floor = 2 * budget.bytesPerPixelBuffer;
    const auto memoryCap = std::max(memory.physicalMemory / 8, floor);
    const auto gpuCap = memory.recommendedMaxWorkingSetSize > memory.currentAllocatedSize
                            ? std::max((memory.recommendedMaxWorkingSetSize - memory.currentAllocatedSize) / 5, floor)
                            : floor;
    budget.bufferMemoryBudgetBytes = std::min(memoryCap, gpuCap);

    const auto count = std::max<std::uint64_t>(
        budget.bufferMemoryBudgetBytes / std::max<std::uint64_t>(budget.bytesPerPixelBuffer, 1), 2);
    budget.encoderPixelBufferLimit = int(std::min<std::uint64_t>(count, 8));
    budget.inFlightFrameLimit = int(std::min<std::uint64_t>(count, 4)) - 1;
    return budget;
}

} // namespace panoveer
