#include "Platform/Core/StandardFolders.h"

#include <cstdlib>

namespace panoveer {

namespace {

std::filesystem::path baseFolder(const char* variable, const char* belowHome) {
    const char* named = std::getenv(variable);
    return named && *named ? std::filesystem::path(named) : homeFolder() / belowHome;
}

} // namespace

std::filesystem::path homeFolder() {
    const char* home = std::getenv("HOME");
    return home && *home ? home : "/tmp";
}

std::filesystem::path applicationSupportFolder() {
    return baseFolder("XDG_DATA_HOME", ".local/share") / "Panoveer Studio";
}

std::filesystem::path logFile() {
    return baseFolder("XDG_STATE_HOME", ".local/state") / "Panoveer Studio" / "panoveer.log";
}

} // namespace panoveer
