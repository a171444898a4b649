#include "Platform/Core/Resources.h"

#include <cstdlib>
#include <string>
#include <vector>

namespace panoveer {

namespace fs = std::filesystem;

namespace {

fs::path resourceBundle() {
    if (const char* named = std::getenv("PANOVEER_RESOURCES"); named && *named)
        return named;
    std::error_code failure;
    return fs::read_symlink("/proc/self/exe", failure).parent_path() / "../share/panoveer/Resources";
}

} // namespace

std::optional<fs::path> resourceURL(std::string_view name, std::string_view extension, std::string_view subdirectory) {
    const auto fileName = std::string(name) + "." + std::string(extension);
    const std::vector<fs::path> candidates = {
        fs::path("Sources/Panoveer/Resources") / subdirectory / fileName,
        resourceBundle() / subdirectory / fileName,
        resourceBundle() / fileName,
    };
    for (const auto& candidate : candidates) {
        std::error_code failure;
        if (fs::is_regular_file(candidate, failure))
            return fs::absolute(candidate).lexically_normal();
    }
    return std::nullopt;
}

} // namespace panoveer
