#pragma once

#include "Panoveer/Rendering/Projection/ProjectionRenderer.h"

#include <memory>
#include <string>
#include <vector>

namespace panoveer::bench {

// What --engine can name: "all" and every engine. Nothing named means all but those that are only a reference.
std::vector<std::string> engineChoices();

// The engines of a choice. One that this machine lacks is left out with a line on standard error, unless it was named.
// Throws what the engine throws, or std::runtime_error when none is left.
std::vector<std::unique_ptr<ProjectionRenderer>> makeEngines(const std::string& choice);

} // namespace panoveer::bench
