#include "Panoveer/Services/Diagnostics/GenerationFailurePresentation.h"

#include "Panoveer/Services/Diagnostics/GenerationFailureDescriber.h"

namespace panoveer {

GenerationFailurePresentation GenerationFailurePresentation::of(const std::exception& failure, std::string title) {
    return {.title = std::move(title), .message = GenerationFailureDescriber::message(failure)};
}

} // namespace panoveer
