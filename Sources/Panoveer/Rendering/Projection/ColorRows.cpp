#include "Panoveer/Rendering/Projection/ColorRows.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "Panoveer/Rendering/Projection/ColorRows.cpp"
#include <hwy/foreach_target.h> // compiles what follows once for every instruction set
#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();

namespace panoveer::HWY_NAMESPACE {

namespace hn = hwy::HWY_NAMESPACE;

namespace {

const hn::CappedTag<float, 8> floats;
const hn::RebindToSigned<decltype(floats)> ints;
using Floats = hn::VFromD<decltype(floats)>;

HWY_INLINE int lanes() { return int(hn::Lanes(floats)); }

HWY_INLINE Floats ditherAt(const float* dither, int index) {
    return dither ? hn::LoadU(floats, dither + index % CodeOutput::ditherLength) : hn::Zero(floats);
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

struct Color {
    Floats r, g, b;
};

HWY_INLINE Floats constant(double value) { return hn::Set(floats, float(value)); }

template<typename Function>
HWY_INLINE void forEachChannel(Color& color, Function function) {
    color = {function(color.r), function(color.g), function(color.b)};
}

HWY_INLINE void scale(Color& color, Floats factor) {
    forEachChannel(color, [&](Floats v) { return hn::Mul(v, factor); });
}

HWY_INLINE Floats weighted(const Color& color, double r, double g, double b) {
    return hn::MulAdd(constant(r), color.r, hn::MulAdd(constant(g), color.g, hn::Mul(constant(b), color.b)));
}

HWY_INLINE Floats luminance(const Color& light, const RGB& w) { return weighted(light, w.r, w.g, w.b); }

// The curve at a place of 0…1.
HWY_INLINE Floats valueAt(const Curve& curve, Floats place) {
    const auto position = hn::Mul(place, constant(Curve::steps));
    const auto index = hn::ConvertTo(ints, position);
    const auto low = hn::GatherIndex(floats, curve.values(), index);
    const auto high = hn::GatherIndex(floats, curve.values() + 1, index);
    return hn::MulAdd(hn::Sub(high, low), hn::Sub(position, hn::ConvertTo(floats, index)), low);
}

// Of a curve that takes the fourth root of light, which is limited to 0…1.
HWY_INLINE Floats valueAtLight(const Curve& curve, Floats light) {
    return valueAt(curve, hn::Sqrt(hn::Sqrt(unitLimited(light))));
}

HWY_INLINE void convertColor(const ColorCurves& curves, Color& color) {
    forEachChannel(color, [&](Floats v) { return valueAt(curves.toLight, v); });
    if (!curves.sourceGain.isEmpty())
        scale(color, valueAtLight(curves.sourceGain, luminance(color, curves.sourceLuminance)));
    if (curves.changesPrimaries) {
        const auto& m = curves.matrix;
        color = {weighted(color, m[0][0], m[0][1], m[0][2]), weighted(color, m[1][0], m[1][1], m[1][2]),
                 weighted(color, m[2][0], m[2][1], m[2][2])};
    }
    forEachChannel(color, [](Floats v) { return hn::Max(v, hn::Zero(floats)); });
    if (!curves.toneGain.isEmpty()) {
        const auto strongest = hn::Max(hn::Max(color.r, color.g), color.b);
        scale(color, valueAtLight(curves.toneGain, hn::Mul(strongest, constant(1 / curves.toneUnit))));
    }
    scale(color, constant(1 / curves.signalUnit));
    if (!curves.outputLight.isEmpty()) {
        const auto y = hn::Max(luminance(color, curves.outputLuminance), constant(1e-9));
        scale(color, hn::Div(valueAtLight(curves.outputLight, y), y));
    }
    forEachChannel(color, [&](Floats v) { return valueAtLight(curves.toSignal, v); });
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

void convert(const ColorCurves& curves, int count, float* r, float* g, float* b) {
    for (int i = 0; i < count; i += lanes()) {
        Color color{unitLimited(hn::LoadU(floats, r + i)), unitLimited(hn::LoadU(floats, g + i)),
                    unitLimited(hn::LoadU(floats, b + i))};
        convertColor(curves, color);
        hn::StoreU(color.r, floats, r + i);
        hn::StoreU(color.g, floats, g + i);
        hn::StoreU(color.b, floats, b + i);
    }
}

void writeBGRA(const float* r, const float* g, const float* b, const float* a, int count, std::byte* out) {
    const hn::Rebind<std::uint8_t, decltype(ints)> bytes;
    const auto unit = hn::Set(floats, 255.0f);
    HWY_ALIGN std::uint8_t last[8 * 4];
    for (int i = 0; i < count; i += lanes()) {
        const auto code = [&](const float* channel) {
            return hn::DemoteTo(bytes, hn::NearestInt(hn::Mul(unitLimited(hn::LoadU(floats, channel + i)), unit)));
        };
        const bool isWhole = count - i >= lanes();
        auto* to = isWhole ? reinterpret_cast<std::uint8_t*>(out) + std::size_t(i) * 4 : last;
        hn::StoreInterleaved4(code(b), code(g), code(r), code(a), bytes, to);
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

void convert(const ColorCurves& curves, int count, float* r, float* g, float* b) {
    HWY_DYNAMIC_DISPATCH(convert)(curves, count, r, g, b);
}

void writeBGRA(const float* r, const float* g, const float* b, const float* a, int count, std::byte* out) {
    HWY_DYNAMIC_DISPATCH(writeBGRA)(r, g, b, a, count, out);
}

void writeRGBAHalf(const float* r, const float* g, const float* b, const float* a, int count, std::byte* out) {
    HWY_DYNAMIC_DISPATCH(writeRGBAHalf)(r, g, b, a, count, out);
}

} // namespace panoveer::ColorRows

#endif
