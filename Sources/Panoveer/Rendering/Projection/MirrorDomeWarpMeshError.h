#pragma once

#include "Platform/Core/Error.h"
#include "Platform/Core/URL.h"

#include <cstdint>
#include <string_view>

namespace panoveer {

// What is wrong with a warp mesh file. what() is one line for the person. Line numbers count from 1 and leave out blank
// lines.
class MirrorDomeWarpMeshError : public Error {
public:
    enum class Case {
        fileNotReadable,
        invalidMeshType,
        invalidGridSize,
        unexpectedNodeCount,
        malformedNodeLine,
        zeroAspectRatio,
    };

    static MirrorDomeWarpMeshError fileNotReadable(const URL& url);
    static MirrorDomeWarpMeshError invalidMeshType(std::int64_t value, std::int64_t line);
    static MirrorDomeWarpMeshError invalidGridSize(std::int64_t line);
    static MirrorDomeWarpMeshError unexpectedNodeCount(std::int64_t expected, std::int64_t actual);
    static MirrorDomeWarpMeshError malformedNodeLine(std::int64_t line, std::string_view content);
    static MirrorDomeWarpMeshError zeroAspectRatio();

    Case which() const { return case_; }

private:
    MirrorDomeWarpMeshError(Case which, const std::string& message) : Error(message), case_(which) {}

    Case case_;
};

} // namespace panoveer
