#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

// Row loops that bring planar Y'CbCr samples into the layouts of PixelBuffer. Not for other layers.
namespace panoveer {

// How samples are numbered: their depth in bits and their range (H.273, 8.3).
struct SampleScale {
    int depth = 8;
    bool isFullRange = false;
    bool isChroma = false;
    friend bool operator==(const SampleScale&, const SampleScale&) = default;
};

// The value of the source scale, rounded to the nearest step of the target scale. The definition of every path below.
int rescaledSample(int value, const SampleScale& from, const SampleScale& to);

// Turns samples of one scale into words of another. Source samples lie in bytes (depth 8) or in the low bits of native
// 16-bit words; results in bytes, or in the high bits of 16-bit words.
class SampleMapper {
public:
    SampleMapper(const SampleScale& from, const SampleScale& to);

    // result[i] = mapped(source[i])
    void mapRow(const std::byte* source, std::byte* result, std::size_t count) const;
    // result[2 i] = mapped(first[i]), result[2 i + 1] = mapped(second[i])
    void interleaveRow(const std::byte* first, const std::byte* second, std::byte* result, std::size_t count) const;

private:
    enum class Method { copy, shift, table };

    template<class Call>
    void withMap(const Call& call) const;

    bool sourceIsWide_;
    bool resultIsWide_;
    Method method_ = Method::shift;
    // Method::shift: min((value + rounding) >> right, limit) << left
    unsigned rounding_ = 0, right_ = 0, limit_ = 0, left_ = 0;
    std::vector<std::uint16_t> table_; // Method::table: the result of every source value
};

} // namespace panoveer
