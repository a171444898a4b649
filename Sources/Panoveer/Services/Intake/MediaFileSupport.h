#pragma once

#include "Panoveer/Model/Records/VideoAsset.h"
#include "Platform/Core/URL.h"

#include <span>
#include <string>
#include <string_view>

// What file name extensions tell. Pure functions, any thread.
namespace panoveer::MediaFileSupport {

// Sorted, in lower case.
std::span<const std::string_view> importableVideoPathExtensions();
// Containers that are always decoded through FFmpeg. Sorted, in lower case.
std::span<const std::string_view> ffmpegContainerPathExtensions();

// The extension in the form in which the sets are asked.
std::string lowercasedPathExtension(const URL& url);
bool isImportableVideo(const URL& url);
bool isFFmpegContainer(const URL& url);

// Whether a file can be sent live as it is; material that FFmpeg decodes is better transcoded first.
LiveSyphonCompatibility liveSyphonCompatibility(const URL& url, bool requiresFFmpegDecode);

} // namespace panoveer::MediaFileSupport
