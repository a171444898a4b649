#include "Platform/Media/EncoderKernels.h"

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstring>
#include <utility>

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

// From R'G'B' in units of `range` to Y'CbCr in steps of 12-bit video range.
struct ColorMatrix {
    float red, green, blue;    // share of each in Y', in its steps
    float unit;                // of a whole component, in steps of Y'
    float blueScale, redScale; // from steps of Y' to those of Cb and Cr

    ColorMatrix(int matrixCoefficients, float range) : unit(lumaSteps / range) {
        const auto [kr, kb] = lumaShares(matrixCoefficients);
        red = kr * unit;
        blue = kb * unit;
        green = (1 - kr - kb) * unit;
        blueScale = chromaSteps / lumaSteps / (2 * (1 - kb));
        redScale = chromaSteps / lumaSteps / (2 * (1 - kr));
    }

    static constexpr float lumaSteps = 219 * 16;
    static constexpr float chromaSteps = 224 * 16;

    static std::pair<float, float> lumaShares(int matrixCoefficients) {
        switch (matrixCoefficients) {
        case 5:
        case 6: return {0.299F, 0.114F};
        case 9: return {0.2627F, 0.0593F};
        default: return {0.2126F, 0.0722F};
        }
    }
};

constexpr float middle = 2048;
constexpr float black = 256 - middle;

// Red, green and blue as they are numbered in the source; alpha in its own steps.
struct Pixel {
    float red, green, blue, alpha;
};

// BGRA
Pixel readPixel(const std::uint8_t* samples) {
    return {float(samples[2]), float(samples[1]), float(samples[0]), float(samples[3])};
}

// A half-float, clipped to 0 … 1: the bits of halves that are not negative rise with their values, and those of
// negative ones are negative. The exponent is rebased by a multiplication, which gets subnormals right as well.
float nominalValue(std::uint16_t half) {
    constexpr std::int16_t one = 0x3c00;
    const auto bits = std::int16_t(half);
    const auto clipped = std::max<std::int16_t>(std::min<std::int16_t>(bits, one), 0);
    return std::bit_cast<float>(std::uint32_t(clipped) << 13) * 0x1p112F;
}

// RGhA
Pixel readPixel(const std::uint16_t* samples) {
    return {nominalValue(samples[0]), nominalValue(samples[1]), nominalValue(samples[2]),
            nominalValue(samples[3]) * 65535};
}

template<class Sample>
void readColorRow(const Sample* __restrict source, const ColorMatrix& given, const ComponentRows& rows, int count) {
    const auto matrix = given; // a copy, which the compiler knows not to alias the rows
    auto* __restrict y = rows.y;
    auto* __restrict cb = rows.cb;
    auto* __restrict cr = rows.cr;
    auto* __restrict alpha = rows.alpha;
    for (int i = 0; i < count; ++i) {
        const auto pixel = readPixel(source + 4 * std::ptrdiff_t(i));
        const float luma = matrix.red * pixel.red + matrix.green * pixel.green + matrix.blue * pixel.blue;
        y[i] = luma + black;
        cb[i] = (matrix.unit * pixel.blue - luma) * matrix.blueScale;
        cr[i] = (matrix.unit * pixel.red - luma) * matrix.redScale;
        alpha[i] = std::uint16_t(int(pixel.alpha + 0.5F));
    }
}

// Samples in the high bits of words.
void readLumaRow(const std::uint16_t* __restrict source, float* __restrict y, int count) {
    for (int i = 0; i < count; ++i)
        y[i] = float(source[i]) / 16 - middle;
}

void readChromaRow(const std::uint16_t* __restrict source, float* __restrict cb, float* __restrict cr, int count) {
    for (int i = 0; i < count; ++i) {
        cb[i] = float(source[2 * i]) / 16 - middle;
        cr[i] = float(source[2 * i + 1]) / 16 - middle;
    }
}

// What one chroma sample of 4:2:0 sees of a row: columns -1, 0 and 1 around its own, the outermost ones repeated.
struct ChromaWindow {
    int red = 0, green = 0, blue = 0;

    void add(const std::uint8_t* row, int column, int lastColumn) {
        addPixel(row, std::max(column - 1, 0), 1);
        addPixel(row, column, 2);
        addPixel(row, std::min(column + 1, lastColumn), 1);
    }
    void addPixel(const std::uint8_t* row, int column, int weight) {
        const auto* pixel = row + 4 * std::ptrdiff_t(column);
        blue += weight * pixel[0];
        green += weight * pixel[1];
        red += weight * pixel[2];
    }
};

constexpr float chromaWindowWeight = 8; // 1 2 1, in two rows
// From twelve-bit steps to those of eight bits.
constexpr float eightBitSteps = 1.0F / 16;
constexpr float lumaOffset8 = 16.5F;
constexpr float chromaOffset8 = 128.5F;

void convertLumaRow(const std::uint8_t* __restrict source, const ColorMatrix& given, std::uint8_t* __restrict y,
                    std::uint8_t* __restrict alpha, int count) {
    const auto matrix = given;
    for (int i = 0; i < count; ++i) {
        const auto* pixel = source + 4 * std::ptrdiff_t(i);
        const float luma = matrix.red * pixel[2] + matrix.green * pixel[1] + matrix.blue * pixel[0];
        y[i] = std::uint8_t(int(luma + lumaOffset8));
        alpha[i] = pixel[3];
    }
}

} // namespace

void convertToYCbCrA420(const PixelBuffer& source, const PlanarPicture& target, int matrixCoefficients) {
    const ColorMatrix matrix(matrixCoefficients, 255 / eightBitSteps);
    const ColorMatrix chromaMatrix(matrixCoefficients, 255 / eightBitSteps * chromaWindowWeight);
    const auto& plane = source.plane(0);
    for (int y = 0; y < source.height(); ++y)
        convertLumaRow(sourceRow<std::uint8_t>(plane, y), matrix, targetRow<std::uint8_t>(target, 0, y),
                       targetRow<std::uint8_t>(target, 3, y), source.width());
    for (int y = 0; y < source.height() / 2; ++y) {
        const auto* upper = sourceRow<std::uint8_t>(plane, 2 * y);
        const auto* lower = sourceRow<std::uint8_t>(plane, 2 * y + 1);
        auto* cb = targetRow<std::uint8_t>(target, 1, y);
        auto* cr = targetRow<std::uint8_t>(target, 2, y);
        for (int x = 0; x < source.width() / 2; ++x) {
            ChromaWindow window;
            window.add(upper, 2 * x, source.width() - 1);
            window.add(lower, 2 * x, source.width() - 1);
            const float luma = chromaMatrix.red * float(window.red) + chromaMatrix.green * float(window.green) +
                               chromaMatrix.blue * float(window.blue);
            cb[x] = std::uint8_t(
                int((chromaMatrix.unit * float(window.blue) - luma) * chromaMatrix.blueScale + chromaOffset8));
            cr[x] = std::uint8_t(
                int((chromaMatrix.unit * float(window.red) - luma) * chromaMatrix.redScale + chromaOffset8));
        }
    }
}

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

void readComponents(const PixelBuffer& source, int x, int y, int count, int matrix, const ComponentRows& rows) {
    const auto& plane = source.plane(0);
    if (source.format() == pixelFormat::bgra) {
        readColorRow(sourceRow<std::uint8_t>(plane, y) + 4 * std::ptrdiff_t(x), ColorMatrix(matrix, 255), rows, count);
    } else if (source.format() == pixelFormat::rgbaHalf) {
        readColorRow(sourceRow<std::uint16_t>(plane, y) + 4 * std::ptrdiff_t(x), ColorMatrix(matrix, 1), rows, count);
    } else {
        readLumaRow(sourceRow<std::uint16_t>(plane, y) + x, rows.y, count);
        readChromaRow(sourceRow<std::uint16_t>(source.plane(1), y) + x, rows.cb, rows.cr, (count + 1) / 2);
    }
}

} // namespace panoveer
