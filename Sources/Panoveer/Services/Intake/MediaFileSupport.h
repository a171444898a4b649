#pragma once

#include "Panoveer/Model/Records/VideoAsset.h"
#include "Platform/Core/URL.h"

#include <algorithm>
#include <array>
#include <string_view>

// What file name extensions tell. Pure values and functions, any thread.
namespace panoveer::MediaFileSupport {

// Extensions in lower case, sorted; asked with an extension in lower case.
template<std::size_t size>
struct PathExtensions {
    std::array<std::string_view, size> members;

    constexpr bool contains(std::string_view extension) const { return std::ranges::binary_search(members, extension); }
    constexpr auto begin() const { return members.begin(); }
    constexpr auto end() const { return members.end(); }
};

inline constexpr PathExtensions<19> importableVideoPathExtensions{{"3g2", "3gp", "avi", "crm", "dv", "hevc", "m2t",
                                                                   "m2ts", "m2v", "m4v", "mkv", "mov", "mp4", "mpeg",
                                                                   "mpg", "mts", "mxf", "ts", "webm"}};
// Containers that are always decoded through FFmpeg.
inline constexpr PathExtensions<8> ffmpegContainerPathExtensions{
    {"m2t", "m2ts", "m2v", "mpeg", "mpg", "mts", "mxf", "ts"}};

static_assert(std::ranges::is_sorted(importableVideoPathExtensions));
static_assert(std::ranges::is_sorted(ffmpegContainerPathExtensions));

// Whether a file can be sent live as it is; material that FFmpeg decodes is better transcoded first.
LiveSyphonCompatibility liveSyphonCompatibility(const URL& url, bool requiresFFmpegDecode);

} // namespace panoveer::MediaFileSupport
