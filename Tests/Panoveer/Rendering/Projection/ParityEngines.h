#pragma once

#include "Panoveer/Rendering/Projection/ProjectionRenderer.h"

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace panoveer {

// An engine that is held to the scalar definition.
struct ParityEngine {
    std::string name;
    std::shared_ptr<ProjectionRenderer> renderer;
    std::function<void()> select; // makes the renderer work in the way that the name says
    // What a sample may differ by through the engine's own arithmetic, in codes of an output of 8 and of 10 bits.
    double codes = 1;
    double tenBitCodes = 1;
};

// All that this test program tries. Made at the first call.
const std::vector<ParityEngine>& parityEngines();
void releaseParityEngines();

} // namespace panoveer
