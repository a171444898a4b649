#pragma once

#include "Panoveer/Model/Records/VideoAsset.h"
#include "Panoveer/Services/Intake/ImmersiveFormatDetector.h"
#include "Platform/Core/Error.h"
#include "Platform/Core/URL.h"

#include <stop_token>
#include <string>
#include <string_view>
#include <vector>

namespace panoveer::tool {

// Files and folders as typed, sorted out, read, and their formats detected as far as they are not stated. Says on
// standard error what was left out and why. Throws an Error when nothing is left, and Cancelled.
std::vector<VideoAsset> readSources(const std::vector<std::string>& paths, const StatedImmersiveFormat& stated,
                                    const std::stop_token& stop);

// Throws UsageError when no picture of a source starts at a second or later, as far as its container tells.
void requirePictureAt(double seconds, const VideoAsset& asset, std::string_view option);

// What is wrong with a file, in a line that names it.
std::string failureText(const URL& url, const Error& error);

} // namespace panoveer::tool
