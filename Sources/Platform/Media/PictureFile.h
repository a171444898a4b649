#pragma once

#include "Platform/Media/PixelBuffer.h"

#include <filesystem>

// Still pictures on the disk: 8-bit PNG in sRGB. Blocking; any thread. All throw Error: posixErrorDomain for what the
// file system refuses, mediaErrorDomain for a file that is not a whole PNG.
namespace panoveer {

struct PictureInfo {
    int width = 0;      // pixels
    int height = 0;     // pixels
    int frameCount = 0; // 1, or the frames of an animation

    friend bool operator==(const PictureInfo&, const PictureInfo&) = default;
};

// Writes a BGRA picture, alpha straight, under a hidden name beside `path` and renames it when it is whole and on the
// disk. A file of that name is replaced.
void writePNG(const PixelBuffer& picture, const std::filesystem::path& path);

// Size and frame count of a PNG file, all of whose chunks and checksums are read.
PictureInfo readPNGInfo(const std::filesystem::path& path);

// The first picture of a PNG file, as BGRA.
PixelBufferPtr readPNG(const std::filesystem::path& path);

} // namespace panoveer
