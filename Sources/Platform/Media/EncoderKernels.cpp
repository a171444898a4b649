#include "Platform/Media/EncoderKernels.h"

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstring>

namespace panoveer {

namespace {

template<class Sample>
const Sample* sourceRow(const PixelPlane& plane, int y) {
    return reinterpret_cast<const Sample*>(plane.data + std::size_t(y) * plane.rowBytes);
}

template<class Sample>
Sample* targetRow(const PlanarPicture& picture, std::size_t plane, int y) {
    return reinterpret_cast<Sample*>(picture.data[plane] + y * picture.rowBytes[plane]);
}

constexpr int spareBits = 6; // below a ten-bit sample in the high bits of a word

void shiftRow(const std::uint16_t* __restrict source, std::uint16_t* __restrict target, int count) {
    for (int i = 0; i < count; ++i)
        target[i] = std::uint16_t(source[i] >> spareBits);
}

template<int shift, class Sample>
void partRow(const Sample* __restrict source, Sample* __restrict first, Sample* __restrict second, int count) {
    for (int i = 0; i < count; ++i) {
        first[i] = Sample(source[2 * i] >> shift);
        second[i] = Sample(source[2 * i + 1] >> shift);
    }
}

// From R'G'B' in units of `range` to ten-bit Y'CbCr in video range, with half a step for the rounding.
struct ColorMatrix {
    float red, green, blue;    // share of Y', scaled to 876 steps
    float blueScale, redScale; // of B' - Y' and R' - Y', both scaled to Y' steps

    ColorMatrix(int matrixCoefficients, float range) {
        const auto [kr, kb] = lumaShares(matrixCoefficients);
        red = kr * 876 / range;
        blue = kb * 876 / range;
        green = (1 - kr - kb) * 876 / range;
        blueScale = 896.0F / 876 / (2 * (1 - kb));
        redScale = 896.0F / 876 / (2 * (1 - kr));
        unit = 876 / range;
    }
    float unit; // of one component, in Y' steps

    static std::pair<float, float> lumaShares(int matrixCoefficients) {
        switch (matrixCoefficients) {
        case 5:
        case 6: return {0.299F, 0.114F};
        case 9: return {0.2627F, 0.0593F};
        default: return {0.2126F, 0.0722F};
        }
    }
};

constexpr float lumaOffset = 64.5F;
constexpr float chromaOffset = 512.5F;

struct ComponentRows {
    std::uint16_t *y, *cb, *cr, *alpha;
};

void convertRow(const std::uint8_t* __restrict bgra, const ColorMatrix& given, const ComponentRows& rows, int count) {
    const auto matrix = given;
    auto* __restrict y = rows.y;
    auto* __restrict cb = rows.cb;
    auto* __restrict cr = rows.cr;
    auto* __restrict alpha = rows.alpha;
    for (int i = 0; i < count; ++i) {
        const auto b = float(bgra[4 * i]), g = float(bgra[4 * i + 1]), r = float(bgra[4 * i + 2]);
        const float luma = matrix.red * r + matrix.green * g + matrix.blue * b;
        y[i] = std::uint16_t(int(luma + lumaOffset));
        cb[i] = std::uint16_t(int((matrix.unit * b - luma) * matrix.blueScale + chromaOffset));
        cr[i] = std::uint16_t(int((matrix.unit * r - luma) * matrix.redScale + chromaOffset));
        // a * 1023 / 255, rounded
        alpha[i] = std::uint16_t((bgra[4 * i + 3] * 1023 + 127) / 255);
    }
}

// A half-float, clipped to 0 … 1. Its exponent is rebased by a multiplication, which gets subnormals right as well.
float nominalValue(std::uint16_t half) {
    const float magnitude = std::bit_cast<float>(std::uint32_t(half & 0x7fff) << 13) * 0x1p112F;
    return (half & 0x8000) != 0 ? 0.0F : std::min(magnitude, 1.0F);
}

void convertRow(const std::uint16_t* __restrict rgba, const ColorMatrix& given, const ComponentRows& rows, int count) {
    const auto matrix = given;
    auto* __restrict y = rows.y;
    auto* __restrict cb = rows.cb;
    auto* __restrict cr = rows.cr;
    auto* __restrict alpha = rows.alpha;
    for (int i = 0; i < count; ++i) {
        const float r = nominalValue(rgba[4 * i]), g = nominalValue(rgba[4 * i + 1]), b = nominalValue(rgba[4 * i + 2]);
        const float luma = matrix.red * r + matrix.green * g + matrix.blue * b;
        y[i] = std::uint16_t(int(luma + lumaOffset));
        cb[i] = std::uint16_t(int((matrix.unit * b - luma) * matrix.blueScale + chromaOffset));
        cr[i] = std::uint16_t(int((matrix.unit * r - luma) * matrix.redScale + chromaOffset));
        alpha[i] = std::uint16_t(int(nominalValue(rgba[4 * i + 3]) * 1023 + 0.5F));
    }
}

template<class Sample>
void convertRows(const PixelBuffer& source, const PlanarPicture& target, const ColorMatrix& matrix) {
    for (int y = 0; y < source.height(); ++y) {
        const ComponentRows rows{targetRow<std::uint16_t>(target, 0, y), targetRow<std::uint16_t>(target, 1, y),
                                 targetRow<std::uint16_t>(target, 2, y), targetRow<std::uint16_t>(target, 3, y)};
        convertRow(sourceRow<Sample>(source.plane(0), y), matrix, rows, source.width());
    }
}

} // namespace

void splitPlanes(const PixelBuffer& source, const PlanarPicture& target) {
    const bool isTenBit = source.layout().bytesPerSample == 2;
    const auto& luma = source.plane(0);
    for (int y = 0; y < luma.height; ++y) {
        if (isTenBit)
            shiftRow(sourceRow<std::uint16_t>(luma, y), targetRow<std::uint16_t>(target, 0, y), luma.width);
        else
            std::memcpy(targetRow<std::byte>(target, 0, y), sourceRow<std::byte>(luma, y), std::size_t(luma.width));
    }
    const auto& chroma = source.plane(1);
    for (int y = 0; y < chroma.height; ++y) {
        if (isTenBit)
            partRow<spareBits>(sourceRow<std::uint16_t>(chroma, y), targetRow<std::uint16_t>(target, 1, y),
                               targetRow<std::uint16_t>(target, 2, y), chroma.width);
        else
            partRow<0>(sourceRow<std::uint8_t>(chroma, y), targetRow<std::uint8_t>(target, 1, y),
                       targetRow<std::uint8_t>(target, 2, y), chroma.width);
    }
}

void convertToYCbCrA(const PixelBuffer& source, const PlanarPicture& target, int matrix) {
    if (source.format() == pixelFormat::bgra)
        convertRows<std::uint8_t>(source, target, ColorMatrix(matrix, 255));
    else
        convertRows<std::uint16_t>(source, target, ColorMatrix(matrix, 1));
}

} // namespace panoveer
