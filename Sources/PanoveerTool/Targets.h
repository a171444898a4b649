#pragma once

#include <filesystem>

namespace panoveer::tool {

// Throws an Error unless a file may be written under this name: whatever stands there already must be a file, and may
// be replaced only when the person said so.
void checkTarget(const std::filesystem::path& target, bool overwrite);

} // namespace panoveer::tool
