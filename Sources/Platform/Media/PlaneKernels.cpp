#include "Platform/Media/PlaneKernels.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace panoveer {

namespace {

// Black or neutral, and the distance to white or to full saturation, in 8-bit steps of the video range.
double offsetOf(const SampleScale& scale) {
    if (scale.isChroma)
        return double(1 << (scale.depth - 1));
    return scale.isFullRange ? 0 : double(16 << (scale.depth - 8));
}

double spanOf(const SampleScale& scale) {
    if (scale.isFullRange)
        return double((1 << scale.depth) - 1);
    return double((scale.isChroma ? 224 : 219) << (scale.depth - 8));
}

template<class In, class Out, class Map>
void mapSamples(const std::byte* source, std::byte* result, std::size_t count, const Map& map) {
    const auto* __restrict in = reinterpret_cast<const In*>(source);
    auto* __restrict out = reinterpret_cast<Out*>(result);
    for (std::size_t i = 0; i < count; ++i)
        out[i] = Out(map(in[i]));
}

template<class In, class Out, class Map>
void interleaveSamples(const std::byte* first, const std::byte* second, std::byte* result, std::size_t count,
                       const Map& map) {
    const auto* __restrict a = reinterpret_cast<const In*>(first);
    const auto* __restrict b = reinterpret_cast<const In*>(second);
    auto* __restrict out = reinterpret_cast<Out*>(result);
    for (std::size_t i = 0; i < count; ++i) {
        out[2 * i] = Out(map(a[i]));
        out[2 * i + 1] = Out(map(b[i]));
    }
}

} // namespace

int rescaledSample(int value, const SampleScale& from, const SampleScale& to) {
    // Multiplied before it is divided, so that halves stay exact.
    const double distance = (value - offsetOf(from)) * spanOf(to) / spanOf(from);
    return int(std::clamp(std::floor(distance + offsetOf(to) + 0.5), 0.0, double((1 << to.depth) - 1)));
}

SampleMapper::SampleMapper(const SampleScale& from, const SampleScale& to)
    : sourceIsWide_(from.depth > 8), resultIsWide_(to.depth > 8) {
    const unsigned spare = resultIsWide_ ? unsigned(16 - to.depth) : 0;
    if (from == to && !resultIsWide_) {
        method_ = Method::copy;
    } else if (from.isFullRange == to.isFullRange && (from.depth == to.depth || !from.isFullRange)) {
        // In the video range a depth differs from another by a power of two alone.
        right_ = unsigned(std::max(from.depth - to.depth, 0));
        rounding_ = right_ == 0 ? 0 : 1U << (right_ - 1);
        left_ = unsigned(std::max(to.depth - from.depth, 0)) + spare;
        limit_ = right_ == 0 ? (1U << from.depth) - 1 : (1U << to.depth) - 1;
    } else {
        method_ = Method::table;
        // A 16-bit word may hold stray bits above its depth: the table answers for those too.
        const int count = sourceIsWide_ ? 1 << 16 : 1 << 8;
        table_.resize(std::size_t(count));
        for (int value = 0; value < count; ++value)
            table_[std::size_t(value)] = std::uint16_t(rescaledSample(value, from, to) << spare);
    }
}

// Calls with a functor over one sample. Its parameters are copies, which the compiler knows not to alias the result.
template<class Call>
void SampleMapper::withMap(const Call& call) const {
    const auto withSource = [&]<class In>(In) {
        const auto withResult = [&]<class Out>(Out) {
            if (method_ == Method::table)
                call.template operator()<In, Out>([table = table_.data()](In value) { return table[value]; });
            else
                call.template operator()<In, Out>(
                    [rounding = rounding_, right = right_, limit = limit_, left = left_](In value) {
                        return std::min((value + rounding) >> right, limit) << left;
                    });
        };
        resultIsWide_ ? withResult(std::uint16_t()) : withResult(std::uint8_t());
    };
    sourceIsWide_ ? withSource(std::uint16_t()) : withSource(std::uint8_t());
}

void SampleMapper::mapRow(const std::byte* source, std::byte* result, std::size_t count) const {
    if (method_ == Method::copy)
        std::memcpy(result, source, count);
    else
        withMap([&]<class In, class Out>(const auto& map) { mapSamples<In, Out>(source, result, count, map); });
}

void SampleMapper::interleaveRow(const std::byte* first, const std::byte* second, std::byte* result,
                                 std::size_t count) const {
    if (method_ == Method::copy)
        interleaveSamples<std::uint8_t, std::uint8_t>(first, second, result, count, [](auto value) { return value; });
    else
        withMap([&]<class In, class Out>(const auto& map) {
            interleaveSamples<In, Out>(first, second, result, count, map);
        });
}

} // namespace panoveer
