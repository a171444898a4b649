#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

// The transform and the quantiser of a ProRes slice (SMPTE RDD 36, 7.2 to 7.4, in the other direction). Not for other
// layers.
namespace panoveer {

// A slice is one macroblock high and at most eight wide.
constexpr int macroblockSide = 16;
constexpr int largestSliceLength = 8;

// One component of a slice: 16 rows of samples in steps of 12 bits, counted from the middle of their range. Columns
// beyond the slice's own may hold any finite number.
struct SliceSamples {
    static constexpr std::size_t rowLength = std::size_t(macroblockSide) * largestSliceLength;
    static constexpr std::size_t count = rowLength * macroblockSide;
    alignas(64) std::array<float, count> values{};

    float* row(int y) { return &values[std::size_t(y) * rowLength]; }
};

// The order of a macroblock's blocks: left to right and down, or down and to the right.
enum class BlockOrder { byRows, byColumns };

// The factors from the transform's results to levels, in the order of the scan.
using LevelScales = std::array<float, 64>;

// `step` is what one level stands for, the same for every coefficient of an orthonormal transform.
LevelScales levelScales(int step);

// Transforms the blocks of `columnCount` columns and two rows, and rounds them to levels: position by position in the
// order of the scan, of each position those of all blocks, macroblock by macroblock.
void transformSlice(const SliceSamples& samples, int columnCount, BlockOrder order, const LevelScales& scales,
                    std::span<std::int16_t> levels);

} // namespace panoveer
