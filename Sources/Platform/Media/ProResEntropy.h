#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>

// The variable-length codes of a ProRes slice (SMPTE RDD 36, 7.1.1 and 7.1.2). Not for other layers.
namespace panoveer {

// Writes bits, the highest first, to memory that its owner has made large enough: eight bytes more than it takes.
class BitWriter {
public:
    explicit BitWriter(std::uint8_t* target) : target_(target) {}

    // The low `count` bits, 1 to 56; the bits above them are zero.
    void put(std::uint64_t bits, int count) {
        held_ |= bits << (64 - heldCount_ - count);
        heldCount_ += count;
        // All eight bytes, whatever is in them: cheaper than to ask.
        static_assert(std::endian::native == std::endian::little);
        const auto word = std::byteswap(held_);
        std::memcpy(target_, &word, sizeof word);
        target_ += heldCount_ / 8;
        held_ <<= heldCount_ & ~7;
        heldCount_ &= 7;
    }

    // The end of what was written; the last byte is filled up with zeros.
    std::uint8_t* finish() const { return target_ + (heldCount_ > 0 ? 1 : 0); }

private:
    std::uint8_t* target_;
    std::uint64_t held_ = 0; // from the highest bit on
    int heldCount_ = 0;      // fewer than 8
};

constexpr std::size_t coefficientsPerBlock = 64;

// One component of a slice. `levels` are the quantised coefficients of its blocks, none beyond 14 bits and a sign:
// position by position in the order of the scan, of each position those of all blocks in the order of the slice.
void writeLevels(std::span<const std::int16_t> levels, BitWriter& writer);

// No more bytes than so many levels take, whatever they are.
constexpr std::size_t largestLevelBytes(std::size_t levelCount) { return levelCount * 8; }

// The alpha of a slice, row by row, `depth` bits a sample: 8 or 16.
void writeAlpha(std::span<const std::uint16_t> samples, int depth, BitWriter& writer);

constexpr std::size_t largestAlphaBytes(std::size_t sampleCount) { return sampleCount * 3 + 8; }

} // namespace panoveer
