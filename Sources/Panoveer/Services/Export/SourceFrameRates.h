#pragma once

#include "Panoveer/Model/Records/VRClipSegment.h"
#include "Platform/Core/URL.h"

#include <optional>
#include <span>
#include <unordered_map>
#include <vector>

namespace panoveer {

// Frames per second of the sources, as far as they are known.
using SourceFrameRates = std::unordered_map<URL, double>;

// What a clip of unknown rate is taken to have.
inline constexpr double unknownSourceFrameRate = 30.0;

inline std::optional<double> frameRateOf(const URL& source, const SourceFrameRates& rates) {
    const auto found = rates.find(source);
    return found == rates.end() ? std::nullopt : std::optional(found->second);
}

// The known rates in the order of the clips; duplicates stay.
inline std::vector<double> frameRatesOf(std::span<const VRClipSegment> segments, const SourceFrameRates& rates) {
    std::vector<double> result;
    for (const auto& segment : segments)
        if (const auto rate = frameRateOf(segment.sourceURL, rates))
            result.push_back(*rate);
    return result;
}

} // namespace panoveer
