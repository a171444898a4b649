#pragma once

#include "Panoveer/Rendering/Projection/ProjectionRenderer.h"

#include <memory>
#include <string_view>

namespace panoveer::tool {

// The engine that `--renderer` names: "gpu" demands a real GPU, "cpu" is the engine on the processor, "auto" takes a
// real GPU where there is one and the processor else. PANOVEER_GPU, where it is set, decides for "auto", so that tests
// can have a GPU in software. Throws an Error that says what is missing.
std::unique_ptr<ProjectionRenderer> makeRenderer(std::string_view choice);

} // namespace panoveer::tool
