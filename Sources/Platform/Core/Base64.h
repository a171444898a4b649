#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

// Binary data in text: the standard alphabet of RFC 4648, section 4, with padding. Pure functions, any thread.
namespace panoveer {

std::string base64Encoded(std::span<const std::uint8_t> bytes);

// Strict: no value for a character outside the alphabet, wrong padding or a length that is no multiple of four.
std::optional<std::vector<std::uint8_t>> base64Decoded(std::string_view text);

} // namespace panoveer
