#include "Platform/Core/Base64.h"

#include <algorithm>

namespace panoveer {

namespace {

constexpr std::string_view alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

} // namespace

std::string base64Encoded(std::span<const std::uint8_t> bytes) {
    std::string text;
    text.reserve((bytes.size() + 2) / 3 * 4);
    for (std::size_t i = 0; i < bytes.size(); i += 3) {
        const auto count = std::min<std::size_t>(bytes.size() - i, 3);
        std::uint32_t group = 0;
        for (std::size_t k = 0; k < 3; ++k)
            group = group << 8 | (k < count ? bytes[i + k] : 0u);
        for (std::size_t k = 0; k < 4; ++k)
            text += k <= count ? alphabet[group >> (18 - 6 * k) & 0x3f] : '=';
    }
    return text;
}

std::optional<std::vector<std::uint8_t>> base64Decoded(std::string_view text) {
    if (text.size() % 4 != 0)
        return std::nullopt;
    const std::size_t padding = text.ends_with("==") ? 2 : text.ends_with("=") ? 1 : 0;
    text.remove_suffix(padding);
    std::vector<std::uint8_t> bytes;
    bytes.reserve(text.size() * 3 / 4);
    std::uint32_t bits = 0;
    int bitCount = 0;
    for (const char c : text) {
        const auto digit = alphabet.find(c);
        if (digit == std::string_view::npos)
            return std::nullopt;
        bits = (bits << 6 | std::uint32_t(digit)) & 0xfff;
        bitCount += 6;
        if (bitCount >= 8) {
            bitCount -= 8;
            bytes.push_back(std::uint8_t(bits >> bitCount));
        }
    }
    return bytes;
}

} // namespace panoveer
