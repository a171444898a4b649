#pragma once

#include "Panoveer/Services/Intake/GrayscaleImage.h"
#include "Platform/Core/URL.h"
#include "Platform/Media/PixelBuffer.h"

#include <stop_token>
#include <vector>

namespace panoveer {

// Takes the few small grey pictures of a movie that its format is told by. Blocking; any thread, several at once.
namespace ImmersiveFrameSampler {

inline constexpr int maximumSide = 1024; // pixels

// Seconds: at 0.2, 0.5 and 0.8 of a movie, or its start when it is short or endless.
std::vector<double> sampleTimes(double duration);

// Frames at those times, turned as the track asks on the native road. Those that cannot be had are left out: a file
// that cannot be read has none. Throws nothing but for want of memory; a requested stop ends it sooner, with fewer.
std::vector<GrayscaleImage> frames(const URL& url, bool usesFFmpegDecode, double duration,
                                   const std::stop_token& stop = {});

// The luma of a BGRA picture (ITU-R BT.709-6, 3.2); an empty picture for any other format.
GrayscaleImage grayscale(const PixelBuffer& picture);

} // namespace ImmersiveFrameSampler

} // namespace panoveer
