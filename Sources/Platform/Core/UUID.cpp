#include "Platform/Core/UUID.h"

#include <random>

namespace panoveer {

namespace {

constexpr std::string_view hexDigits = "0123456789ABCDEF";

bool isSeparatorIndex(std::size_t index) { return index == 8 || index == 13 || index == 18 || index == 23; }

int hexValue(char c) {
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    return -1;
}

} // namespace

UUID UUID::random() {
    std::random_device source;
    UUID id;
    for (auto& byte : id.bytes)
        byte = std::uint8_t(source());
    id.bytes[6] = std::uint8_t((id.bytes[6] & 0x0f) | 0x40); // version 4
    id.bytes[8] = std::uint8_t((id.bytes[8] & 0x3f) | 0x80); // variant of the RFC
    return id;
}

std::optional<UUID> UUID::parse(std::string_view text) {
    if (text.size() != 36)
        return std::nullopt;
    UUID id;
    std::size_t nibble = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (isSeparatorIndex(i)) {
            if (text[i] != '-')
                return std::nullopt;
            continue;
        }
        const int value = hexValue(text[i]);
        if (value < 0)
            return std::nullopt;
        auto& byte = id.bytes[nibble / 2];
        byte = std::uint8_t(nibble % 2 == 0 ? value << 4 : byte | value);
        ++nibble;
    }
    return id;
}

std::string UUID::text() const {
    std::string result;
    result.reserve(36);
    for (auto byte : bytes) {
        if (isSeparatorIndex(result.size()))
            result += '-';
        result += hexDigits[byte >> 4];
        result += hexDigits[byte & 0x0f];
    }
    return result;
}

} // namespace panoveer
