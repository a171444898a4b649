#pragma once

#include "Platform/Core/MediaTime.h"

#include <cstdint>

namespace panoveer {

// The exact rational time base from which every frame time of an export comes.
struct ExportFrameClock {
    std::int32_t timescale = 600;    // units per second
    std::int64_t frameDuration = 20; // units

    ExportFrameClock() = default;
    // NTSC rates become n * 1000 / 1001, near-integers integers, all others thousandths. A rate that is not positive,
    // not finite or beyond any video counts as 30.
    explicit ExportFrameClock(double framesPerSecond);

    // The frame nearest to a time, halves away from zero.
    std::int64_t frameIndex(double atSeconds) const;
    MediaTime time(std::int64_t frameIndex) const { return {frameIndex * frameDuration, timescale}; }

    friend bool operator==(const ExportFrameClock&, const ExportFrameClock&) = default;
};

} // namespace panoveer
