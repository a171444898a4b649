#include "Panoveer/Rendering/Projection/ColorRows.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "Panoveer/Rendering/Projection/ColorRows.cpp"
#include <hwy/foreach_target.h> // compiles what follows once for every instruction set
#include <hwy/highway.h>
#include <hwy/contrib/math/math-inl.h>

HWY_BEFORE_NAMESPACE();

namespace panoveer::HWY_NAMESPACE {

namespace hn = hwy::HWY_NAMESPACE;

namespace {

const hn::CappedTag<float, 8> floats; // eight is what a dither pattern has
const hn::RebindToSigned<decltype(floats)> ints;
using Floats = hn::VFromD<decltype(floats)>;

HWY_INLINE int lanes() { return int(hn::Lanes(floats)); }

HWY_INLINE Floats ditherAt(const float* dither, int index) {
    return dither ? hn::LoadU(floats, dither + (index & 7)) : hn::Zero(floats);
}

HWY_INLINE Floats limited(Floats v, Floats low, Floats high) { return hn::Min(hn::Max(v, low), high); }

HWY_INLINE Floats unitLimited(Floats v) { return limited(v, hn::Zero(floats), hn::Set(floats, 1.0f)); }

// Stores the first `count` of a vector's lanes.
template<class D, class V>
HWY_INLINE void storeSome(V v, D d, hn::TFromD<D>* to, int count) {
    if (HWY_LIKELY(count >= int(hn::Lanes(d))))
        hn::StoreU(v, d, to);
    else
        hn::StoreN(v, d, to, std::size_t(count));
}

// --- The functions of VideoColorMath, in single precision -------------------------------------------------------------

struct Color {
    Floats r, g, b;
};

HWY_INLINE Floats constant(double value) { return hn::Set(floats, float(value)); }

HWY_INLINE Floats positive(Floats v) { return hn::Max(v, hn::Zero(floats)); }

// For a base that is not negative.
HWY_INLINE Floats power(Floats base, double exponent) {
    // Below what single precision holds there is nothing that the eye could see.
    const auto result = hn::Exp(floats, hn::Mul(constant(exponent), hn::Log(floats, hn::Max(base, constant(1e-30)))));
    return hn::IfThenElseZero(hn::Gt(base, constant(1e-30)), result);
}

template<typename Function>
HWY_INLINE void forEachChannel(Color& color, Function function) {
    color = {function(color.r), function(color.g), function(color.b)};
}

HWY_INLINE Floats pqLight(Floats signal) {
    using namespace VideoColorMath;
    const auto p = power(signal, 1 / pqM2);
    const auto ratio =
        hn::Div(positive(hn::Sub(p, constant(pqC1))), hn::NegMulAdd(constant(pqC3), p, constant(pqC2)));
    return hn::Mul(constant(pqPeak), power(ratio, 1 / pqM1));
}

HWY_INLINE Floats pqSignal(Floats nits) {
    using namespace VideoColorMath;
    const auto p = power(hn::Mul(nits, constant(1 / pqPeak)), pqM1);
    return power(hn::Div(hn::MulAdd(constant(pqC2), p, constant(pqC1)), hn::MulAdd(constant(pqC3), p, constant(1))),
                 pqM2);
}

HWY_INLINE Floats hlgSignal(Floats light) {
    using namespace VideoColorMath;
    const auto argument = hn::Max(hn::MulSub(constant(12), light, constant(hlgB)), constant(1e-6));
    const auto bright = hn::MulAdd(constant(hlgA), hn::Log(floats, argument), constant(hlgC));
    return hn::IfThenElse(hn::Le(light, constant(1.0 / 12)), hn::Sqrt(hn::Mul(constant(3), light)), bright);
}

HWY_INLINE Floats hlgLight(Floats signal) {
    using namespace VideoColorMath;
    const auto exponential = hn::Exp(floats, hn::Mul(hn::Sub(signal, constant(hlgC)), constant(1 / hlgA)));
    const auto bright = hn::Mul(hn::Add(exponential, constant(hlgB)), constant(1.0 / 12));
    return hn::IfThenElse(hn::Le(signal, constant(0.5)), hn::Mul(hn::Mul(signal, signal), constant(1.0 / 3)), bright);
}

HWY_INLINE Floats sRGBLight(Floats signal) {
    const auto bright = power(hn::Mul(hn::Add(signal, constant(0.055)), constant(1 / 1.055)), 2.4);
    return hn::IfThenElse(hn::Le(signal, constant(0.04045)), hn::Mul(signal, constant(1 / 12.92)), bright);
}

HWY_INLINE Floats luminance(const Color& light, const RGB& w) {
    return hn::MulAdd(constant(w.r), light.r, hn::MulAdd(constant(w.g), light.g, hn::Mul(constant(w.b), light.b)));
}

HWY_INLINE void scale(Color& color, Floats factor) {
    forEachChannel(color, [&](Floats v) { return hn::Mul(v, factor); });
}

// Display light in units of SDR white.
HWY_INLINE void toDisplayLight(Color& color, VideoTransferFunction transfer, const RGB& luminanceWeights) {
    using namespace VideoColorMath;
    switch (transfer) {
    case VideoTransferFunction::bt709:
        forEachChannel(color, [](Floats v) { return power(v, bt1886Gamma); });
        break;
    case VideoTransferFunction::sRGB: forEachChannel(color, [](Floats v) { return sRGBLight(v); }); break;
    case VideoTransferFunction::linear: break;
    case VideoTransferFunction::pq:
        forEachChannel(color, [](Floats v) { return hn::Mul(pqLight(v), constant(1 / referenceWhite)); });
        break;
    case VideoTransferFunction::hlg:
        forEachChannel(color, [](Floats v) { return hlgLight(v); });
        scale(color, hn::Mul(power(luminance(color, luminanceWeights), hlgDisplayGamma - 1),
                             constant(nominalPeak / referenceWhite)));
        break;
    }
}

HWY_INLINE void toSignal(Color& color, VRColorOutputMode mode, const RGB& luminanceWeights) {
    using namespace VideoColorMath;
    switch (mode) {
    case VRColorOutputMode::sdr:
        forEachChannel(color, [](Floats v) { return power(v, 1 / bt1886Gamma); });
        break;
    case VRColorOutputMode::preserveHDR:
        forEachChannel(color, [](Floats v) { return pqSignal(hn::Mul(v, constant(referenceWhite))); });
        break;
    case VRColorOutputMode::hdrHLG: {
        scale(color, constant(referenceWhite / nominalPeak));
        scale(color, power(luminance(color, luminanceWeights), 1 / hlgDisplayGamma - 1));
        forEachChannel(color, [](Floats v) { return hlgSignal(v); });
        break;
    }
    }
}

// bt2390ToneMapped() from the nominal peak to SDR white.
HWY_INLINE Floats toneMapped(Floats nits) {
    using namespace VideoColorMath;
    static const double sourceMaximum = VideoColorMath::pqInverseEOTF(nominalPeak);
    static const double targetMaximum = VideoColorMath::pqInverseEOTF(referenceWhite) / sourceMaximum;
    const double kneeStart = 1.5 * targetMaximum - 0.5;
    const auto e = hn::Min(hn::Mul(pqSignal(nits), constant(1 / sourceMaximum)), constant(1));
    const auto t = hn::Mul(hn::Sub(e, constant(kneeStart)), constant(1 / (1 - kneeStart)));
    const auto t2 = hn::Mul(t, t);
    const auto t3 = hn::Mul(t2, t);
    // The cubic of the knee by the powers of t.
    const double slope = 1 - kneeStart;
    auto mapped = hn::MulAdd(constant(slope), t, constant(kneeStart));
    mapped = hn::MulAdd(constant(-3 * kneeStart - 2 * slope + 3 * targetMaximum), t2, mapped);
    mapped = hn::MulAdd(constant(2 * kneeStart + slope - 2 * targetMaximum), t3, mapped);
    return hn::IfThenElse(hn::Lt(e, constant(kneeStart)), nits,
                          pqLight(hn::Mul(mapped, constant(sourceMaximum))));
}

struct LuminanceWeights {
    RGB source;
    RGB output;
};

// ColorConversion::operator(), step by step.
HWY_INLINE void convertColor(const ColorConversion& conversion, const LuminanceWeights& weights, Color& color) {
    using namespace VideoColorMath;
    const auto mode = conversion.outputMode();
    const auto transfer = conversion.transferFunction();
    toDisplayLight(color, transfer, weights.source);
    if (conversion.primaries() != outputPrimaries(mode)) {
        const auto row = [&](std::size_t i) {
            const auto& m = conversion.toOutputPrimaries()[i];
            return hn::MulAdd(constant(m[0]), color.r,
                              hn::MulAdd(constant(m[1]), color.g, hn::Mul(constant(m[2]), color.b)));
        };
        color = {row(0), row(1), row(2)};
    }
    forEachChannel(color, [](Floats v) { return positive(v); });
    const auto strongest = hn::Mul(hn::Max(hn::Max(color.r, color.g), color.b), constant(referenceWhite));
    const auto some = hn::Max(strongest, constant(1e-6));
    const bool isHDRSource = transfer == VideoTransferFunction::pq || transfer == VideoTransferFunction::hlg;
    if (mode == VRColorOutputMode::sdr && isHDRSource)
        scale(color, hn::Div(toneMapped(some), some));
    else if (mode == VRColorOutputMode::hdrHLG)
        scale(color, hn::Min(hn::Div(constant(nominalPeak), some), constant(1)));
    toSignal(color, mode, weights.output);
}

} // namespace

void writeCodes(const float* values, int count, float scale, float offset, const CodeOutput& output, std::byte* out) {
    const hn::Rebind<std::uint8_t, decltype(ints)> bytes;
    const hn::Rebind<std::uint16_t, decltype(ints)> words;
    const auto factor = hn::Set(floats, scale);
    const auto shift = hn::Set(floats, offset);
    const auto low = hn::Set(floats, output.lowest);
    const auto high = hn::Set(floats, output.highest);
    for (int i = 0; i < count; i += lanes()) {
        const auto exact =
            hn::Add(hn::MulAdd(hn::LoadU(floats, values + i), factor, shift), ditherAt(output.dither, i));
        const auto code = hn::NearestInt(limited(exact, low, high));
        if (output.bytesPerSample == 1)
            storeSome(hn::DemoteTo(bytes, code), bytes, reinterpret_cast<std::uint8_t*>(out) + i, count - i);
        else
            storeSome(hn::ShiftLeft<6>(hn::DemoteTo(words, code)), words, reinterpret_cast<std::uint16_t*>(out) + i,
                      count - i);
    }
}

void deinterleave2(const float* interleaved, int count, float* first, float* second) {
    for (int i = 0; i < count; i += lanes()) {
        Floats a, b;
        hn::LoadInterleaved2(floats, interleaved + 2 * i, a, b);
        hn::StoreU(a, floats, first + i);
        hn::StoreU(b, floats, second + i);
    }
}

void interleave2(const float* first, const float* second, int count, float* interleaved) {
    for (int i = 0; i < count; i += lanes())
        hn::StoreInterleaved2(hn::LoadU(floats, first + i), hn::LoadU(floats, second + i), floats, interleaved + 2 * i);
}

void deinterleaveBGRA(const float* interleaved, int count, float unit, float* r, float* g, float* b, float* a) {
    const auto scale = hn::Set(floats, 1 / unit);
    for (int i = 0; i < count; i += lanes()) {
        Floats v[4];
        hn::LoadInterleaved4(floats, interleaved + 4 * i, v[0], v[1], v[2], v[3]);
        hn::StoreU(hn::Mul(v[0], scale), floats, b + i);
        hn::StoreU(hn::Mul(v[1], scale), floats, g + i);
        hn::StoreU(hn::Mul(v[2], scale), floats, r + i);
        hn::StoreU(hn::Mul(v[3], scale), floats, a + i);
    }
}

void transform(const std::array<AffineRow, 3>& matrix, int count, const float* in0, const float* in1, const float* in2,
               float* out0, float* out1, float* out2) {
    float* const outs[] = {out0, out1, out2};
    for (int i = 0; i < count; i += lanes()) {
        const auto a = hn::LoadU(floats, in0 + i);
        const auto b = hn::LoadU(floats, in1 + i);
        const auto c = hn::LoadU(floats, in2 + i);
        for (std::size_t k = 0; k < 3; ++k) {
            const auto& row = matrix[k];
            auto sum = hn::MulAdd(a, hn::Set(floats, row.weights[0]), hn::Set(floats, row.offset));
            sum = hn::MulAdd(b, hn::Set(floats, row.weights[1]), sum);
            hn::StoreU(hn::MulAdd(c, hn::Set(floats, row.weights[2]), sum), floats, outs[k] + i);
        }
    }
}

void limitToUnit(float* values, int count) {
    for (int i = 0; i < count; i += lanes())
        hn::StoreU(unitLimited(hn::LoadU(floats, values + i)), floats, values + i);
}

void convert(const ColorConversion& conversion, int count, float* r, float* g, float* b) {
    const LuminanceWeights weights{
        VideoColorMath::luminanceWeights(conversion.primaries()),
        VideoColorMath::luminanceWeights(VideoColorMath::outputPrimaries(conversion.outputMode()))};
    for (int i = 0; i < count; i += lanes()) {
        Color color{unitLimited(hn::LoadU(floats, r + i)), unitLimited(hn::LoadU(floats, g + i)),
                    unitLimited(hn::LoadU(floats, b + i))};
        convertColor(conversion, weights, color);
        hn::StoreU(unitLimited(color.r), floats, r + i);
        hn::StoreU(unitLimited(color.g), floats, g + i);
        hn::StoreU(unitLimited(color.b), floats, b + i);
    }
}

void writeBGRA(const float* r, const float* g, const float* b, const float* a, int count, const float* dither,
               std::byte* out) {
    const hn::Rebind<std::uint8_t, decltype(ints)> bytes;
    const auto unit = hn::Set(floats, 255.0f);
    HWY_ALIGN std::uint8_t last[8 * 4];
    for (int i = 0; i < count; i += lanes()) {
        const auto code = [&](const float* channel, const float* pattern) {
            const auto exact =
                hn::MulAdd(unitLimited(hn::LoadU(floats, channel + i)), unit, ditherAt(pattern, i));
            return hn::DemoteTo(bytes, hn::NearestInt(limited(exact, hn::Zero(floats), unit)));
        };
        const bool isWhole = count - i >= lanes();
        auto* to = isWhole ? reinterpret_cast<std::uint8_t*>(out) + std::size_t(i) * 4 : last;
        hn::StoreInterleaved4(code(b, dither), code(g, dither), code(r, dither), code(a, nullptr), bytes, to);
        if (!isWhole)
            std::memcpy(out + std::size_t(i) * 4, last, std::size_t(count - i) * 4);
    }
}

void writeRGBAHalf(const float* r, const float* g, const float* b, const float* a, int count, std::byte* out) {
    const hn::Rebind<hwy::float16_t, decltype(floats)> halves;
    const hn::Rebind<std::uint16_t, decltype(floats)> words;
    HWY_ALIGN std::uint16_t last[8 * 4];
    for (int i = 0; i < count; i += lanes()) {
        const auto half = [&](const float* channel) {
            return hn::BitCast(words, hn::DemoteTo(halves, unitLimited(hn::LoadU(floats, channel + i))));
        };
        const bool isWhole = count - i >= lanes();
        auto* to = isWhole ? reinterpret_cast<std::uint16_t*>(out) + std::size_t(i) * 4 : last;
        hn::StoreInterleaved4(half(r), half(g), half(b), half(a), words, to);
        if (!isWhole)
            std::memcpy(out + std::size_t(i) * 8, last, std::size_t(count - i) * 8);
    }
}

} // namespace panoveer::HWY_NAMESPACE

HWY_AFTER_NAMESPACE();

#if HWY_ONCE

namespace panoveer::ColorRows {

HWY_EXPORT(writeCodes);
HWY_EXPORT(deinterleave2);
HWY_EXPORT(interleave2);
HWY_EXPORT(deinterleaveBGRA);
HWY_EXPORT(transform);
HWY_EXPORT(limitToUnit);
HWY_EXPORT(convert);
HWY_EXPORT(writeBGRA);
HWY_EXPORT(writeRGBAHalf);

void writeCodes(const float* values, int count, float scale, float offset, const CodeOutput& output, std::byte* out) {
    HWY_DYNAMIC_DISPATCH(writeCodes)(values, count, scale, offset, output, out);
}

void deinterleave2(const float* interleaved, int count, float* first, float* second) {
    HWY_DYNAMIC_DISPATCH(deinterleave2)(interleaved, count, first, second);
}

void interleave2(const float* first, const float* second, int count, float* interleaved) {
    HWY_DYNAMIC_DISPATCH(interleave2)(first, second, count, interleaved);
}

void deinterleaveBGRA(const float* interleaved, int count, float unit, float* r, float* g, float* b, float* a) {
    HWY_DYNAMIC_DISPATCH(deinterleaveBGRA)(interleaved, count, unit, r, g, b, a);
}

void transform(const std::array<AffineRow, 3>& matrix, int count, const float* in0, const float* in1, const float* in2,
               float* out0, float* out1, float* out2) {
    HWY_DYNAMIC_DISPATCH(transform)(matrix, count, in0, in1, in2, out0, out1, out2);
}

void limitToUnit(float* values, int count) { HWY_DYNAMIC_DISPATCH(limitToUnit)(values, count); }

void convert(const ColorConversion& conversion, int count, float* r, float* g, float* b) {
    HWY_DYNAMIC_DISPATCH(convert)(conversion, count, r, g, b);
}

void writeBGRA(const float* r, const float* g, const float* b, const float* a, int count, const float* dither,
               std::byte* out) {
    HWY_DYNAMIC_DISPATCH(writeBGRA)(r, g, b, a, count, dither, out);
}

void writeRGBAHalf(const float* r, const float* g, const float* b, const float* a, int count, std::byte* out) {
    HWY_DYNAMIC_DISPATCH(writeRGBAHalf)(r, g, b, a, count, out);
}

} // namespace panoveer::ColorRows

#endif
