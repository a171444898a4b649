#include "Panoveer/Services/Export/StereoMultiviewFrameSink.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstring>

namespace panoveer {

namespace {

constexpr std::array partedFormats{pixelFormat::bgra, pixelFormat::yCbCr420VideoRange,
                                   pixelFormat::yCbCr420TenBitVideoRange, pixelFormat::yCbCr420TenBitFullRange,
                                   pixelFormat::yCbCr422TenBitVideoRange};

// Of one pixel of a plane, a chroma pixel being a pair of samples.
std::size_t bytesPerPixel(const PixelFormatLayout& layout, int plane) {
    const int samples = plane == 0 ? layout.samplesPerPixel : 2;
    return std::size_t(samples * layout.bytesPerSample);
}

} // namespace

StereoMultiviewFrameSink::StereoMultiviewFrameSink(VideoInput& writerInput, FourCC pixelFormat, int eyeWidth,
                                                   int eyeHeight)
    : adaptor_{writerInput, PixelBufferPool(pixelFormat, eyeWidth, eyeHeight)},
      packedAttributes_{pixelFormat, 2 * eyeWidth, eyeHeight} {}

PixelBufferPool* StereoMultiviewFrameSink::pixelBufferPool() {
    if (!packedPool_)
        packedPool_.emplace(packedAttributes_.pixelFormat, packedAttributes_.width, packedAttributes_.height);
    return &*packedPool_;
}

bool StereoMultiviewFrameSink::append(const PixelBufferPtr& packed, MediaTime presentationTime) {
    if (!packed)
        return false;
    if (!lastEyes_ || lastPackedBuffer_.lock() != packed) {
        lastEyes_.reset();
        lastEyes_ = part(*packed);
        lastPackedBuffer_ = packed;
    }
    if (!lastEyes_)
        return false;
    const std::array pictures{TaggedPixelBuffer{lastEyes_->left, leftLayerID, StereoView::leftEye},
                              TaggedPixelBuffer{lastEyes_->right, rightLayerID, StereoView::rightEye}};
    return adaptor_.input.appendTaggedBuffers(pictures, presentationTime);
}

// No value when the frame does not part into eyes of the track.
std::optional<StereoMultiviewFrameSink::Eyes> StereoMultiviewFrameSink::part(const PixelBuffer& packed) {
    const Eyes eyes{adaptor_.pixelBufferPool.acquire(), adaptor_.pixelBufferPool.acquire()};
    if (!eyes.left || !eyes.right || !copyHalf(packed, false, *eyes.left) || !copyHalf(packed, true, *eyes.right))
        return std::nullopt;
    eyes.left->color() = packed.color();
    eyes.right->color() = packed.color();
    return eyes;
}

bool StereoMultiviewFrameSink::copyHalf(const PixelBuffer& source, bool rightHalf, PixelBuffer& target) {
    if (source.format() != target.format() || source.width() != 2 * target.width() ||
        source.height() != target.height() || std::ranges::find(partedFormats, source.format()) == partedFormats.end())
        return false;
    for (int number = 0; number < source.planeCount(); ++number) {
        const auto &from = source.plane(number), &to = target.plane(number);
        if (from.width != 2 * to.width) // an odd width parts no pairs of chroma
            return false;
        const auto rowSize = std::size_t(to.width) * bytesPerPixel(source.layout(), number);
        const auto* half = from.data + (rightHalf ? rowSize : 0);
        for (int y = 0; y < to.height; ++y)
            std::memcpy(to.data + std::size_t(y) * to.rowBytes, half + std::size_t(y) * from.rowBytes, rowSize);
    }
    return true;
}

} // namespace panoveer
