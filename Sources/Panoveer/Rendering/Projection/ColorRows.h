#pragma once

#include "Panoveer/Rendering/Projection/ColorCurves.h"

#include <array>
#include <cstddef>

namespace panoveer {

// out = weights · (in0, in1, in2) + offset
struct AffineRow {
    std::array<float, 3> weights{};
    float offset = 0;
};

// How whole numbers are written: rounded to nearest after dither, within a range.
struct CodeOutput {
    int bytesPerSample = 1; // 2: ten bits in the high bits of a word
    float lowest = 0;
    float highest = 255;
    static constexpr int ditherLength = 16;
    const float* dither = nullptr; // offsets that repeat along the row, or null
};

// Arithmetic on rows of numbers, with the best instructions that the processor has. Rows have room for `paddedCount`
// numbers, so that the last vector may reach beyond the end. Stateless; safe from any thread.
namespace ColorRows {

constexpr int paddedCount(int count) { return (count + 15) / 16 * 16; }

// scale * value + offset as code values.
void writeCodes(const float* values, int count, float scale, float offset, const CodeOutput& output, std::byte* out);

// Interleaved Cb, Cr apart.
void deinterleave2(const float* interleaved, int count, float* first, float* second);
void interleave2(const float* first, const float* second, int count, float* interleaved);
// Interleaved B, G, R, A of 0…`unit` as channels of 0…1.
void deinterleaveBGRA(const float* interleaved, int count, float unit, float* r, float* g, float* b, float* a);

// Each output from the three inputs at the same place; outputs may be inputs.
void transform(const std::array<AffineRow, 3>& matrix, int count, const float* in0, const float* in1, const float* in2,
               float* out0, float* out1, float* out2);
void limitToUnit(float* values, int count);

// What the curves make of these colours, which it limits to 0…1.
void convert(const ColorCurves& curves, int count, float* r, float* g, float* b);

// 8-bit B, G, R, A, and half-float R, G, B, A; limited to 0…1.
void writeBGRA(const float* r, const float* g, const float* b, const float* a, int count, std::byte* out);
void writeRGBAHalf(const float* r, const float* g, const float* b, const float* a, int count, std::byte* out);

} // namespace ColorRows

} // namespace panoveer
