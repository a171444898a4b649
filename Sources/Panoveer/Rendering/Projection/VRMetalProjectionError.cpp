#include "Panoveer/Rendering/Projection/VRMetalProjectionError.h"

#include "Platform/Core/Localization.h"

namespace panoveer {

namespace {

std::string description(VRMetalProjectionError::Case which, std::int32_t status) {
    using enum VRMetalProjectionError::Case;
    switch (which) {
    case textureCacheUnavailable: return localized("error.metal.texture_cache_unavailable", std::to_string(status));
    case textureCreationFailed: return localized("error.metal.texture_creation_failed", std::to_string(status));
    case commandQueueUnavailable: return localized("error.metal.command_queue_unavailable");
    case commandBufferUnavailable: return localized("error.metal.command_buffer_unavailable");
    case functionUnavailable: return localized("error.metal.function_unavailable");
    case libraryUnavailable: return localized("error.metal.library_unavailable");
    }
    return {};
}

} // namespace

VRMetalProjectionError::VRMetalProjectionError(Case which, std::int32_t status)
    : Error(description(which, status), "VRMetalProjectionError", status), which_(which) {}

VRMetalProjectionError::VRMetalProjectionError(Case which, const Error& cause)
    : VRMetalProjectionError(which, cause.code()) {
    setUnderlying(std::make_shared<Error>(cause));
}

} // namespace panoveer
