#pragma once

#include "Panoveer/Model/Records/VideoColorMetadata.h"
#include "Panoveer/Rendering/Projection/ProjectionRenderer.h"

#include <array>

namespace panoveer {

// Nonlinear R'G'B' or linear RGB; 0…1 is the nominal range of both.
struct RGB {
    double r = 0;
    double g = 0;
    double b = 0;

    friend constexpr RGB operator*(RGB c, double s) { return {c.r * s, c.g * s, c.b * s}; }
};

// Y' 0…1 and the colour differences -0.5…0.5, nominally.
struct YCbCr {
    double y = 0;
    double cb = 0;
    double cr = 0;
};

// How Y'CbCr becomes whole numbers: code = offset + scale * value.
struct YCbCrCodeRange {
    double lumaOffset = 16;
    double lumaScale = 219;
    double chromaOffset = 128;
    double chromaScale = 224;
    double lowest = 0;
    double highest = 255;
};

using Matrix3 = std::array<std::array<double, 3>, 3>;

// Colour arithmetic in double precision: the definition that all engines are held to. All functions are pure.
//
// Colours are converted in display light: each transfer function stands for the light of its reference display, as
// graphics, SDR and HDR pictures are mixed by ITU-R BT.2408. BT.709 is therefore seen through the display of BT.1886,
// and 1.0 of linear light is SDR white, which in HDR is 203 cd/m2.
namespace VideoColorMath {

// ITU-R BT.2408-7, 2.1: HDR reference white, cd/m2.
inline constexpr double referenceWhite = 203;
// The nominal peak of HDR pictures, cd/m2: what HLG is defined at (ITU-R BT.2100-2, table 5) and what PQ is mastered
// at. Highlights above it come out as it.
inline constexpr double nominalPeak = 1000;

// The constants of SMPTE ST 2084:2014, 5.2.
inline constexpr double pqM1 = 2610.0 / 16384;
inline constexpr double pqM2 = 2523.0 / 4096 * 128;
inline constexpr double pqC1 = 3424.0 / 4096;
inline constexpr double pqC2 = 2413.0 / 4096 * 32;
inline constexpr double pqC3 = 2392.0 / 4096 * 32;
inline constexpr double pqPeak = 10000; // cd/m2

// The constants of ITU-R BT.2100-2, table 5.
inline constexpr double hlgA = 0.17883277;
inline constexpr double hlgB = 1 - 4 * hlgA;
inline constexpr double hlgC = 0.55991072952956202; // 0.5 - a ln(4 a)
inline constexpr double hlgDisplayGamma = 1.2;      // at the nominal peak

inline constexpr double bt1886Gamma = 2.4;

// ITU-R BT.709-6 3.2-3.5, BT.601-7 2.5, BT.2020-2 table 4 (non-constant luminance).
RGB rgbFromYCbCr(const YCbCr& color, VideoYCbCrMatrix matrix);
YCbCr yCbCrFromRGB(const RGB& color, VideoYCbCrMatrix matrix);

// ITU-R BT.709-6 3.4, BT.2100-2 table 9. `lowest` and `highest` leave out the codes that video range reserves.
YCbCrCodeRange codeRange(int bits, bool isFullRange);

// SMPTE ST 2084:2014, 5.2 and 5.3: signal 0…1 to cd/m2 and back.
double pqEOTF(double signal);
double pqInverseEOTF(double nits);
// ITU-R BT.2100-2, table 5: scene light 0…1 to signal 0…1 and back.
double hlgOETF(double sceneLight);
double hlgInverseOETF(double signal);
// IEC 61966-2-1:1999, 5.2.
double sRGBToLinear(double signal);
double sRGBFromLinear(double linear);
// ITU-R BT.1886, annex 1, with a black of zero.
double bt1886EOTF(double signal);
double bt1886InverseEOTF(double linear);

// Signal to display light in units of SDR white, channels together, since HLG's display gamma (ITU-R BT.2100-2, table
// 5) works on luminance.
RGB displayLight(const RGB& signal, VideoTransferFunction transfer, VideoColorPrimaries primaries);
RGB signalForDisplayLight(const RGB& light, VideoTransferFunction transfer, VideoColorPrimaries primaries);

// Linear RGB of one set of primaries to that of another; all have the white point D65 (SMPTE RP 177).
Matrix3 primariesConversion(VideoColorPrimaries from, VideoColorPrimaries to);
RGB multiply(const Matrix3& matrix, const RGB& color);
// The luminance weights of the primaries.
RGB luminanceWeights(VideoColorPrimaries primaries);

// ITU-R BT.2390-11, 5.4.1 (EETF) with both blacks at zero: cd/m2 of a display with `sourcePeak` to cd/m2 of one with
// `targetPeak`.
double bt2390ToneMapped(double nits, double sourcePeak, double targetPeak);

// What is added to a code before it is rounded, -0.5…0.5, where a picture goes to fewer bits: flat areas keep their
// mean and gradients do not show steps. The ordered pattern of Bayer (1973) over 8 by 8 samples; it does not change
// from picture to picture, so that encoders see no noise. Cr takes the offset of the next column.
double ditherOffset(int column, int row);
// Whether an output of 8-bit Y'CbCr is dithered for a source with samples of this many bytes.
constexpr bool dithers(int sourceBytesPerSample, int outputBytesPerSample) {
    return sourceBytesPerSample == 2 && outputBytesPerSample == 1;
}

VideoYCbCrMatrix outputMatrix(VRColorOutputMode mode);
VideoColorPrimaries outputPrimaries(VRColorOutputMode mode);
VideoTransferFunction outputTransferFunction(VRColorOutputMode mode);

} // namespace VideoColorMath

// From the colours of a source to those of an output. A value; safe from any thread.
class ColorConversion {
public:
    ColorConversion(VideoColorPrimaries primaries, VideoTransferFunction transfer, VRColorOutputMode mode);

    VideoColorPrimaries primaries() const { return primaries_; }
    VideoTransferFunction transferFunction() const { return transfer_; }
    VRColorOutputMode outputMode() const { return mode_; }
    const Matrix3& toOutputPrimaries() const { return toOutputPrimaries_; }

    // True when R'G'B' stays what it is: no light is computed then, and nothing is lost.
    bool isIdentity() const { return isIdentity_; }
    // True when even Y'CbCr stays what it is.
    bool keepsYCbCr(VideoYCbCrMatrix sourceMatrix) const;

    // R'G'B' of the source to R'G'B' of the output, 0…1 unless it is the identity.
    RGB operator()(const RGB& signal) const;

private:
    VideoColorPrimaries primaries_;
    VideoTransferFunction transfer_;
    VRColorOutputMode mode_;
    bool isIdentity_;
    Matrix3 toOutputPrimaries_;
};

} // namespace panoveer
