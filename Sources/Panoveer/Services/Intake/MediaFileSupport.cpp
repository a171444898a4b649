#include "Panoveer/Services/Intake/MediaFileSupport.h"

#include "Platform/Core/Text.h"

#include <algorithm>
#include <array>

namespace panoveer::MediaFileSupport {

namespace {

constexpr auto importableVideo =
    std::to_array<std::string_view>({"3g2", "3gp", "avi", "crm", "dv", "hevc", "m2t", "m2ts", "m2v", "m4v", "mkv",
                                     "mov", "mp4", "mpeg", "mpg", "mts", "mxf", "ts", "webm"});
constexpr auto ffmpegContainers =
    std::to_array<std::string_view>({"m2t", "m2ts", "m2v", "mpeg", "mpg", "mts", "mxf", "ts"});

static_assert(std::ranges::is_sorted(importableVideo) && std::ranges::is_sorted(ffmpegContainers));

} // namespace

std::span<const std::string_view> importableVideoPathExtensions() { return importableVideo; }

std::span<const std::string_view> ffmpegContainerPathExtensions() { return ffmpegContainers; }

std::string lowercasedPathExtension(const URL& url) { return lowercased(url.pathExtension()); }

bool isImportableVideo(const URL& url) {
    return std::ranges::binary_search(importableVideo, std::string_view(lowercasedPathExtension(url)));
}

bool isFFmpegContainer(const URL& url) {
    return std::ranges::binary_search(ffmpegContainers, std::string_view(lowercasedPathExtension(url)));
}

LiveSyphonCompatibility liveSyphonCompatibility(const URL& url, bool requiresFFmpegDecode) {
    const auto extension = lowercasedPathExtension(url);
    const bool needsTranscode = requiresFFmpegDecode || extension == "avi" || extension == "mkv" || extension == "webm";
    return needsTranscode ? LiveSyphonCompatibility::transcodeRecommended : LiveSyphonCompatibility::compatible;
}

} // namespace panoveer::MediaFileSupport
