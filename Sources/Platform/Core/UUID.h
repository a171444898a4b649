#pragma once

#include <array>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace panoveer {

// A universally unique identifier (RFC 9562). A default value is all zero; random() makes a version 4.
struct UUID {
    std::array<std::uint8_t, 16> bytes{};

    static UUID random();
    // Accepts the 36-character form in either case; anything else gives no value.
    static std::optional<UUID> parse(std::string_view text);
    // The 36-character form in upper case.
    std::string text() const;

    friend bool operator==(const UUID&, const UUID&) = default;
    friend auto operator<=>(const UUID&, const UUID&) = default;
};

} // namespace panoveer

template<>
struct std::hash<panoveer::UUID> {
    std::size_t operator()(const panoveer::UUID& id) const noexcept {
        std::size_t result = 0;
        for (auto byte : id.bytes)
            result = result * 31 + byte;
        return result;
    }
};
