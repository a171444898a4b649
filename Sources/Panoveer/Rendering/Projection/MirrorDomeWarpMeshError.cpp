#include "Panoveer/Rendering/Projection/MirrorDomeWarpMeshError.h"

#include <format>

namespace panoveer {

MirrorDomeWarpMeshError MirrorDomeWarpMeshError::fileNotReadable(const URL& url) {
    const auto place = url.isFileURL() ? url.path().string() : url.absoluteString();
    return {Case::fileNotReadable, std::format("Cannot read Mirror Dome warp mesh: {}", place)};
}

MirrorDomeWarpMeshError MirrorDomeWarpMeshError::invalidMeshType(std::int64_t value, std::int64_t line) {
    return {Case::invalidMeshType, std::format("Line {}: invalid Mirror Dome mesh type {}.", line, value)};
}

MirrorDomeWarpMeshError MirrorDomeWarpMeshError::invalidGridSize(std::int64_t line) {
    return {Case::invalidGridSize, std::format("Line {}: invalid Mirror Dome grid size.", line)};
}

MirrorDomeWarpMeshError MirrorDomeWarpMeshError::unexpectedNodeCount(std::int64_t expected, std::int64_t actual) {
    return {Case::unexpectedNodeCount,
            std::format("Mirror Dome warp mesh expected {} nodes, found {}.", expected, actual)};
}

MirrorDomeWarpMeshError MirrorDomeWarpMeshError::malformedNodeLine(std::int64_t line, std::string_view content) {
    return {Case::malformedNodeLine, std::format("Line {}: malformed Mirror Dome node: {}", line, content)};
}

MirrorDomeWarpMeshError MirrorDomeWarpMeshError::zeroAspectRatio() {
    return {Case::zeroAspectRatio, "Mirror Dome warp mesh has a zero projector aspect ratio."};
}

} // namespace panoveer
