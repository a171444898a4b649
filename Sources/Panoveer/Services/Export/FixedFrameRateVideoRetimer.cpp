#include "Panoveer/Services/Export/FixedFrameRateVideoRetimer.h"

#include <algorithm>

namespace panoveer {

namespace {

// Slot times are quotients; a slot that lies on the threshold but for rounding belongs to it.
constexpr double toleranceSeconds = 0.000001;

} // namespace

FixedFrameRateVideoRetimer::FixedFrameRateVideoRetimer(const ExportSegmentFrameSlots& slots, double durationSeconds,
                                                       AppendSlot appendSlot)
    : slots_(slots), durationSeconds_(durationSeconds), appendSlot_(std::move(appendSlot)) {}

void FixedFrameRateVideoRetimer::append(PixelBufferPtr picture, double relativeSeconds) {
    if (lastPixelBuffer_) {
        const double midpoint = 0.5 * (lastRelativeSeconds_ + relativeSeconds);
        const double cut = std::min(durationSeconds_, std::max(midpoint, lastRelativeSeconds_));
        fillUpTo(std::max(cut, 0.0) + toleranceSeconds);
    }
    lastPixelBuffer_ = std::move(picture);
    lastRelativeSeconds_ = relativeSeconds;
}

void FixedFrameRateVideoRetimer::finish() {
    if (lastPixelBuffer_)
        fillUpTo(std::max(durationSeconds_, 0.0) + toleranceSeconds);
}

void FixedFrameRateVideoRetimer::fillUpTo(double thresholdSeconds) {
    const double slotsPerSecond = double(slots_.clock.timescale) / double(slots_.clock.frameDuration);
    while (nextFrameIndex_ < slots_.frameCount && double(nextFrameIndex_) / slotsPerSecond <= thresholdSeconds)
        appendSlot_(lastPixelBuffer_, nextFrameIndex_++);
}

} // namespace panoveer
