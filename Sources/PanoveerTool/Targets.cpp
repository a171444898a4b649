#include "PanoveerTool/Targets.h"

#include "Platform/Core/Error.h"

namespace panoveer::tool {

namespace fs = std::filesystem;

void checkTarget(const fs::path& target, bool overwrite) {
    std::error_code unknown;
    const auto status = fs::status(target, unknown);
    if (!fs::exists(status))
        return;
    if (fs::is_directory(status))
        throw Error(target.string() + " is a folder. Choose another name.");
    // A finished file takes the place of what stands there, and nobody wants a device replaced.
    if (!fs::is_regular_file(status))
        throw Error(target.string() + " is a device or a pipe. Choose another name.");
    if (!overwrite)
        throw Error(target.string() + " exists already. Choose another name, or say --overwrite.");
}

} // namespace panoveer::tool
