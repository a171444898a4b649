#pragma once

#include <algorithm>
#include <optional>
#include <ranges>

namespace panoveer {

// The value that more than half of the votes are for. None without votes, and none for a tie.
template<std::ranges::random_access_range Votes>
std::optional<std::ranges::range_value_t<Votes>> majority(const Votes& votes) {
    const auto count = std::ranges::ssize(votes);
    for (const auto& candidate : votes)
        if (std::ranges::count(votes, candidate) * 2 > count)
            return candidate;
    return std::nullopt;
}

} // namespace panoveer
