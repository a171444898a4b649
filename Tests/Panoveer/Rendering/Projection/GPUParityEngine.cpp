#include "Panoveer/Rendering/Projection/ParityEngines.h"
#include "Panoveer/Rendering/Projection/VRMetalProjectionRenderer.h"
#include "Platform/GPU/GPUDevice.h"

namespace panoveer {

namespace {

std::vector<ParityEngine>& engines() {
    static std::vector<ParityEngine> engines;
    return engines;
}

} // namespace

// Single precision moves a place by up to a thousandth of a pixel and a colour by less than one code of ten bits, so
// that a sample may round to its neighbour.
const std::vector<ParityEngine>& parityEngines() {
    if (engines().empty()) {
        const auto renderer = std::make_shared<VRMetalProjectionRenderer>(GPUDevice::make());
        engines().push_back({renderer->name(), renderer, [] {}, 1});
    }
    return engines();
}

// A device does not outlive main().
void releaseParityEngines() { engines().clear(); }

} // namespace panoveer
