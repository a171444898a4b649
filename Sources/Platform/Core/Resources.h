#pragma once

#include <filesystem>
#include <optional>
#include <string_view>

namespace panoveer {

// Finds a file that travels with the program. Looked for in this order:
//   1. Sources/Panoveer/Resources below the current directory: a development run uses the files as they lie;
//   2. the resource bundle with the subdirectory: ../share/panoveer/Resources beside the program's folder, or the
//      folder that PANOVEER_RESOURCES names;
//   3. the same bundle without the subdirectory.
// No value when it is in none of them.
std::optional<std::filesystem::path> resourceURL(std::string_view name, std::string_view extension,
                                                 std::string_view subdirectory = {});

} // namespace panoveer
