#pragma once

#include <cstdint>
#include <string>

namespace panoveer {

// A four-character code as files and pixel formats spell it: the first character in the highest byte.
struct FourCC {
    std::uint32_t value = 0;

    constexpr FourCC() = default;
    constexpr explicit FourCC(std::uint32_t code) : value(code) {}
    consteval FourCC(const char (&text)[5])
        : value(std::uint32_t(std::uint8_t(text[0])) << 24 | std::uint32_t(std::uint8_t(text[1])) << 16 |
                std::uint32_t(std::uint8_t(text[2])) << 8 | std::uint32_t(std::uint8_t(text[3]))) {}

    friend constexpr bool operator==(FourCC, FourCC) = default;
    friend constexpr auto operator<=>(FourCC, FourCC) = default;

    std::string text() const {
        return {char(value >> 24), char(value >> 16 & 0xff), char(value >> 8 & 0xff), char(value & 0xff)};
    }
};

} // namespace panoveer
