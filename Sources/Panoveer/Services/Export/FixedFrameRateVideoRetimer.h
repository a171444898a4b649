#pragma once

#include "Panoveer/Services/Export/ExportSegmentFrameSlots.h"
#include "Platform/Media/PixelBuffer.h"

#include <cstdint>
#include <functional>
#include <optional>

namespace panoveer {

// Lays the pictures of one segment onto a fixed frame rate: every output slot takes the source picture nearest to it
// in time, so a slow source repeats pictures and a fast one drops them.
//
//   source   a       b       c            24 frames per second
//   slots    0  1  2  3  4  5  6          60 frames per second
//            a  a  b  b  c  c  c
//
// Lives on the export's thread. A failing append passes out of append() and finish().
class FixedFrameRateVideoRetimer {
public:
    // Called once for each slot, in rising order.
    using AppendSlot = std::function<void(const PixelBufferPtr& picture, std::int64_t slot)>;

    // `durationSeconds` is the length of the segment.
    FixedFrameRateVideoRetimer(const ExportSegmentFrameSlots& slots, double durationSeconds, AppendSlot appendSlot);

    // A picture at its time within the segment; times do not fall.
    void append(PixelBufferPtr picture, double relativeSeconds);

    // Repeats the last picture up to the end of the segment.
    void finish();

private:
    void fillUpTo(double thresholdSeconds);

    ExportSegmentFrameSlots slots_;
    double durationSeconds_;
    AppendSlot appendSlot_;
    std::int64_t nextFrameIndex_ = 0;
    PixelBufferPtr lastPixelBuffer_;
    double lastRelativeSeconds_ = 0; // meaningful with a last picture
};

} // namespace panoveer
