#pragma once

#include "Platform/Core/FourCC.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

namespace panoveer {

// Formats of a PixelBuffer, each named by the code that media files and frameworks know it by.
// Ten-bit samples lie in the high bits of little-endian 16-bit words (value << 6), as P010, P210 and P410 do.
namespace pixelFormat {
inline constexpr FourCC bgra("BGRA");     // 8-bit B, G, R, A, one plane
inline constexpr FourCC rgbaHalf("RGhA"); // half-float R, G, B, A, one plane
inline constexpr FourCC
    yCbCr420VideoRange("420v"); // 8-bit Y; interleaved CbCr at half width and half height; video range
inline constexpr FourCC yCbCr420FullRange("420f");        // the same, full range
inline constexpr FourCC yCbCr420TenBitVideoRange("x420"); // ten-bit 4:2:0, video range
inline constexpr FourCC yCbCr420TenBitFullRange("xf20");  // ten-bit 4:2:0, full range
inline constexpr FourCC yCbCr422TenBitVideoRange("x422"); // ten-bit Y; interleaved CbCr at half width and full height
inline constexpr FourCC yCbCr444TenBitVideoRange("x444"); // ten-bit Y; interleaved CbCr at full size
} // namespace pixelFormat

// How a format lays its samples out.
struct PixelFormatLayout {
    int planeCount = 1;       // 1, or 2: luma and interleaved chroma
    int bytesPerSample = 1;   // 1, or 2 for ten-bit and half-float samples
    int samplesPerPixel = 4;  // of the first plane: 4 for BGRA and RGhA, 1 for luma
    int chromaWidthShift = 0; // chroma width = (width + shift) >> shift
    int chromaHeightShift = 0;
    bool isFullRange = false; // meaningful for Y'CbCr
    bool isYCbCr() const { return planeCount == 2; }
};

// No value for a code that is none of pixelFormat.
std::optional<PixelFormatLayout> layoutOf(FourCC format);

// One plane in memory. Width and height are in plane pixels: a chroma pixel is a CbCr pair.
struct PixelPlane {
    std::byte* data = nullptr;
    std::size_t rowBytes = 0; // distance from one row to the next
    int width = 0;
    int height = 0;
};

// What a picture says of its own colours: code points of ITU-T H.273 (ISO/IEC 23091-2), 2 for "not said".
struct ColorAttachments {
    int primaries = 2;
    int transfer = 2;
    int matrix = 2;
    // The payload of the mdcv box (24 bytes) and of the clli box (4 bytes); empty when the source has none.
    std::vector<std::uint8_t> masteringDisplayColorVolume = {};
    std::vector<std::uint8_t> contentLightLevelInfo = {};

    friend bool operator==(const ColorAttachments&, const ColorAttachments&) = default;
};

// A picture in memory: planes with 64-byte aligned rows. Held by shared_ptr, since pictures cross threads; whoever
// holds a reference may read, and only the one stage that is filling it writes. Planes start at 64-byte boundaries.
class PixelBuffer {
public:
    // Throws Error (domain AVFoundationErrorDomain) for an unknown format or a size that is not positive.
    static std::shared_ptr<PixelBuffer> make(FourCC format, int width, int height);

    // Adopts memory that somebody else owns, a decoder's frame say; `owner` keeps it alive.
    static std::shared_ptr<PixelBuffer> adopt(FourCC format, int width, int height, std::vector<PixelPlane> planes,
                                              std::shared_ptr<void> owner);

    FourCC format() const { return format_; }
    const PixelFormatLayout& layout() const { return layout_; }
    int width() const { return width_; }
    int height() const { return height_; }
    int planeCount() const { return int(planes_.size()); }
    const PixelPlane& plane(int index) const { return planes_.at(std::size_t(index)); }

    ColorAttachments& color() { return color_; }
    const ColorAttachments& color() const { return color_; }

private:
    PixelBuffer(FourCC format, const PixelFormatLayout& layout, int width, int height, std::vector<PixelPlane> planes,
                std::shared_ptr<void> owner);

    FourCC format_;
    PixelFormatLayout layout_;
    int width_;
    int height_;
    std::vector<PixelPlane> planes_;
    std::shared_ptr<void> owner_;
    ColorAttachments color_;
};

using PixelBufferPtr = std::shared_ptr<PixelBuffer>;

// Hands out buffers of one format and size and takes them back when their last reference goes. Safe from any thread;
// buffers may outlive the pool.
class PixelBufferPool {
public:
    // Throws Error as PixelBuffer::make does.
    PixelBufferPool(FourCC format, int width, int height);

    FourCC format() const { return format_; }
    int width() const { return width_; }
    int height() const { return height_; }

    // A buffer with stale contents and empty attachments; null when `allocationThreshold` buffers (0: no limit) are out
    // already.
    PixelBufferPtr acquire(int allocationThreshold = 0);

private:
    struct Shared;

    FourCC format_;
    int width_;
    int height_;
    std::shared_ptr<Shared> shared_;
};

} // namespace panoveer
