#pragma once

#include "Support/MediaFactory.h"

#include <nlohmann/json.hpp>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

namespace panoveer::test {

// Gives the programs of this process a place of their own for traces and logs, for its life.
inline void isolate() {
    static const TemporaryFolder folder;
    setenv("XDG_DATA_HOME", folder.path().c_str(), 1);
    setenv("XDG_STATE_HOME", folder.path().c_str(), 1);
}

inline ProgramResult panoveer(std::vector<std::string> arguments) {
    isolate();
    arguments.insert(arguments.begin(), PANOVEER_PROGRAM);
    return runProgram(arguments);
}

inline nlohmann::json videoStream(const std::filesystem::path& movie, const std::vector<std::string>& options = {}) {
    const auto file = ffprobeJSON(movie, options);
    for (const auto& stream : file["streams"])
        if (stream["codec_type"] == "video")
            return stream;
    return {};
}

} // namespace panoveer::test
