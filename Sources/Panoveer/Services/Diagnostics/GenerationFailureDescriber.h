#pragma once

#include "Platform/Core/Error.h"

#include <exception>
#include <string>
#include <vector>

namespace panoveer {

// Says what went wrong in a long task: in one sentence for the person, and in one precise line for a diagnostics file.
// Pure functions, any thread.
struct GenerationFailureDescriber {
    static std::string message(const std::exception& failure);
    static std::string diagnosticMessage(const std::exception& failure);

    // Whether it comes down to a full disk, or to a quota that is used up.
    static bool containsOutOfSpaceError(const std::exception& failure);

    // The failure and every one beneath it, outermost first, each once. Empty for an exception that is no Error, except
    // that memory which has run out counts as ENOMEM.
    static std::vector<Error> errorChain(const std::exception& failure);
};

} // namespace panoveer
