#pragma once

#include "Platform/Core/FourCC.h"

#include <cstdint>

namespace panoveer {

// What the buffer budget is cut from, in bytes.
struct ExportMemory {
    std::uint64_t physicalMemory = 0;
    std::uint64_t recommendedMaxWorkingSetSize = 0; // of the rendering engine
    std::uint64_t currentAllocatedSize = 0;         // of the rendering engine
};

// How many pictures an export may hold at once: memory is bounded by what the machine has, not by a constant.
struct ExportBufferBudget {
    std::uint64_t bytesPerPixelBuffer = 0;
    std::uint64_t bufferMemoryBudgetBytes = 0;
    int encoderPixelBufferLimit = 2; // output pictures alive at once, 2 to 8
    int inFlightFrameLimit = 1;      // frames that rendering may run ahead, 1 to 3: always one short of the buffers

    static ExportBufferBudget make(FourCC outputFormat, std::int64_t width, std::int64_t height,
                                   const ExportMemory& memory);
};

} // namespace panoveer
