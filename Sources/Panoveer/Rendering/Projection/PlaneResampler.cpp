#include "Panoveer/Rendering/Projection/PlaneResampler.h"

#include "Panoveer/Rendering/Projection/ResamplingKernels.h"

#include <algorithm>
#include <cstring>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "Panoveer/Rendering/Projection/PlaneResampler.cpp"
#include <hwy/foreach_target.h> // compiles what follows once for every instruction set
#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();

namespace panoveer::HWY_NAMESPACE {

namespace hn = hwy::HWY_NAMESPACE;

namespace {

constexpr int taps = ResamplingKernels::taps;
// Entries worked on at a time: their sums stay in the first cache.
constexpr int blockSize = 64;

// Eight neighbouring samples of a row are a chunk; its sums fill one vector of eight lanes, or two of four.
const hn::CappedTag<float, 8> floats;
const hn::RebindToSigned<decltype(floats)> ints;
const hn::FixedTag<float, 4> fourFloats;
constexpr int vectorsPerChunk = HWY_MAX_BYTES >= 32 ? 1 : 2;
using Floats = hn::VFromD<decltype(floats)>;
using Ints = hn::VFromD<decltype(ints)>;

const hn::FixedTag<std::int16_t, 8> shorts;
const hn::RepartitionToWide<decltype(shorts)> fourInts;

// Eight weights, pair by pair, in every block of four lanes.
HWY_INLINE Ints weightPairs(const std::int16_t* weights) {
    return hn::LoadDup128(ints, reinterpret_cast<const std::int32_t*>(weights));
}

// The sums of a chunk of eight columns. Always made with its values: a constructor that the compiler makes up is not
// compiled for the instruction set at hand, and could not call those of the vectors.
struct Chunk {
    Ints part[vectorsPerChunk];
};

HWY_INLINE Chunk operator+(const Chunk& a, const Chunk& b) {
#if HWY_MAX_BYTES >= 32
    return {{hn::Add(a.part[0], b.part[0])}};
#else
    return {{hn::Add(a.part[0], b.part[0]), hn::Add(a.part[1], b.part[1])}};
#endif
}

// Two rows, each with its weight: the two of `pair` in all lanes.
HWY_INLINE Chunk weighted(const std::uint8_t* upper, const std::uint8_t* lower, Ints pair) {
    const hn::FixedTag<std::uint8_t, 8> half;
    const hn::FixedTag<std::uint8_t, 16> bytes;
    const auto pairs = hn::InterleaveLower(bytes, hn::ZeroExtendVector(bytes, hn::LoadU(half, upper)),
                                           hn::ZeroExtendVector(bytes, hn::LoadU(half, lower)));
#if HWY_MAX_BYTES >= 32
    const hn::FixedTag<std::int16_t, 16> wideShorts;
    return {{hn::WidenMulPairwiseAdd(ints, hn::PromoteTo(wideShorts, pairs), hn::BitCast(wideShorts, pair))}};
#else
    const auto weight = hn::BitCast(shorts, pair);
    return {{hn::WidenMulPairwiseAdd(ints, hn::PromoteLowerTo(shorts, pairs), weight),
             hn::WidenMulPairwiseAdd(ints, hn::PromoteUpperTo(shorts, pairs), weight)}};
#endif
}

// Sixteen bits are taken as signed, around the middle of their range.
HWY_INLINE Chunk weighted(const std::uint16_t* upper, const std::uint16_t* lower, Ints pair) {
    const hn::RebindToUnsigned<decltype(shorts)> words;
    const auto middle = hn::Set(words, 0x8000);
    const auto a = hn::BitCast(shorts, hn::Xor(hn::LoadU(words, upper), middle));
    const auto b = hn::BitCast(shorts, hn::Xor(hn::LoadU(words, lower), middle));
    const auto low = hn::InterleaveLower(shorts, a, b);
    const auto high = hn::InterleaveUpper(shorts, a, b);
#if HWY_MAX_BYTES >= 32
    const hn::FixedTag<std::int16_t, 16> wideShorts;
    return {{hn::WidenMulPairwiseAdd(ints, hn::Combine(wideShorts, high, low), hn::BitCast(wideShorts, pair))}};
#else
    const auto weight = hn::BitCast(shorts, pair);
    return {{hn::WidenMulPairwiseAdd(ints, low, weight), hn::WidenMulPairwiseAdd(ints, high, weight)}};
#endif
}

template<typename Sample>
constexpr float middleOf = sizeof(Sample) == 1 ? 0 : 32768;

// Eight by eight samples: down first, in whole numbers, then across. Leaves four sums a channel's worth apart.
template<typename Sample, int channels>
HWY_INLINE hn::VFromD<decltype(fourFloats)> windowSums(const std::byte* window, std::size_t rowBytes,
                                                       const std::int16_t* down, const float* across) {
    const auto weights = weightPairs(down);
    auto total = hn::Zero(floats);
    for (int chunk = 0; chunk < channels; ++chunk) {
        const auto* at = window + std::size_t(chunk) * 8 * sizeof(Sample);
        const auto rows = [&](int row, Ints pair) {
            const auto* upper = at + std::size_t(row) * rowBytes;
            return weighted(reinterpret_cast<const Sample*>(upper), reinterpret_cast<const Sample*>(upper + rowBytes),
                            pair);
        };
        const auto sums = (rows(0, hn::Broadcast<0>(weights)) + rows(2, hn::Broadcast<1>(weights))) +
                          (rows(4, hn::Broadcast<2>(weights)) + rows(6, hn::Broadcast<3>(weights)));
        for (int i = 0; i < vectorsPerChunk; ++i)
            total = hn::MulAdd(hn::ConvertTo(floats, sums.part[i]),
                               hn::LoadU(floats, across + chunk * 8 + i * int(hn::Lanes(floats))), total);
    }
#if HWY_MAX_BYTES >= 32
    return hn::Add(hn::LowerHalf(fourFloats, total), hn::UpperHalf(fourFloats, total));
#else
    return total;
#endif
}

// Where a window begins, and how far apart its rows are.
struct Window {
    const std::byte* begin;
    std::size_t rowBytes;
};

template<typename Sample, int channels>
HWY_INLINE Window windowOf(const SampleEntry& entry, const SampleView& plane, const SampleView& tiles) {
    constexpr std::size_t sampleBytes = sizeof(Sample) * channels;
    if (HWY_UNLIKELY(entry.isTile()))
        return {tiles.data + std::size_t(entry.tile() * SampleMap::tileSize + entry.rowInTile()) * tiles.rowBytes +
                    std::size_t(entry.columnInTile()) * sampleBytes,
                tiles.rowBytes};
    return {plane.data + std::size_t(entry.row()) * plane.rowBytes + std::size_t(entry.column()) * sampleBytes,
            plane.rowBytes};
}

// From four sums a window to one value a channel.
template<typename Sample, int channels>
HWY_INLINE void finishBlock(const float* sums, int count, float* values) {
    const auto scale = hn::Set(floats, 1.0f / ResamplingKernels::unit);
    const auto offset = hn::Set(floats, middleOf<Sample>);
    const int lanes = int(hn::Lanes(floats));
    if constexpr (channels == 4) {
        for (int i = 0; i < count * 4; i += lanes)
            hn::StoreU(hn::MulAdd(hn::LoadU(floats, sums + i), scale, offset), floats, values + i);
        return;
    }
    for (int i = 0; i < count; i += lanes) {
        Floats a, b, c, d;
        hn::LoadInterleaved4(floats, sums + 4 * i, a, b, c, d);
        const auto even = hn::Add(a, c);
        const auto odd = hn::Add(b, d);
        if constexpr (channels == 1)
            hn::StoreU(hn::MulAdd(hn::Add(even, odd), scale, offset), floats, values + i);
        else
            hn::StoreInterleaved2(hn::MulAdd(even, scale, offset), hn::MulAdd(odd, scale, offset), floats,
                                  values + 2 * i);
    }
}

// `values` has room for a whole block.
template<typename Sample, int channels>
void readBlock8(const SampleEntry* entries, int count, const SampleView& plane, const SampleView& tiles,
                float* values) {
    const auto& kernels = ResamplingKernels::shared();
    HWY_ALIGN float sums[blockSize * 4];
    for (int i = 0; i < count; ++i) {
        const auto& entry = entries[i];
        const auto window = windowOf<Sample, channels>(entry, plane, tiles);
        hn::Store(windowSums<Sample, channels>(window.begin, window.rowBytes, kernels.vertical(entry.down()),
                                               kernels.template horizontal<channels>(entry.across())),
                  fourFloats, sums + 4 * i);
    }
    finishBlock<Sample, channels>(sums, count, values);
}

// Two neighbouring samples of the rows of a block's windows, as 32-bit words: word k of window i at [k][i].
template<typename Sample, int channels>
struct PairRows {
    static constexpr int words = std::max(int(2 * sizeof(Sample) * channels / 4), 1);
    HWY_ALIGN std::uint32_t word[words][blockSize];

    HWY_INLINE void load(int i, const std::byte* from) {
        for (int k = 0; k < words; ++k)
            std::memcpy(&word[k][i], from + 4 * k, 4);
    }

    // A channel of the first or the second sample, of as many windows as a vector has lanes.
    HWY_INLINE Floats values(int i, int sample, int channel) const {
        const int byte = (sample * channels + channel) * int(sizeof(Sample));
        const auto shifted = hn::ShiftRightSame(hn::Load(unsignedInts, word[byte / 4] + i), 8 * (byte % 4));
        return hn::ConvertTo(floats, hn::BitCast(ints, hn::And(shifted, hn::Set(unsignedInts, mask))));
    }

private:
    static constexpr hn::RebindToUnsigned<decltype(ints)> unsignedInts{};
    static constexpr std::uint32_t mask = sizeof(Sample) == 1 ? 0xff : 0xffff;
};

// Linear interpolation. `values` has room for a whole block.
template<typename Sample, int channels>
void readBlock2(const SampleEntry* entries, int count, const SampleView& plane, const SampleView& tiles,
                float* values) {
    PairRows<Sample, channels> upper, lower;
    HWY_ALIGN std::int32_t kernels[blockSize];
    for (int i = 0; i < count; ++i) {
        const auto window = windowOf<Sample, channels>(entries[i], plane, tiles);
        upper.load(i, window.begin);
        lower.load(i, window.begin + window.rowBytes);
        kernels[i] = std::int32_t(entries[i].kernels);
    }
    const auto phaseMask = hn::Set(ints, 0x7fff);
    const auto unit = hn::Set(floats, 1.0f / ResamplingKernels::phases);
    for (int i = 0; i < count; i += int(hn::Lanes(floats))) {
        const auto both = hn::Load(ints, kernels + i);
        const auto across = hn::Mul(hn::ConvertTo(floats, hn::And(both, phaseMask)), unit);
        const auto down = hn::Mul(hn::ConvertTo(floats, hn::And(hn::ShiftRight<15>(both), phaseMask)), unit);
        const auto value = [&](int channel) {
            const auto mixed = [&](const auto& rows) {
                const auto first = rows.values(i, 0, channel);
                return hn::MulAdd(hn::Sub(rows.values(i, 1, channel), first), across, first);
            };
            const auto above = mixed(upper);
            return hn::MulAdd(hn::Sub(mixed(lower), above), down, above);
        };
        if constexpr (channels == 1)
            hn::StoreU(value(0), floats, values + i);
        else if constexpr (channels == 2)
            hn::StoreInterleaved2(value(0), value(1), floats, values + 2 * i);
        else
            hn::StoreInterleaved4(value(0), value(1), value(2), value(3), floats, values + 4 * i);
    }
}

template<typename Sample, int channels>
HWY_INLINE void readBlock(int tapCount, const SampleEntry* entries, int count, const SampleView& plane,
                          const SampleView& tiles, float* values) {
    if (tapCount == 2)
        readBlock2<Sample, channels>(entries, count, plane, tiles, values);
    else
        readBlock8<Sample, channels>(entries, count, plane, tiles, values);
}

template<typename Sample, int channels>
void readEntries(int tapCount, const SampleEntry* entry, int division, int count, const SampleView& plane,
                 const SampleView& tiles, float* values) {
    HWY_ALIGN float block[blockSize * channels];
    const int perSample = division * division;
    if (perSample == 1) {
        for (int x = 0; x < count; x += blockSize) {
            const int size = std::min(blockSize, count - x);
            readBlock<Sample, channels>(tapCount, entry + x, size, plane, tiles, block);
            std::memcpy(values + x * channels, block, std::size_t(size * channels) * sizeof(float));
        }
        return;
    }
    for (int x = 0; x < count; ++x, entry += perSample) {
        readBlock<Sample, channels>(tapCount, entry, perSample, plane, tiles, block);
        for (int c = 0; c < channels; ++c) {
            float sum = 0;
            for (int i = 0; i < perSample; ++i)
                sum += block[i * channels + c];
            values[x * channels + c] = sum / float(perSample);
        }
    }
}

template<typename Sample, int channels>
void readRow(const SampleMap& map, const SampleMap::Block& block, int row, const SampleView& plane,
             const SampleView& tiles, const float* background, float* values) {
    for (const auto& span : block.row(row)) {
        auto* const to = values + std::size_t(span.begin) * channels;
        const int count = span.end - span.begin;
        if (span.division > 0)
            readEntries<Sample, channels>(map.taps(), block.entries.data() + span.firstEntry, span.division, count,
                                          plane, tiles, to);
        else
            for (int i = 0; i < count * channels; ++i)
                to[i] = background[i % channels];
    }
}

} // namespace

void resample(const SampleMap& map, const SampleMap::Block& block, int row, const SampleView& plane,
              const SampleView& tiles, const float* background, float* values) {
    const auto read = [&]<typename Sample>(Sample) {
        if (plane.channels == 1)
            readRow<Sample, 1>(map, block, row, plane, tiles, background, values);
        else if (plane.channels == 2)
            readRow<Sample, 2>(map, block, row, plane, tiles, background, values);
        else
            readRow<Sample, 4>(map, block, row, plane, tiles, background, values);
    };
    if (plane.bytesPerSample == 1)
        read(std::uint8_t{});
    else
        read(std::uint16_t{});
}

const char* instructionSet() { return hwy::TargetName(HWY_TARGET); }

} // namespace panoveer::HWY_NAMESPACE

HWY_AFTER_NAMESPACE();

#if HWY_ONCE

namespace panoveer {

TileSamples::TileSamples(const SampleMap& map, const SampleView& plane)
    : bytes_(std::size_t(map.tileCount()) * SampleMap::tileSize * SampleMap::tileSize *
             std::size_t(plane.channels * plane.bytesPerSample)),
      view_{bytes_.data(), std::size_t(SampleMap::tileSize * plane.channels * plane.bytesPerSample), plane.channels,
            plane.bytesPerSample} {}

namespace {

template<typename Sample>
void fillTile(const SampleMap::TileSample* from, const SampleView& plane, std::byte* to) {
    auto* out = reinterpret_cast<Sample*>(to);
    const int channels = plane.channels;
    for (int i = 0; i < SampleMap::tileSize * SampleMap::tileSize; ++i, ++from) {
        const auto at = [&](int column, int row) {
            return reinterpret_cast<const Sample*>(plane.at(from->columns[column], from->rows[row]));
        };
        const Sample* corners[] = {at(0, 0), at(1, 0), at(0, 1), at(1, 1)};
        const std::uint32_t x = from->fractionX;
        const std::uint32_t y = from->fractionY;
        for (int c = 0; c < channels; ++c) {
            const std::uint32_t above = corners[0][c] * (256 - x) + corners[1][c] * x;
            const std::uint32_t below = corners[2][c] * (256 - x) + corners[3][c] * x;
            *out++ = Sample((std::uint64_t(above) * (256 - y) + std::uint64_t(below) * y + 0x8000) >> 16);
        }
    }
}

} // namespace

void TileSamples::fill(const SampleMap& map, const SampleView& plane, int tile) {
    auto* to = bytes_.data() + std::size_t(tile) * SampleMap::tileSize * view_.rowBytes;
    if (plane.bytesPerSample == 1)
        fillTile<std::uint8_t>(map.tile(tile), plane, to);
    else
        fillTile<std::uint16_t>(map.tile(tile), plane, to);
}

namespace PlaneResampler {

HWY_EXPORT(resample);
HWY_EXPORT(instructionSet);

void resample(const SampleMap& map, const SampleMap::Block& block, int row, const SampleView& plane,
              const SampleView& tiles, const float* background, float* values) {
    HWY_DYNAMIC_DISPATCH(resample)(map, block, row, plane, tiles, background, values);
}

const char* instructionSet() { return HWY_DYNAMIC_DISPATCH(instructionSet)(); }

} // namespace PlaneResampler

} // namespace panoveer

#endif
