#pragma once

#include <cstdint>

namespace panoveer {

// An exact time: value / timescale seconds. A timescale of 0 marks a time that is not known.
struct MediaTime {
    std::int64_t value = 0;
    std::int32_t timescale = 0;

    static constexpr MediaTime invalid() { return {}; }
    constexpr bool isValid() const { return timescale > 0; }
    constexpr double seconds() const { return isValid() ? double(value) / double(timescale) : 0.0; }

    friend constexpr bool operator==(const MediaTime&, const MediaTime&) = default;
};

} // namespace panoveer
