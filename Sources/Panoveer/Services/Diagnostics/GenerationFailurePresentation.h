#pragma once

#include "Platform/Core/UUID.h"

#include <exception>
#include <string>

namespace panoveer {

// What a failure dialog shows. Two equal failures are two dialogs: each has an id of its own.
struct GenerationFailurePresentation {
    UUID id = UUID::random();
    std::string title;
    std::string message;

    // With the describer's sentence for the failure.
    static GenerationFailurePresentation of(const std::exception& failure, std::string title);

    friend bool operator==(const GenerationFailurePresentation&, const GenerationFailurePresentation&) = default;
};

} // namespace panoveer
