#pragma once

#include <cmath>
#include <cstdint>

// Sides of pictures are even: chroma of 4:2:0 video has half of each.
namespace panoveer {

// The number itself, or one more when it is odd.
constexpr std::int64_t evenedUp(std::int64_t side) { return side + (side & 1); }

// To the nearest integer, halves away from zero, then evened up.
inline std::int64_t roundedToEven(double side) { return evenedUp(std::llround(side)); }

} // namespace panoveer
