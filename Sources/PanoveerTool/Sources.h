#pragma once

#include "Panoveer/Model/Records/VideoAsset.h"
#include "Platform/Core/URL.h"

#include <string>
#include <vector>

namespace panoveer::tool {

// Files and folders as typed, sorted out and read. Says on standard error what was left out and why. Throws an Error
// when nothing is left.
std::vector<VideoAsset> readSources(const std::vector<std::string>& paths);

} // namespace panoveer::tool
