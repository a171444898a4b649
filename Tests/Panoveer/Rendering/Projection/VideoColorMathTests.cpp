#include "Panoveer/Rendering/Projection/VideoColorMath.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

namespace panoveer {

using namespace VideoColorMath;
using enum VideoColorPrimaries;

namespace {

void expectNear(const RGB& actual, const RGB& expected, double tolerance) {
    EXPECT_NEAR(actual.r, expected.r, tolerance);
    EXPECT_NEAR(actual.g, expected.g, tolerance);
    EXPECT_NEAR(actual.b, expected.b, tolerance);
}

struct CurvePoint {
    const char* name;
    double (*function)(double);
    double (*inverse)(double);
    double in;
    double out;
    double tolerance;
};

class PublishedCurves : public testing::TestWithParam<CurvePoint> {};

TEST_P(PublishedCurves, PassThroughTheirPublishedPoints) {
    const auto& p = GetParam();
    EXPECT_NEAR(p.function(p.in), p.out, p.tolerance);
    EXPECT_NEAR(p.inverse(p.function(p.in)), p.in, 1e-9 * std::max(p.in, 1.0));
}

INSTANTIATE_TEST_SUITE_P(
    VideoColorMath, PublishedCurves,
    testing::Values(
        // ITU-R BT.2408-7, table 1 and annex 1: 58 % PQ and 75 % HLG for reference white, 75 % PQ for 1000 cd/m2.
        CurvePoint{"pqReferenceWhite", pqInverseEOTF, pqEOTF, 203, 0.5807, 5e-5},
        CurvePoint{"pq100", pqInverseEOTF, pqEOTF, 100, 0.5081, 5e-5},
        CurvePoint{"pq1000", pqInverseEOTF, pqEOTF, 1000, 0.7518, 5e-5},
        CurvePoint{"pqPeak", pqInverseEOTF, pqEOTF, 10000, 1, 1e-12},
        CurvePoint{"pqBlack", pqInverseEOTF, pqEOTF, 0, 0, 1e-6},
        CurvePoint{"hlgKnee", hlgOETF, hlgInverseOETF, 1.0 / 12, 0.5, 1e-12},
        CurvePoint{"hlgWhite", hlgOETF, hlgInverseOETF, 1, 1, 1e-7},
        CurvePoint{"hlgReferenceWhite", hlgOETF, hlgInverseOETF, 0.2650, 0.75, 1e-4},
        CurvePoint{"sRGBMiddle", sRGBToLinear, sRGBFromLinear, 0.5, 0.21404, 1e-5},
        CurvePoint{"sRGBNearBlack", sRGBToLinear, sRGBFromLinear, 0.02, 0.02 / 12.92, 1e-12},
        CurvePoint{"bt1886Middle", bt1886EOTF, bt1886InverseEOTF, 0.5, 0.18946, 1e-5}),
    [](const auto& test) { return std::string(test.param.name); });

TEST(VideoColorMath, MakesTheCodesOfColorBars) {
    struct Bar {
        RGB color;
        int bt709[3]; // SMPTE RP 219-1:2014, 75 % bars
        int bt601[3]; // SMPTE EG 1:1990
    };
    const auto range = codeRange(8, false);
    for (const auto& bar :
         {Bar{{1, 1, 0}, {168, 44, 136}, {162, 44, 142}}, Bar{{0, 1, 1}, {145, 147, 44}, {131, 156, 44}},
          Bar{{0, 1, 0}, {133, 63, 52}, {112, 72, 58}}, Bar{{1, 0, 1}, {63, 193, 204}, {84, 184, 198}},
          Bar{{1, 0, 0}, {51, 109, 212}, {65, 100, 212}}, Bar{{0, 0, 1}, {28, 212, 120}, {35, 212, 114}}}) {
        for (const bool is709 : {true, false}) {
            const auto matrix = is709 ? VideoYCbCrMatrix::bt709 : VideoYCbCrMatrix::bt601;
            const auto* expected = is709 ? bar.bt709 : bar.bt601;
            const auto value = yCbCrFromRGB(bar.color * 0.75, matrix);
            EXPECT_EQ(std::lround(range.lumaOffset + range.lumaScale * value.y), expected[0]);
            EXPECT_EQ(std::lround(range.chromaOffset + range.chromaScale * value.cb), expected[1]);
            EXPECT_EQ(std::lround(range.chromaOffset + range.chromaScale * value.cr), expected[2]);
            expectNear(rgbFromYCbCr(value, matrix), bar.color * 0.75, 1e-12);
        }
    }
    const auto white2020 = yCbCrFromRGB({1, 1, 1}, VideoYCbCrMatrix::bt2020);
    EXPECT_NEAR(white2020.y, 1, 1e-12);
    EXPECT_NEAR(yCbCrFromRGB({1, 0, 0}, VideoYCbCrMatrix::bt2020).cr, 0.5, 1e-12);
    EXPECT_NEAR(yCbCrFromRGB({0, 0, 1}, VideoYCbCrMatrix::bt2020).cb, 0.5, 1e-12);
}

TEST(VideoColorMath, KnowsTheCodesOfEveryRange) {
    struct Row {
        int bits;
        bool isFull;
        double black, white, neutral, lowest, highest;
    };
    for (const auto& row : {Row{8, false, 16, 235, 128, 1, 254}, Row{10, false, 64, 940, 512, 4, 1019},
                            Row{8, true, 0, 255, 128, 0, 255}, Row{10, true, 0, 1023, 512, 0, 1023}}) {
        const auto range = codeRange(row.bits, row.isFull);
        EXPECT_EQ(range.lumaOffset, row.black);
        EXPECT_EQ(range.lumaOffset + range.lumaScale, row.white);
        EXPECT_EQ(range.chromaOffset, row.neutral);
        EXPECT_EQ(range.lowest, row.lowest);
        EXPECT_EQ(range.highest, row.highest);
    }
}

TEST(VideoColorMath, ConvertsPrimariesAsPublished) {
    // ITU-R BT.2087-0, 2: BT.709 to BT.2020.
    const auto wide = primariesConversion(bt709, bt2020);
    const double published[3][3] = {{0.6274, 0.3293, 0.0433}, {0.0691, 0.9195, 0.0114}, {0.0164, 0.0880, 0.8956}};
    for (std::size_t i = 0; i < 3; ++i)
        for (std::size_t j = 0; j < 3; ++j)
            EXPECT_NEAR(wide[i][j], published[i][j], 5e-5);
    // SMPTE EG 432-1 with the white of D65: P3's green lies outside BT.709.
    expectNear(multiply(primariesConversion(p3D65, bt709), {0, 1, 0}), {-0.2249, 1.0421, -0.0786}, 5e-5);
    for (const auto from : {bt709, bt2020, p3D65})
        for (const auto to : {bt709, bt2020, p3D65})
            expectNear(multiply(primariesConversion(from, to), {1, 1, 1}), {1, 1, 1}, 1e-12);
}

TEST(VideoColorMath, ShowsHLGOnItsReferenceDisplay) {
    // ITU-R BT.2408-7: 75 % HLG is 203 cd/m2 on a display of 1000 cd/m2, and 100 % is its peak.
    const auto light = displayLight({0.75, 0.75, 0.75}, VideoTransferFunction::hlg, bt2020);
    EXPECT_NEAR(light.g * referenceWhite, 203, 0.5);
    EXPECT_NEAR(displayLight({1, 1, 1}, VideoTransferFunction::hlg, bt2020).r * referenceWhite, 1000, 0.01);
    const RGB color{0.2, 0.7, 0.4};
    expectNear(signalForDisplayLight(displayLight(color, VideoTransferFunction::hlg, bt2020),
                                     VideoTransferFunction::hlg, bt2020),
               color, 1e-9);
}

TEST(VideoColorMath, ToneMapsWithoutTouchingTheShadows) {
    const auto mapped = [](double nits) { return bt2390ToneMapped(nits, nominalPeak, referenceWhite); };
    EXPECT_DOUBLE_EQ(mapped(0), 0);
    EXPECT_DOUBLE_EQ(mapped(50), 50);
    EXPECT_NEAR(mapped(1000), referenceWhite, 1e-9);
    EXPECT_NEAR(mapped(10000), referenceWhite, 1e-9);
    double last = 0;
    for (double nits = 1; nits <= 1000; nits *= 1.02) {
        EXPECT_GT(mapped(nits), last);
        EXPECT_LE(mapped(nits), nits + 1e-9);
        last = mapped(nits);
    }
}

TEST(ColorConversion, LeavesAloneWhatIsTheOutputsAlready) {
    struct Row {
        VideoColorPrimaries primaries;
        VideoTransferFunction transfer;
        VideoYCbCrMatrix matrix;
        VRColorOutputMode mode;
        bool isIdentity, keepsYCbCr;
    };
    using enum VRColorOutputMode;
    using T = VideoTransferFunction;
    using M = VideoYCbCrMatrix;
    for (const auto& row :
         {Row{bt709, T::bt709, M::bt709, sdr, true, true}, Row{bt709, T::bt709, M::bt601, sdr, true, false},
          Row{bt709, T::sRGB, M::bt709, sdr, false, false}, Row{p3D65, T::bt709, M::bt709, sdr, false, false},
          Row{bt2020, T::pq, M::bt2020, preserveHDR, true, true}, Row{bt2020, T::hlg, M::bt2020, hdrHLG, true, true},
          Row{bt2020, T::hlg, M::bt2020, preserveHDR, false, false},
          Row{bt2020, T::pq, M::bt2020, sdr, false, false}}) {
        const ColorConversion conversion(row.primaries, row.transfer, row.mode);
        EXPECT_EQ(conversion.isIdentity(), row.isIdentity);
        EXPECT_EQ(conversion.keepsYCbCr(row.matrix), row.keepsYCbCr);
        if (row.isIdentity)
            expectNear(conversion({-0.1, 1.2, 0.3}), {-0.1, 1.2, 0.3}, 0);
        expectNear(conversion({0, 0, 0}), {0, 0, 0}, 1e-6);
    }
}

TEST(ColorConversion, PutsWhiteWhereEachSystemHasIt) {
    using T = VideoTransferFunction;
    using enum VRColorOutputMode;
    const RGB white{1, 1, 1};
    const auto grey = [](double v) { return RGB{v, v, v}; };
    expectNear(ColorConversion(bt709, T::bt709, preserveHDR)(white), grey(0.5807), 1e-4);
    expectNear(ColorConversion(bt709, T::bt709, hdrHLG)(white), grey(0.75), 5e-4);
    expectNear(ColorConversion(bt709, T::sRGB, sdr)(white), white, 1e-9);
    expectNear(ColorConversion(p3D65, T::linear, sdr)(grey(std::pow(0.5, 2.4))), grey(0.5), 1e-9);
    expectNear(ColorConversion(bt2020, T::hlg, preserveHDR)(white), grey(0.7518), 1e-4);
    expectNear(ColorConversion(bt2020, T::pq, hdrHLG)(grey(0.7518)), white, 1e-3);
    expectNear(ColorConversion(bt2020, T::pq, hdrHLG)(white), white, 1e-3);
    expectNear(ColorConversion(bt2020, T::pq, sdr)(grey(0.7518)), white, 1e-3);
    expectNear(ColorConversion(bt2020, T::hlg, sdr)(white), white, 1e-3);
}

TEST(ColorConversion, KeepsTheHueOfHighlights) {
    const ColorConversion toSDR(bt709, VideoTransferFunction::pq, VRColorOutputMode::sdr);
    const auto signal = [](double r, double g, double b) {
        return RGB{pqInverseEOTF(r), pqInverseEOTF(g), pqInverseEOTF(b)};
    };
    const auto linear = [](const RGB& c) { return RGB{bt1886EOTF(c.r), bt1886EOTF(c.g), bt1886EOTF(c.b)}; };
    const auto bright = linear(toSDR(signal(800, 400, 200)));
    EXPECT_NEAR(bright.g / bright.r, 0.5, 1e-9);
    EXPECT_NEAR(bright.b / bright.r, 0.25, 1e-9);
    EXPECT_LE(bright.r, 1);
}

TEST(VideoColorMath, DitherKeepsTheMeanOfEveryLevel) {
    for (double level = 100; level <= 101; level += 0.125) {
        double sum = 0;
        for (int row = 0; row < 8; ++row)
            for (int column = 0; column < 8; ++column)
                sum += std::floor(level + VideoColorMath::ditherOffset(column, row) + 0.5);
        EXPECT_EQ(sum / 64, level);
    }
}

} // namespace
} // namespace panoveer
