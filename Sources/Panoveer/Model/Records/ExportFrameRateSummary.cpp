#include "Panoveer/Model/Records/ExportFrameRateSummary.h"

#include <algorithm>
#include <cmath>

namespace panoveer {

ExportFrameRateSummary::ExportFrameRateSummary(std::span<const double> sourceFrameRates) {
    std::vector<double> rates;
    for (const double rate : sourceFrameRates)
        if (std::isfinite(rate) && rate > 0)
            rates.push_back(std::round(rate * 1000) / 1000);
    std::ranges::sort(rates);
    for (const double rate : rates)
        if (distinctFrameRates_.empty() || rate - distinctFrameRates_.back() > 0.01)
            distinctFrameRates_.push_back(rate);
}

std::optional<double> ExportFrameRateSummary::highestFrameRate() const {
    return distinctFrameRates_.empty() ? std::nullopt : std::optional(distinctFrameRates_.back());
}

} // namespace panoveer
