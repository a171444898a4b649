#pragma once

#include "Panoveer/Rendering/Projection/ProjectionRenderer.h"

#include <memory>
#include <string_view>

namespace panoveer::tool {

// The engine that `--renderer` names: "gpu" demands a real GPU, "cpu" renders in software, "auto" takes the GPU where
// there is one. Throws an Error that says what is missing.
std::unique_ptr<ProjectionRenderer> makeRenderer(std::string_view choice);

} // namespace panoveer::tool
