#pragma once

#include "Platform/Media/PixelBuffer.h"

#include <array>
#include <cstddef>
#include <cstdint>

// Row loops that bring pictures into the planar layouts that encoders read. Not for other layers.
namespace panoveer {

// The planes of an encoder's picture: Y', Cb, Cr and, in some formats, alpha. Ten-bit samples lie in the low bits of
// native 16-bit words. Sizes are those of the source picture's planes.
struct PlanarPicture {
    std::array<std::byte*, 4> data{};
    std::array<std::ptrdiff_t, 4> rowBytes{};
};

// Parts the interleaved chroma of a video range Y'CbCr picture; ten-bit samples move to the low bits. Exact.
void splitPlanes(const PixelBuffer& source, const PlanarPicture& target);

// Where a row's components go: Y'CbCr in steps of 12-bit video range, counted from the middle of the range, not
// rounded; alpha in full range, 8 bits of BGRA and 16 of RGhA.
struct ComponentRows {
    float *y, *cb, *cr;
    std::uint16_t* alpha;
};

// `count` pixels of row `y` from column `x` on. Of BGRA and RGhA, nominal range 0 to 1, Y'CbCr 4:4:4 is made (Rec.
// ITU-T H.273, 8.3; `matrix` is its MatrixCoefficients: 1, 5, 6, 9; others count as 1), and what lies outside the
// nominal range is clipped; alpha stays straight. Of ten-bit 4:2:2, `x` even, the samples are taken as they are: half
// as many of Cb and Cr, rounded up, and no alpha.
void readComponents(const PixelBuffer& source, int x, int y, int count, int matrix, const ComponentRows& rows);

// BGRA of even sides to 8-bit 4:2:0 Y'CbCr in video range with full-range alpha, each rounded to the nearest step.
// Chroma lies on the left column and between the rows (H.273 type 0), filtered 1 2 1 across and 1 1 down. Alpha stays
// straight.
void convertToYCbCrA420(const PixelBuffer& source, const PlanarPicture& target, int matrix);

} // namespace panoveer
