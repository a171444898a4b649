#include "Panoveer/Rendering/Projection/VideoColorMath.h"

#include <algorithm>
#include <cmath>

namespace panoveer {

namespace VideoColorMath {

namespace {

struct LumaWeights {
    double red = 0;
    double blue = 0;
};

LumaWeights lumaWeights(VideoYCbCrMatrix matrix) {
    switch (matrix) {
    case VideoYCbCrMatrix::bt601: return {0.299, 0.114};
    case VideoYCbCrMatrix::bt709: return {0.2126, 0.0722};
    case VideoYCbCrMatrix::bt2020: return {0.2627, 0.0593};
    }
    return {};
}

struct Chromaticity {
    double x = 0;
    double y = 0;
};

struct Primaries {
    Chromaticity red;
    Chromaticity green;
    Chromaticity blue;
};

constexpr Chromaticity whiteD65{0.3127, 0.3290};

// ITU-R BT.709-6 1.3, BT.2020-2 table 3, SMPTE EG 432-1.
Primaries chromaticities(VideoColorPrimaries primaries) {
    switch (primaries) {
    case VideoColorPrimaries::bt709: return {{0.640, 0.330}, {0.300, 0.600}, {0.150, 0.060}};
    case VideoColorPrimaries::bt2020: return {{0.708, 0.292}, {0.170, 0.797}, {0.131, 0.046}};
    case VideoColorPrimaries::p3D65: return {{0.680, 0.320}, {0.265, 0.690}, {0.150, 0.060}};
    }
    return {};
}

Matrix3 inverse(const Matrix3& m) {
    const auto minor = [&](std::size_t row, std::size_t column) {
        const auto r0 = (row + 1) % 3, r1 = (row + 2) % 3, c0 = (column + 1) % 3, c1 = (column + 2) % 3;
        return m[r0][c0] * m[r1][c1] - m[r0][c1] * m[r1][c0];
    };
    const double determinant = m[0][0] * minor(0, 0) + m[0][1] * minor(0, 1) + m[0][2] * minor(0, 2);
    Matrix3 result{};
    for (std::size_t row = 0; row < 3; ++row)
        for (std::size_t column = 0; column < 3; ++column)
            result[column][row] = minor(row, column) / determinant;
    return result;
}

// Linear RGB to CIE XYZ with the white's Y = 1 (SMPTE RP 177:1993, 3.3).
Matrix3 toXYZ(VideoColorPrimaries primaries) {
    const auto p = chromaticities(primaries);
    Matrix3 m{};
    std::size_t column = 0;
    for (const auto& c : {p.red, p.green, p.blue}) {
        m[0][column] = c.x / c.y;
        m[1][column] = 1;
        m[2][column] = (1 - c.x - c.y) / c.y;
        ++column;
    }
    const auto gains = multiply(inverse(m), {whiteD65.x / whiteD65.y, 1, (1 - whiteD65.x - whiteD65.y) / whiteD65.y});
    for (auto& row : m)
        row = {row[0] * gains.r, row[1] * gains.g, row[2] * gains.b};
    return m;
}

RGB mapped(const RGB& color, double (*function)(double)) {
    return {function(color.r), function(color.g), function(color.b)};
}

RGB clamped(const RGB& color) {
    return {std::clamp(color.r, 0.0, 1.0), std::clamp(color.g, 0.0, 1.0), std::clamp(color.b, 0.0, 1.0)};
}

double luminance(const RGB& light, VideoColorPrimaries primaries) {
    const auto w = luminanceWeights(primaries);
    return w.r * light.r + w.g * light.g + w.b * light.b;
}

} // namespace

RGB rgbFromYCbCr(const YCbCr& color, VideoYCbCrMatrix matrix) {
    const auto w = lumaWeights(matrix);
    const double r = color.y + 2 * (1 - w.red) * color.cr;
    const double b = color.y + 2 * (1 - w.blue) * color.cb;
    return {r, (color.y - w.red * r - w.blue * b) / (1 - w.red - w.blue), b};
}

YCbCr yCbCrFromRGB(const RGB& color, VideoYCbCrMatrix matrix) {
    const auto w = lumaWeights(matrix);
    const double y = w.red * color.r + (1 - w.red - w.blue) * color.g + w.blue * color.b;
    return {y, (color.b - y) / (2 * (1 - w.blue)), (color.r - y) / (2 * (1 - w.red))};
}

YCbCrCodeRange codeRange(int bits, bool isFullRange) {
    const double step = 1 << (bits - 8);
    if (isFullRange) {
        const double highest = 256 * step - 1;
        return {0, highest, 128 * step, highest, 0, highest};
    }
    return {16 * step, 219 * step, 128 * step, 224 * step, step, 255 * step - 1};
}

double pqEOTF(double signal) {
    const double p = std::pow(std::max(signal, 0.0), 1 / pqM2);
    return pqPeak * std::pow(std::max(p - pqC1, 0.0) / (pqC2 - pqC3 * p), 1 / pqM1);
}

double pqInverseEOTF(double nits) {
    const double p = std::pow(std::max(nits, 0.0) / pqPeak, pqM1);
    return std::pow((pqC1 + pqC2 * p) / (1 + pqC3 * p), pqM2);
}

double hlgOETF(double sceneLight) {
    const double e = std::max(sceneLight, 0.0);
    return e <= 1.0 / 12 ? std::sqrt(3 * e) : hlgA * std::log(12 * e - hlgB) + hlgC;
}

double hlgInverseOETF(double signal) {
    const double e = std::max(signal, 0.0);
    return e <= 0.5 ? e * e / 3 : (std::exp((e - hlgC) / hlgA) + hlgB) / 12;
}

double sRGBToLinear(double signal) {
    return signal <= 0.04045 ? signal / 12.92 : std::pow((signal + 0.055) / 1.055, 2.4);
}

double sRGBFromLinear(double linear) {
    return linear <= 0.0031308 ? linear * 12.92 : 1.055 * std::pow(linear, 1 / 2.4) - 0.055;
}

double bt1886EOTF(double signal) { return std::pow(std::max(signal, 0.0), bt1886Gamma); }

double bt1886InverseEOTF(double linear) { return std::pow(std::max(linear, 0.0), 1 / bt1886Gamma); }

RGB displayLight(const RGB& signal, VideoTransferFunction transfer, VideoColorPrimaries primaries) {
    switch (transfer) {
    case VideoTransferFunction::bt709: return mapped(signal, bt1886EOTF);
    case VideoTransferFunction::sRGB: return mapped(signal, sRGBToLinear);
    case VideoTransferFunction::linear: return signal;
    case VideoTransferFunction::pq: return mapped(signal, pqEOTF) * (1 / referenceWhite);
    case VideoTransferFunction::hlg: {
        const auto scene = mapped(signal, hlgInverseOETF);
        const double y = std::max(luminance(scene, primaries), 0.0);
        return scene * (std::pow(y, hlgDisplayGamma - 1) * nominalPeak / referenceWhite);
    }
    }
    return signal;
}

RGB signalForDisplayLight(const RGB& light, VideoTransferFunction transfer, VideoColorPrimaries primaries) {
    switch (transfer) {
    case VideoTransferFunction::bt709: return mapped(light, bt1886InverseEOTF);
    case VideoTransferFunction::sRGB: return mapped(light, sRGBFromLinear);
    case VideoTransferFunction::linear: return light;
    case VideoTransferFunction::pq: return mapped(light * referenceWhite, pqInverseEOTF);
    case VideoTransferFunction::hlg: {
        const auto display = light * (referenceWhite / nominalPeak);
        const double y = luminance(display, primaries);
        const double gain = y > 0 ? std::pow(y, 1 / hlgDisplayGamma - 1) : 0;
        return mapped(display * gain, hlgOETF);
    }
    }
    return light;
}

Matrix3 primariesConversion(VideoColorPrimaries from, VideoColorPrimaries to) {
    const auto source = toXYZ(from);
    const auto target = inverse(toXYZ(to));
    Matrix3 result{};
    for (std::size_t row = 0; row < 3; ++row)
        for (std::size_t column = 0; column < 3; ++column)
            for (std::size_t k = 0; k < 3; ++k)
                result[row][column] += target[row][k] * source[k][column];
    return result;
}

RGB multiply(const Matrix3& m, const RGB& c) {
    return {m[0][0] * c.r + m[0][1] * c.g + m[0][2] * c.b, m[1][0] * c.r + m[1][1] * c.g + m[1][2] * c.b,
            m[2][0] * c.r + m[2][1] * c.g + m[2][2] * c.b};
}

RGB luminanceWeights(VideoColorPrimaries primaries) {
    const auto y = toXYZ(primaries)[1];
    return {y[0], y[1], y[2]};
}

double bt2390ToneMapped(double nits, double sourcePeak, double targetPeak) {
    const double sourceMaximum = pqInverseEOTF(sourcePeak);
    const double targetMaximum = pqInverseEOTF(targetPeak) / sourceMaximum;
    const double kneeStart = 1.5 * targetMaximum - 0.5;
    const double e1 = std::min(pqInverseEOTF(nits) / sourceMaximum, 1.0);
    if (e1 < kneeStart)
        return nits;
    const double t = (e1 - kneeStart) / (1 - kneeStart);
    const double t2 = t * t;
    const double t3 = t2 * t;
    const double e2 =
        (2 * t3 - 3 * t2 + 1) * kneeStart + (t3 - 2 * t2 + t) * (1 - kneeStart) + (-2 * t3 + 3 * t2) * targetMaximum;
    return pqEOTF(e2 * sourceMaximum);
}

double ditherOffset(int column, int row) {
    int rank = 0;
    for (int bit = 0; bit < 3; ++bit)
        rank = rank << 2 | ((column ^ row) >> bit & 1) << 1 | (row >> bit & 1);
    return (rank + 0.5) / 64 - 0.5;
}

VideoYCbCrMatrix outputMatrix(VRColorOutputMode mode) {
    return mode == VRColorOutputMode::sdr ? VideoYCbCrMatrix::bt709 : VideoYCbCrMatrix::bt2020;
}

VideoColorPrimaries outputPrimaries(VRColorOutputMode mode) {
    return mode == VRColorOutputMode::sdr ? VideoColorPrimaries::bt709 : VideoColorPrimaries::bt2020;
}

VideoTransferFunction outputTransferFunction(VRColorOutputMode mode) {
    switch (mode) {
    case VRColorOutputMode::sdr: return VideoTransferFunction::bt709;
    case VRColorOutputMode::preserveHDR: return VideoTransferFunction::pq;
    case VRColorOutputMode::hdrHLG: return VideoTransferFunction::hlg;
    }
    return VideoTransferFunction::bt709;
}

} // namespace VideoColorMath

using namespace VideoColorMath;

ColorConversion::ColorConversion(VideoColorPrimaries primaries, VideoTransferFunction transfer, VRColorOutputMode mode)
    : primaries_(primaries),
      transfer_(transfer),
      mode_(mode),
      isIdentity_(primaries == outputPrimaries(mode) && transfer == outputTransferFunction(mode)),
      toOutputPrimaries_(primariesConversion(primaries, outputPrimaries(mode))) {}

bool ColorConversion::keepsYCbCr(VideoYCbCrMatrix sourceMatrix) const {
    return isIdentity_ && sourceMatrix == outputMatrix(mode_);
}

RGB ColorConversion::operator()(const RGB& signal) const {
    if (isIdentity_)
        return signal;
    auto light = displayLight(clamped(signal), transfer_, primaries_);
    if (primaries_ != outputPrimaries(mode_))
        light = multiply(toOutputPrimaries_, light);
    light = {std::max(light.r, 0.0), std::max(light.g, 0.0), std::max(light.b, 0.0)};

    // Highlights are brought into the output's range by their strongest channel, all three alike, so that they keep
    // their hue.
    const double strongest = std::max({light.r, light.g, light.b});
    const bool isHDRSource = transfer_ == VideoTransferFunction::pq || transfer_ == VideoTransferFunction::hlg;
    if (mode_ == VRColorOutputMode::sdr && isHDRSource && strongest > 0) {
        const double target = bt2390ToneMapped(strongest * referenceWhite, nominalPeak, referenceWhite);
        light = light * (target / (strongest * referenceWhite));
    } else if (mode_ == VRColorOutputMode::hdrHLG && strongest * referenceWhite > nominalPeak) {
        light = light * (nominalPeak / (strongest * referenceWhite));
    }
    return clamped(signalForDisplayLight(light, outputTransferFunction(mode_), outputPrimaries(mode_)));
}

} // namespace panoveer
