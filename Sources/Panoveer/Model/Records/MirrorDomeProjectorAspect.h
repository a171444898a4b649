#pragma once

#include "Panoveer/Model/Records/OutputResolution.h"

#include <cstdint>

namespace panoveer {

// The shape of a mirror dome's projector, which ties the output's size to its warp mesh.
enum class MirrorDomeProjectorAspect { sixteenNine, sixteenTen };

constexpr double ratio(MirrorDomeProjectorAspect aspect) {
    return aspect == MirrorDomeProjectorAspect::sixteenTen ? 1.6 : 1.7777777777777777;
}

// The nearer of the two; `sixteenNine` on a tie and for a ratio that is not finite and positive.
MirrorDomeProjectorAspect nearestProjectorAspect(double widthOverHeight);
MirrorDomeProjectorAspect matchingProjectorAspect(OutputResolution resolution);

// Even sides in proportion. A width below 128 counts as 128, a height below 72 as 72.
std::int64_t heightForWidth(MirrorDomeProjectorAspect aspect, std::int64_t width);
std::int64_t widthForHeight(MirrorDomeProjectorAspect aspect, std::int64_t height);

} // namespace panoveer
