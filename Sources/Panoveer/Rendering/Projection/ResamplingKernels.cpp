#include "Panoveer/Rendering/Projection/ResamplingKernels.h"

#include "Panoveer/Rendering/Projection/PlaneSampler.h"

#include <algorithm>
#include <cmath>
#include <numeric>

namespace panoveer {

namespace {

constexpr double widest = 4; // resamplingWeights() goes no further

} // namespace

const ResamplingKernels& ResamplingKernels::shared() {
    static const ResamplingKernels kernels;
    return kernels;
}

int ResamplingKernels::widthIndex(double footprint) {
    // Between two of them the width changes by a hundredth of a step.
    static const auto indices = [] {
        std::array<std::int8_t, 4096> table{};
        for (std::size_t i = 0; i < table.size(); ++i) {
            const double width = 1 + double(i) * (widest - 1) / double(table.size() - 1);
            table[i] = std::int8_t(std::lround(std::log(width) / std::log(widest) * (widths - 1)));
        }
        return table;
    }();
    const double share = (std::clamp(footprint, 1.0, widest) - 1) / (widest - 1);
    return indices[std::size_t(share * double(indices.size() - 1) + 0.5)];
}

ResamplingKernels::ResamplingKernels() {
    for (int width = 0; width < widths; ++width) {
        const double footprint = std::pow(widest, double(width) / (widths - 1));
        for (int phase = 0; phase <= phases; ++phase) {
            const auto exact = resamplingWeights(double(phase) / phases, taps, footprint).weight;
            Weights rounded{};
            std::ranges::transform(exact, rounded.begin(),
                                   [](double w) { return std::int16_t(std::lround(w * unit)); });
            // What rounding took goes to the largest weight, where it matters least.
            *std::ranges::max_element(rounded) +=
                std::int16_t(unit - std::accumulate(rounded.begin(), rounded.end(), 0));
            vertical_.push_back(rounded);
            for (std::size_t i = 0; i < horizontal_.size(); ++i)
                for (const double weight : exact)
                    horizontal_[i].insert(horizontal_[i].end(), std::size_t(1) << i, float(weight));
        }
    }
}

} // namespace panoveer
