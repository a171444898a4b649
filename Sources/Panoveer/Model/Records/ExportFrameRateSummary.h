#pragma once

#include <optional>
#include <span>
#include <vector>

namespace panoveer {

// Which frame rates a set of sources has. Rates that are not finite and positive do not count.
class ExportFrameRateSummary {
public:
    explicit ExportFrameRateSummary(std::span<const double> sourceFrameRates);

    // Frames per second, rounded to three decimals, rising; rates within 0.01 of the one kept before are the same rate.
    const std::vector<double>& distinctFrameRates() const { return distinctFrameRates_; }
    std::optional<double> highestFrameRate() const;

private:
    std::vector<double> distinctFrameRates_;
};

} // namespace panoveer
