#include "Platform/Media/ProResTransform.h"

#include <algorithm>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "Platform/Media/ProResTransform.cpp"
#include <hwy/foreach_target.h> // compiles what follows once for every instruction set
#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();

namespace panoveer::HWY_NAMESPACE {

namespace hn = hwy::HWY_NAMESPACE;

namespace {

// Every lane is a block.
const hn::CappedTag<float, 8> floats;
const hn::RebindToSigned<decltype(floats)> ints;
const hn::Rebind<std::int16_t, decltype(floats)> shorts;
using Floats = hn::VFromD<decltype(floats)>;
using Shorts = hn::VFromD<decltype(shorts)>;

HWY_INLINE int lanes() { return int(hn::Lanes(floats)); }

HWY_INLINE Floats scaled(Floats v, double factor) { return hn::Mul(v, hn::Set(floats, float(factor))); }

// The eight-point DCT of Arai, Agui and Nakajima (1988), whose outputs are scaled as dctScales says.
HWY_INLINE void transform(const Floats (&in)[8], Floats (&out)[8]) {
    const auto sum0 = hn::Add(in[0], in[7]), difference0 = hn::Sub(in[0], in[7]);
    const auto sum1 = hn::Add(in[1], in[6]), difference1 = hn::Sub(in[1], in[6]);
    const auto sum2 = hn::Add(in[2], in[5]), difference2 = hn::Sub(in[2], in[5]);
    const auto sum3 = hn::Add(in[3], in[4]), difference3 = hn::Sub(in[3], in[4]);

    const auto even0 = hn::Add(sum0, sum3), even3 = hn::Sub(sum0, sum3);
    const auto even1 = hn::Add(sum1, sum2), even2 = hn::Sub(sum1, sum2);
    const auto turned = scaled(hn::Add(even2, even3), 0.70710678118654752);
    out[0] = hn::Add(even0, even1);
    out[4] = hn::Sub(even0, even1);
    out[2] = hn::Add(even3, turned);
    out[6] = hn::Sub(even3, turned);

    const auto odd0 = hn::Add(difference3, difference2);
    const auto odd1 = scaled(hn::Add(difference2, difference1), 0.70710678118654752);
    const auto odd2 = hn::Add(difference1, difference0);
    const auto common = scaled(hn::Sub(odd0, odd2), 0.38268343236508977);
    const auto low = hn::Add(scaled(odd0, 0.54119610014619698), common);
    const auto high = hn::Add(scaled(odd2, 1.3065629648763766), common);
    const auto upper = hn::Add(difference0, odd1), lower = hn::Sub(difference0, odd1);
    out[5] = hn::Add(lower, low);
    out[3] = hn::Sub(lower, low);
    out[1] = hn::Add(upper, high);
    out[7] = hn::Sub(upper, high);
}

// To the nearest level; but what is hardly over half a step costs more bits than it is worth. At the same size of a
// frame, this bias was worth 0.1 to 0.3 dB beside 0.5.
HWY_INLINE Shorts levelOf(Floats coefficient, Floats scale, Floats bias) {
    const auto exact = hn::Mul(coefficient, scale);
    return hn::DemoteTo(shorts, hn::ConvertTo(ints, hn::Add(exact, hn::CopySign(bias, exact))));
}

HWY_INLINE void storeSome(Shorts v, std::int16_t* to, int count) {
    if (HWY_LIKELY(count >= lanes()))
        hn::StoreU(v, shorts, to);
    else if (count > 0)
        hn::StoreN(v, shorts, to, std::size_t(count));
}

// Both rows of blocks, in the order of the slice.
HWY_INLINE void storeLevels(Shorts upper, Shorts lower, BlockOrder order, std::int16_t* to, int count) {
    if (order == BlockOrder::byColumns) {
        storeSome(hn::InterleaveLower(shorts, upper, lower), to, count);
        storeSome(hn::InterleaveUpper(shorts, upper, lower), to + lanes(), count - lanes());
    } else {
        const hn::Repartition<std::int32_t, decltype(shorts)> pairs;
        const auto a = hn::BitCast(pairs, upper), b = hn::BitCast(pairs, lower);
        storeSome(hn::BitCast(shorts, hn::InterleaveLower(pairs, a, b)), to, count);
        storeSome(hn::BitCast(shorts, hn::InterleaveUpper(pairs, a, b)), to + lanes(), count - lanes());
    }
}

// Turns four vectors in each 128 bits: of rows of four samples, columns come.
HWY_INLINE void transpose(Floats (&v)[4]) {
    const hn::Repartition<double, decltype(floats)> pairs;
    const auto join = [&](Floats a, Floats b, bool isUpper) {
        const auto x = hn::BitCast(pairs, a), y = hn::BitCast(pairs, b);
        return hn::BitCast(floats, isUpper ? hn::InterleaveUpper(pairs, x, y) : hn::InterleaveLower(pairs, x, y));
    };
    const auto low0 = hn::InterleaveLower(floats, v[0], v[1]), low1 = hn::InterleaveLower(floats, v[2], v[3]);
    const auto high0 = hn::InterleaveUpper(floats, v[0], v[1]), high1 = hn::InterleaveUpper(floats, v[2], v[3]);
    v[0] = join(low0, low1, false);
    v[1] = join(low0, low1, true);
    v[2] = join(high0, high1, false);
    v[3] = join(high0, high1, true);
}

// One row of as many blocks as there are lanes: the samples of each column.
HWY_INLINE void loadColumns(const float* row, Floats (&columns)[8]) {
    Floats first[4], second[4];
    if constexpr (hn::MaxLanes(floats) == 8) {
        for (int i = 0; i < 4; ++i) {
            first[i] = hn::LoadU(floats, row + 8 * i);
            second[i] = hn::LoadU(floats, row + 8 * (i + 4));
        }
        transpose(first);
        transpose(second);
        for (int i = 0; i < 4; ++i) {
            columns[i] = hn::ConcatLowerLower(floats, second[i], first[i]);
            columns[i + 4] = hn::ConcatUpperUpper(floats, second[i], first[i]);
        }
    } else {
        for (int i = 0; i < 4; ++i) {
            first[i] = hn::LoadU(floats, row + 8 * i);
            second[i] = hn::LoadU(floats, row + 8 * i + 4);
        }
        transpose(first);
        transpose(second);
        std::copy_n(first, 4, columns);
        std::copy_n(second, 4, columns + 4);
    }
}

// One row of blocks, its coefficients row by row.
HWY_INLINE void transformBlocks(const float* samples, Floats (&coefficients)[8][8]) {
    Floats rows[8][8];
    for (int y = 0; y < 8; ++y) {
        Floats pixels[8];
        loadColumns(samples + std::size_t(y) * SliceSamples::rowLength, pixels);
        transform(pixels, rows[y]);
    }
    for (int u = 0; u < 8; ++u) {
        Floats column[8], transformed[8];
        for (int y = 0; y < 8; ++y)
            column[y] = rows[y][u];
        transform(column, transformed);
        for (int v = 0; v < 8; ++v)
            coefficients[v][u] = transformed[v];
    }
}

} // namespace

void transformSlice(const float* samples, int columnCount, BlockOrder order, const float* scales,
                    const std::uint8_t* scan, std::int16_t* levels) {
    const int blockCount = 2 * columnCount;
    const auto half = hn::Set(floats, 0.5F);
    const auto bias = hn::Set(floats, 0.43F);
    for (int first = 0; first < columnCount; first += lanes()) {
        Floats upper[8][8], lower[8][8];
        transformBlocks(samples + 8 * first, upper);
        transformBlocks(samples + 8 * first + 8 * SliceSamples::rowLength, lower);
        for (int position = 0; position < 64; ++position) {
            const int v = scan[position] / 8, u = scan[position] % 8;
            const auto scale = hn::Set(floats, scales[position]);
            const auto rounding = position == 0 ? half : bias;
            storeLevels(levelOf(upper[v][u], scale, rounding), levelOf(lower[v][u], scale, rounding), order,
                        levels + std::ptrdiff_t(position) * blockCount + 2 * first, blockCount - 2 * first);
        }
    }
}

} // namespace panoveer::HWY_NAMESPACE

HWY_AFTER_NAMESPACE();

#if HWY_ONCE

namespace panoveer {

HWY_EXPORT(transformSlice);

namespace {

// RDD 36, 7.2: where in a block the coefficients of a progressive picture stand, row by row.
constexpr std::array<std::uint8_t, 64> scan{0,  1,  8,  9,  2,  3,  10, 11, 16, 17, 24, 25, 18, 19, 26, 27,
                                            4,  5,  12, 20, 13, 6,  7,  14, 21, 28, 29, 22, 15, 23, 30, 31,
                                            32, 33, 40, 48, 41, 34, 35, 42, 49, 56, 57, 50, 43, 36, 37, 44,
                                            51, 58, 59, 52, 45, 38, 39, 46, 53, 60, 61, 54, 47, 55, 62, 63};

// What the transform above multiplies a coefficient of the orthonormal DCT with, without the root of 8.
constexpr std::array dctScales{1.0, 1.3870398453221475,  1.3065629648763766,  1.1758756024193588,
                               1.0, 0.78569495838710213, 0.54119610014619690, 0.27589937928294306};

} // namespace

LevelScales levelScales(int step) {
    LevelScales scales{};
    for (std::size_t i = 0; i < scan.size(); ++i)
        scales[i] = float(1 / (8 * dctScales[scan[i] / 8] * dctScales[scan[i] % 8] * step));
    return scales;
}

void transformSlice(const SliceSamples& samples, int columnCount, BlockOrder order, const LevelScales& scales,
                    std::span<std::int16_t> levels) {
    HWY_DYNAMIC_DISPATCH(transformSlice)
    (samples.values.data(), columnCount, order, scales.data(), scan.data(), levels.data());
}

} // namespace panoveer

#endif
