#include "PanoveerTool/RenderEngine.h"

#include "Panoveer/Rendering/Projection/VRMetalProjectionRenderer.h"
#include "Platform/GPU/GPUDevice.h"

namespace panoveer::tool {

std::unique_ptr<ProjectionRenderer> makeRenderer(std::string_view choice) {
    auto selection = GPUDeviceSelection::fromEnvironment();
    if (choice == "gpu")
        selection = {.kind = GPUDeviceSelection::Kind::hardware};
    else if (choice == "cpu")
        selection = {.kind = GPUDeviceSelection::Kind::software};
    return std::make_unique<VRMetalProjectionRenderer>(GPUDevice::make(selection));
}

} // namespace panoveer::tool
