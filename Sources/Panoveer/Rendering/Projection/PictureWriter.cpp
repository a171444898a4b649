#include "Panoveer/Rendering/Projection/PictureWriter.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>

namespace panoveer {

namespace {

std::byte byteOf(double value) { return std::byte(std::floor(std::clamp(value, 0.0, 1.0) * 255 + 0.5)); }

// IEEE 754 binary16, rounded to nearest even, for 0…1.
std::uint16_t halfOf(double value) {
    const double limited = std::clamp(value, 0.0, 1.0);
    if (limited < 0x1p-14)
        return std::uint16_t(std::nearbyint(limited * 0x1p24));
    int exponent = 0;
    const double mantissa = std::frexp(limited, &exponent) * 2 - 1;
    // A mantissa that rounds up to one carries into the exponent by itself.
    return std::uint16_t(((exponent + 14) << 10) + int(std::nearbyint(mantissa * 1024)));
}

} // namespace

PictureWriter::PictureWriter(PixelBuffer& buffer, VideoYCbCrMatrix matrix, bool dithersYCbCr)
    : buffer_(buffer),
      matrix_(matrix),
      dithersYCbCr_(dithersYCbCr),
      range_(VideoColorMath::codeRange(buffer.layout().bytesPerSample == 1 ? 8 : 10, buffer.layout().isFullRange)) {}

void PictureWriter::writeColor(int x, int y, const RGB& color, double alpha) {
    const auto& plane = buffer_.plane(0);
    auto* row = plane.data + std::size_t(y) * plane.rowBytes;
    if (buffer_.layout().bytesPerSample == 1) {
        const std::array<std::byte, 4> pixel{byteOf(color.b), byteOf(color.g), byteOf(color.r), byteOf(alpha)};
        std::memcpy(row + std::size_t(x) * pixel.size(), pixel.data(), sizeof pixel);
    } else {
        const std::array<std::uint16_t, 4> pixel{halfOf(color.r), halfOf(color.g), halfOf(color.b), halfOf(alpha)};
        std::memcpy(row + std::size_t(x) * sizeof pixel, pixel.data(), sizeof pixel);
    }
}

void PictureWriter::writeCode(int plane, int sample, int row, double code) {
    const auto& target = buffer_.plane(plane);
    auto* at = target.data + std::size_t(row) * target.rowBytes + std::size_t(sample * buffer_.layout().bytesPerSample);
    if (dithersYCbCr_)
        code += VideoColorMath::ditherOffset(plane == 1 ? sample / 2 + sample % 2 : sample, row);
    const auto whole = std::uint16_t(std::floor(std::clamp(code, range_.lowest, range_.highest) + 0.5));
    if (buffer_.layout().bytesPerSample == 1) {
        *at = std::byte(whole);
    } else {
        const auto word = std::uint16_t(whole << 6);
        std::memcpy(at, &word, sizeof word);
    }
}

void PictureWriter::writeLuma(int x, int y, double luma) {
    writeCode(0, x, y, range_.lumaOffset + range_.lumaScale * luma);
}

void PictureWriter::writeLuma(int x, int y, const RGB& color) {
    writeLuma(x, y, VideoColorMath::yCbCrFromRGB(color, matrix_).y);
}

void PictureWriter::writeChroma(int column, int row, double cb, double cr) {
    writeCode(1, 2 * column, row, range_.chromaOffset + range_.chromaScale * cb);
    writeCode(1, 2 * column + 1, row, range_.chromaOffset + range_.chromaScale * cr);
}

void PictureWriter::writeChroma(int column, int row, const RGB& color) {
    const auto value = VideoColorMath::yCbCrFromRGB(color, matrix_);
    writeChroma(column, row, value.cb, value.cr);
}

} // namespace panoveer
