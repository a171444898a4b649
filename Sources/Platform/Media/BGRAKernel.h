#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

// Turns planar Y'CbCr into BGRA. Not for other layers.
namespace panoveer {

// What the planes hold. Samples lie in bytes (depth 8) or in the low bits of native 16-bit words.
struct YCbCrShape {
    int depth = 8; // bits of every component, 8 to 16
    bool isFullRange = false;
    bool hasAlpha = false;    // in a fourth plane, full range, straight
    int chromaWidthShift = 1; // 0 or 1: chroma width = (width + shift) >> shift
    int chromaHeightShift = 1;
    // Where the first chroma sample lies beside the first luma sample: 0 with it, 128 midway to the next, 256 with
    // that.
    int chromaX = 0;
    int chromaY = 128;
    double kr = 0.2126; // the matrix, by the weights of red and blue in luma
    double kb = 0.0722;

    friend bool operator==(const YCbCrShape&, const YCbCrShape&) = default;
};

struct YCbCrPlanes {
    const std::byte* data[4] = {}; // Y', Cb, Cr, alpha
    std::ptrdiff_t rowBytes[4] = {};
    int width = 0;
    int height = 0;
};

// The weights kr and kb of an H.273 matrix that has such; false for others.
bool lumaWeights(int matrix, double& kr, double& kb);

// Full precision in 32-bit float, chroma interpolated linearly between its samples in both directions, results rounded
// and limited to 0 to 255. One thread at a time.
class BGRAKernel {
public:
    explicit BGRAKernel(const YCbCrShape& shape);

    const YCbCrShape& shape() const { return shape_; }
    void convert(const YCbCrPlanes& source, std::byte* result, std::size_t resultRowBytes);

private:
    template<class Sample>
    void convertRows(const YCbCrPlanes& source, std::byte* result, std::size_t resultRowBytes);
    template<class Sample>
    void loadChromaRow(const YCbCrPlanes& source, int plane, int y, std::vector<float>& row);

    YCbCrShape shape_;
    // R' = luma + red Cr, G' = luma - greenCb Cb - greenCr Cr, B' = luma + blue Cb, with luma = scale (Y' - offset) and
    // chroma counted from its neutral value
    float lumaScale_, lumaOffset_, red_, greenCb_, greenCr_, blue_, alphaScale_, neutral_;
    std::vector<float> narrow_, cb_, cr_; // a chroma row at its own width with a sample more at each end; at full width
};

} // namespace panoveer
