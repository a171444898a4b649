#include "Platform/Media/BGRAEncoderKernel.h"

#include <cstdint>
#include <utility>
#include <vector>

namespace panoveer {

namespace {

// Shares of red and blue in Y' (Rec. ITU-T H.273, table 4).
std::pair<float, float> lumaShares(int matrixCoefficients) {
    switch (matrixCoefficients) {
    case 5:
    case 6: return {0.299F, 0.114F};
    case 9: return {0.2627F, 0.0593F};
    default: return {0.2126F, 0.0722F};
    }
}

// From 8-bit R'G'B' to steps of video range.
struct Matrix {
    float red, green, blue;    // of Y'
    float blueScale, redScale; // of Cb and Cr, from differences in steps of Y'
    float unit;                // of a component, in steps of Y'

    explicit Matrix(int matrixCoefficients) {
        constexpr float lumaSteps = 219, chromaSteps = 224;
        const auto [kr, kb] = lumaShares(matrixCoefficients);
        unit = lumaSteps / 255;
        red = kr * unit;
        blue = kb * unit;
        green = (1 - kr - kb) * unit;
        blueScale = chromaSteps / lumaSteps / (2 * (1 - kb));
        redScale = chromaSteps / lumaSteps / (2 * (1 - kr));
    }
};

constexpr float lumaOffset = 16.5F; // with half a step for the rounding
constexpr float chromaOffset = 128.5F;

void lumaRow(const std::uint8_t* __restrict bgra, std::uint8_t* __restrict luma, const Matrix& given, int count) {
    const auto matrix = given;
    for (int i = 0; i < count; ++i)
        luma[i] = std::uint8_t(matrix.blue * float(bgra[4 * i]) + matrix.green * float(bgra[4 * i + 1]) +
                               matrix.red * float(bgra[4 * i + 2]) + lumaOffset);
}

// Red, green and blue of two rows together, at 1 … count; the column before the first repeats it.
struct SummedRow {
    explicit SummedRow(int width) : red(std::size_t(width) + 1), green(red.size()), blue(red.size()) {}

    std::vector<int> red, green, blue;

    void sum(const std::uint8_t* __restrict upper, const std::uint8_t* __restrict lower, int count) {
        int* __restrict r = red.data() + 1;
        int* __restrict g = green.data() + 1;
        int* __restrict b = blue.data() + 1;
        for (int i = 0; i < count; ++i) {
            b[i] = upper[4 * i] + lower[4 * i];
            g[i] = upper[4 * i + 1] + lower[4 * i + 1];
            r[i] = upper[4 * i + 2] + lower[4 * i + 2];
        }
        red[0] = red[1];
        green[0] = green[1];
        blue[0] = blue[1];
    }
};

// Weights 1, 2, 1 about each even column.
void chromaRows(const SummedRow& row, std::uint8_t* __restrict cb, std::uint8_t* __restrict cr, const Matrix& given,
                int count) {
    const auto matrix = given;
    const auto weighted = [](const int* samples) { return float(samples[0] + 2 * samples[1] + samples[2]) / 8; };
    const int* __restrict red = row.red.data();
    const int* __restrict green = row.green.data();
    const int* __restrict blue = row.blue.data();
    for (int i = 0; i < count; ++i) {
        const float r = weighted(red + 2 * i), g = weighted(green + 2 * i), b = weighted(blue + 2 * i);
        const float luma = matrix.red * r + matrix.green * g + matrix.blue * b;
        cb[i] = std::uint8_t((matrix.unit * b - luma) * matrix.blueScale + chromaOffset);
        cr[i] = std::uint8_t((matrix.unit * r - luma) * matrix.redScale + chromaOffset);
    }
}

std::uint8_t* rowOf(const PlanarPicture& picture, std::size_t plane, int y) {
    return reinterpret_cast<std::uint8_t*>(picture.data[plane] + y * picture.rowBytes[plane]);
}

} // namespace

void convertToYCbCr420(const PixelBuffer& source, const PlanarPicture& target, int matrixCoefficients) {
    const Matrix matrix(matrixCoefficients);
    const auto& plane = source.plane(0);
    SummedRow summed(plane.width);
    for (int y = 0; y + 1 < plane.height; y += 2) {
        const auto* upper = reinterpret_cast<const std::uint8_t*>(plane.data + std::size_t(y) * plane.rowBytes);
        const auto* lower = upper + plane.rowBytes;
        lumaRow(upper, rowOf(target, 0, y), matrix, plane.width);
        lumaRow(lower, rowOf(target, 0, y + 1), matrix, plane.width);
        summed.sum(upper, lower, plane.width);
        chromaRows(summed, rowOf(target, 1, y / 2), rowOf(target, 2, y / 2), matrix, plane.width / 2);
    }
}

} // namespace panoveer
