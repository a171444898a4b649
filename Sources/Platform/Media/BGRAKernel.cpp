#include "Platform/Media/BGRAKernel.h"

#include <algorithm>
#include <array>

namespace panoveer {

namespace {

std::uint32_t limited(float value) {
    return std::uint32_t(std::int32_t(std::min(std::max(value, 0.0F), 255.0F) + 0.5F));
}

// Doubles a row between its samples: narrow[-1] and narrow[count] repeat the ends, `siting` as YCbCrShape::chromaX.
void widen(const float* __restrict narrow, float* __restrict wide, int count, int siting) {
    const float before = float(siting) / 512, after = float(256 - siting) / 512;
    for (int i = 0; i < count; ++i) {
        wide[2 * i] = (1 - before) * narrow[i] + before * narrow[i - 1];
        wide[2 * i + 1] = (1 - after) * narrow[i] + after * narrow[i + 1];
    }
}

} // namespace

// H.273, table 4: kr and kb of the matrices that are made of them.
bool lumaWeights(int matrix, double& kr, double& kb) {
    struct Weights {
        int matrix;
        double kr, kb;
    };
    static constexpr Weights table[] = {{1, 0.2126, 0.0722}, {4, 0.30, 0.11},   {5, 0.299, 0.114},
                                        {6, 0.299, 0.114},   {7, 0.212, 0.087}, {9, 0.2627, 0.0593},
                                        {10, 0.2627, 0.0593}};
    const auto* found = std::ranges::find(table, matrix, &Weights::matrix);
    if (found == std::end(table))
        return false;
    kr = found->kr;
    kb = found->kb;
    return true;
}

// H.273, 8.3: equations 38 to 46 undone, in steps of an 8-bit result.
BGRAKernel::BGRAKernel(const YCbCrShape& shape) : shape_(shape) {
    const double steps = double(1 << (shape.depth - 8));
    const double largest = double((1 << shape.depth) - 1);
    const double lumaSpan = shape.isFullRange ? largest : 219 * steps;
    const double chromaSpan = shape.isFullRange ? largest : 224 * steps;
    const double kg = 1 - shape.kr - shape.kb;
    lumaScale_ = float(255 / lumaSpan);
    lumaOffset_ = float(shape.isFullRange ? 0 : 16 * steps);
    neutral_ = float(1 << (shape.depth - 1));
    red_ = float(255 / chromaSpan * 2 * (1 - shape.kr));
    blue_ = float(255 / chromaSpan * 2 * (1 - shape.kb));
    greenCr_ = float(red_ * shape.kr / kg);
    greenCb_ = float(blue_ * shape.kb / kg);
    alphaScale_ = float(255 / largest);
}

void BGRAKernel::convert(const YCbCrPlanes& source, std::byte* result, std::size_t resultRowBytes) {
    if (shape_.depth > 8)
        convertRows<std::uint16_t>(source, result, resultRowBytes);
    else
        convertRows<std::uint8_t>(source, result, resultRowBytes);
}

// One row of a chroma plane for a luma row, counted from neutral, at full width.
template<class Sample>
void BGRAKernel::loadChromaRow(const YCbCrPlanes& source, int plane, int y, std::vector<float>& row) {
    const int count = (source.width + shape_.chromaWidthShift) >> shape_.chromaWidthShift;
    const int rows = (source.height + shape_.chromaHeightShift) >> shape_.chromaHeightShift;
    // The nearest chroma row and the other one that takes part, with the weight of that.
    const int near = y >> shape_.chromaHeightShift;
    const bool isUpper = shape_.chromaHeightShift == 1 && y % 2 == 0;
    const int other = shape_.chromaHeightShift == 0 ? near : std::clamp(isUpper ? near - 1 : near + 1, 0, rows - 1);
    const float weight =
        shape_.chromaHeightShift == 0 ? 0 : float(isUpper ? shape_.chromaY : 256 - shape_.chromaY) / 512;
    const auto rowAt = [&](int index) {
        return reinterpret_cast<const Sample*>(source.data[plane] + index * source.rowBytes[plane]);
    };
    const auto* __restrict a = rowAt(near);
    const auto* __restrict b = rowAt(other);
    float* __restrict out = shape_.chromaWidthShift == 0 ? row.data() : narrow_.data() + 1;
    const float neutral = neutral_;
    for (int i = 0; i < count; ++i)
        out[i] = float(a[i]) - neutral + weight * (float(b[i]) - float(a[i]));
    if (shape_.chromaWidthShift == 1) {
        out[-1] = out[0];
        out[count] = out[count - 1];
        widen(out, row.data(), count, shape_.chromaX);
    }
}

template<class Sample>
void BGRAKernel::convertRows(const YCbCrPlanes& source, std::byte* result, std::size_t resultRowBytes) {
    const auto width = std::size_t(source.width);
    narrow_.resize(width + 3);
    cb_.resize(width + 1);
    cr_.resize(width + 1);
    for (int y = 0; y < source.height; ++y) {
        loadChromaRow<Sample>(source, 1, y, cb_);
        loadChromaRow<Sample>(source, 2, y, cr_);
        const auto* __restrict luma = reinterpret_cast<const Sample*>(source.data[0] + y * source.rowBytes[0]);
        const float* __restrict cb = cb_.data();
        const float* __restrict cr = cr_.data();
        auto* __restrict out = reinterpret_cast<std::uint32_t*>(result + std::size_t(y) * resultRowBytes);
        // Copies that the compiler knows to stay as they are while pixels are written.
        const float scale = lumaScale_, offset = lumaOffset_, red = red_, greenCb = greenCb_, greenCr = greenCr_,
                    blue = blue_;
        for (std::size_t x = 0; x < width; ++x) {
            const float level = (float(luma[x]) - offset) * scale;
            out[x] = limited(level + blue * cb[x]) | limited(level - greenCb * cb[x] - greenCr * cr[x]) << 8 |
                     limited(level + red * cr[x]) << 16 | 0xff000000U;
        }
        if (!shape_.hasAlpha)
            continue;
        const auto* __restrict alpha = reinterpret_cast<const Sample*>(source.data[3] + y * source.rowBytes[3]);
        const float alphaScale = alphaScale_;
        for (std::size_t x = 0; x < width; ++x)
            out[x] = (out[x] & 0xffffffU) | limited(float(alpha[x]) * alphaScale) << 24;
    }
}

} // namespace panoveer
