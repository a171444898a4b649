#pragma once

#include <bit>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <string_view>
#include <vector>

// Integers as ISO base media files hold them. Pure functions, any thread.
namespace panoveer {

template<std::unsigned_integral Integer>
constexpr Integer toBigEndian(Integer value) {
    if constexpr (sizeof(Integer) > 1 && std::endian::native == std::endian::little)
        return std::byteswap(value);
    else
        return value;
}

// The integer at an offset, which the caller knows to lie within the bytes.
template<std::unsigned_integral Integer>
Integer readBigEndian(std::span<const std::uint8_t> bytes, std::size_t offset = 0) {
    Integer value;
    std::memcpy(&value, bytes.subspan(offset, sizeof value).data(), sizeof value);
    return toBigEndian(value);
}

template<std::unsigned_integral Integer>
void storeBigEndian(std::span<std::uint8_t> bytes, std::size_t offset, Integer value) {
    const auto stored = toBigEndian(value);
    std::memcpy(bytes.subspan(offset, sizeof stored).data(), &stored, sizeof stored);
}

template<std::unsigned_integral Integer>
void appendBigEndian(std::vector<std::uint8_t>& bytes, Integer value) {
    bytes.resize(bytes.size() + sizeof value);
    storeBigEndian(bytes, bytes.size() - sizeof value, value);
}

inline void appendText(std::vector<std::uint8_t>& bytes, std::string_view text) {
    bytes.insert(bytes.end(), text.begin(), text.end());
}

} // namespace panoveer
