#pragma once

#include "Platform/Media/EncoderKernels.h"
#include "Platform/Media/PixelBuffer.h"

namespace panoveer {

// BGRA to 8-bit 4:2:0 Y'CbCr in video range, each sample rounded to the nearest step (Rec. ITU-T H.273, 8.3; `matrix`
// is its MatrixCoefficients: 1, 5, 6, 9; others count as 1). Chroma is sited at the left, as streams that say nothing
// have it: on the columns of even pixels, between two rows. Alpha is left out. Sides are even. Not for other layers.
void convertToYCbCr420(const PixelBuffer& source, const PlanarPicture& target, int matrix);

} // namespace panoveer
