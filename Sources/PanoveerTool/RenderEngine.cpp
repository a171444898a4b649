#include "PanoveerTool/RenderEngine.h"

#include "Panoveer/Rendering/Projection/CPUProjectionRenderer.h"
#include "Panoveer/Rendering/Projection/VRMetalProjectionRenderer.h"
#include "Platform/GPU/GPUDevice.h"

#include <algorithm>

namespace panoveer::tool {

std::unique_ptr<ProjectionRenderer> makeRenderer(std::string_view choice) {
    auto selection = GPUDeviceSelection::fromEnvironment();
    bool takesGPU = selection.kind != GPUDeviceSelection::Kind::automatic;
    if (choice == "gpu") {
        selection = {.kind = GPUDeviceSelection::Kind::hardware};
        takesGPU = true;
    } else if (choice == "cpu") {
        takesGPU = false;
    } else if (!takesGPU) {
        takesGPU = std::ranges::any_of(GPUDevice::available(), [](const auto& device) { return !device.isSoftware; });
    }
    if (takesGPU)
        return std::make_unique<VRMetalProjectionRenderer>(GPUDevice::make(selection));
    return std::make_unique<CPUProjectionRenderer>();
}

} // namespace panoveer::tool
