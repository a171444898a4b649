#pragma once

#include "Platform/Core/Error.h"

#include <cstdint>

namespace panoveer {

// What keeps the GPU renderer from working. what() is the text for the person.
class VRMetalProjectionError : public Error {
public:
    enum class Case {
        textureCacheUnavailable, // carries a status
        textureCreationFailed,   // carries a status
        commandQueueUnavailable,
        commandBufferUnavailable,
        functionUnavailable,
        libraryUnavailable,
    };

    // The status of a private texture that could not be made, and of a plane that is not of the format asked for.
    static constexpr std::int32_t privateTextureStatus = -6660;
    static constexpr std::int32_t invalidPixelFormatStatus = -6680;

    // `status` means something to the two cases that carry one.
    explicit VRMetalProjectionError(Case which, std::int32_t status = 0);
    // Caused by a failure of the layer below, whose code becomes the status.
    VRMetalProjectionError(Case which, const Error& cause);

    Case which() const { return which_; }
    std::int32_t status() const { return code(); }

private:
    Case which_;
};

} // namespace panoveer
