#pragma once

#include "Platform/Media/EncoderKernels.h"
#include "Platform/Media/ProResTransform.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace panoveer {

struct EncoderConfiguration;

// A member of the ProRes family.
struct ProResVariant {
    FourCC codec;
    double megabitsPerSecond; // published target at 1920 x 1080 and 29.97 frames a second, without alpha
    bool hasAlpha;            // 4:4:4 with alpha; else 4:2:2
};

// Codes pictures as progressive ProRes frames (SMPTE RDD 36), one at a time, each by itself, on one thread. Samples go
// from the picture into the transform without being rounded: 4:4:4 keeps 12 bits of them, 4:2:2 the ten that it comes
// with. It goes slice by slice, so that all of its work stays in the cache. Not for other layers.
class ProResFrameCoder {
public:
    // What one level of every coefficient stands for, in steps of 12-bit samples; the transform is orthonormal. Of a
    // step, the next one that a frame can have, not below it.
    static constexpr int finestStep = 2;
    static constexpr int coarsestStep = 4096;
    static int codableStep(int step);

    ProResFrameCoder(const ProResVariant& variant, const EncoderConfiguration& configuration);

    // The frame with a codable step in all of its slices; valid until the next call. Throws std::bad_alloc.
    std::span<const std::uint8_t> code(const PixelBuffer& picture, int step);
    // How many bytes of that frame are Y'CbCr. Alpha is kept without loss, whatever it takes.
    std::size_t colorByteCount() const { return colorByteCount_; }

private:
    struct Slice {
        int x = 0, y = 0; // of its first pixel
        int length = 0;   // macroblocks
    };

    static std::vector<Slice> slicesOf(int width, int height);
    std::uint8_t* end() { return bytes_.data() + used_; }
    void writeSlice(const PixelBuffer& picture, const Slice& slice);
    void readSamples(const PixelBuffer& picture, const Slice& slice);
    std::size_t writeComponent(const SliceSamples& samples, int columnCount, BlockOrder order);
    void writeAlphaOf(const Slice& slice);
    std::size_t advance(const std::uint8_t* newEnd);

    const bool hasAlpha_;
    const int alphaDepth_; // bits
    const int width_, height_;
    const int matrix_; // of H.273
    const std::vector<Slice> slices_;
    const std::vector<std::uint8_t> header_; // all in front of the table of slices

    std::vector<std::uint8_t> bytes_; // the frame and room behind it
    std::size_t used_ = 0;
    std::size_t colorByteCount_ = 0;
    int quantiser_ = 1;
    LevelScales scales_{};

    // Of the slice that is being written.
    SliceSamples y_, cb_, cr_;
    std::array<std::uint16_t, SliceSamples::count> alpha_{};
    std::array<std::int16_t, SliceSamples::count> levels_{};
};

} // namespace panoveer
