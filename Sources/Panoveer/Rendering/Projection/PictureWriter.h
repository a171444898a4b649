#pragma once

#include "Panoveer/Rendering/Projection/VideoColorMath.h"
#include "Platform/Media/PixelBuffer.h"

namespace panoveer {

// Puts colours into a pixel buffer of any format, rounded to the nearest value that it can hold. Different pixels may
// be written from different threads.
class PictureWriter {
public:
    // Does not own the buffer, which must live longer. The matrix is that of a Y'CbCr buffer; dither is
    // VideoColorMath::ditherOffset().
    PictureWriter(PixelBuffer& buffer, VideoYCbCrMatrix matrix, bool dithersYCbCr = false);

    bool isYCbCr() const { return buffer_.layout().isYCbCr(); }
    int width() const { return buffer_.width(); }
    int height() const { return buffer_.height(); }

    // For BGRA and RGhA. Limited to 0…1.
    void writeColor(int x, int y, const RGB& color, double alpha);
    // For Y'CbCr: each sample of the luma and of the chroma plane is written for itself.
    void writeLuma(int x, int y, double luma);
    void writeLuma(int x, int y, const RGB& color);
    void writeChroma(int column, int row, double cb, double cr);
    void writeChroma(int column, int row, const RGB& color);

    // The chroma plane of a Y'CbCr buffer, and what one of its samples covers in luma pixels.
    int chromaColumns() const { return buffer_.plane(1).width; }
    int chromaRows() const { return buffer_.plane(1).height; }
    int chromaWidth() const { return 1 << buffer_.layout().chromaWidthShift; }
    int chromaHeight() const { return 1 << buffer_.layout().chromaHeightShift; }
    // Where a chroma sample lies, in luma pixels: in the middle of the left luma column, between the rows.
    double chromaX(int column) const { return column * chromaWidth() + 0.5; }
    double chromaY(int row) const { return (row + 0.5) * chromaHeight(); }

private:
    void writeCode(int plane, int sample, int row, double code);

    PixelBuffer& buffer_;
    VideoYCbCrMatrix matrix_;
    bool dithersYCbCr_;
    YCbCrCodeRange range_;
};

} // namespace panoveer
