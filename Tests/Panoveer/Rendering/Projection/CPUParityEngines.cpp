#include "Panoveer/Rendering/Projection/CPUProjectionRenderer.h"
#include "Panoveer/Rendering/Projection/ParityEngines.h"

#include <hwy/targets.h>

namespace panoveer {

namespace {

// On the steepest edges of these small pictures, of more than a hundred codes a sample, a place rounded to 1/256 of a
// sample and a width rounded to the nearest of the kernels are worth some codes.
std::vector<ParityEngine> makeEngines() {
    std::vector<ParityEngine> engines;
    const auto renderer = std::make_shared<CPUProjectionRenderer>(CPUProjectionOptions{.threads = 3});
    for (auto targets = hwy::SupportedTargets(); targets != 0; targets &= targets - 1) {
        const auto target = targets & -targets;
        engines.push_back({std::string("CPU ") + hwy::TargetName(target), renderer,
                           [target] { hwy::SetSupportedTargetsForTest(target); }, 4, 10});
    }
    return engines;
}

std::vector<ParityEngine>& engines() {
    static std::vector<ParityEngine> engines;
    return engines;
}

} // namespace

const std::vector<ParityEngine>& parityEngines() {
    if (engines().empty())
        engines() = makeEngines();
    return engines();
}

void releaseParityEngines() {
    engines().clear();
    hwy::SetSupportedTargetsForTest(0);
}

} // namespace panoveer
