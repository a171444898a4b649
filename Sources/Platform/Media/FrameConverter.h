#pragma once

#include "Platform/Media/BGRAKernel.h"
#include "Platform/Media/MediaSupport.h"
#include "Platform/Media/PixelBuffer.h"
#include "Platform/Media/PlaneKernels.h"

#include <memory>
#include <optional>

namespace panoveer {

// Turns decoded frames into pictures of one format. By the shape of the frame it
//   1. adopts the decoder's planes where they are the asked ones already; of planar 8-bit Y'CbCr the luma plane, beside
//      chroma that is interleaved here;
//   2. else, with the chroma resolution unchanged, rewrites planar Y'CbCr row by row: interleaving, depth, range;
//   3. makes BGRA of planar Y'CbCr in float, with the frame's matrix, range and chroma siting;
//   4. else lets libswscale do it by the same rules: scaling, and the rare rest.
// One thread at a time. Not for other layers.
class FrameConverter {
public:
    // Colours that `color` leaves unsaid are taken from each frame.
    FrameConverter(FourCC format, ColorAttachments color);
    ~FrameConverter();

    static bool canDeliver(FourCC format);

    // From now on pictures are scaled to this size. BGRA only.
    void setOutputSize(int width, int height);

    // Takes the frame over, since the picture may keep it alive. Throws Error or std::bad_alloc.
    PixelBufferPtr convert(FramePtr frame);

private:
    class PlanePool;
    struct Scaling;

    PixelBufferPtr adopt(FramePtr& frame) const;
    PixelBufferPtr rewrite(FramePtr& frame);
    PixelBufferPtr makeBGRA(const AVFrame& frame);
    PixelBufferPtr scale(const AVFrame& frame);
    void interleaveChroma(const AVFrame& frame, const SampleMapper& mapper, const PixelPlane& target) const;
    PixelBufferPtr acquire(int width, int height);

    FourCC format_;
    PixelFormatLayout layout_;
    ColorAttachments color_;
    std::optional<std::pair<int, int>> outputSize_;
    std::optional<PixelBufferPool> pool_;
    std::unique_ptr<PlanePool> chromaPool_;
    std::unique_ptr<Scaling> scaling_; // the prepared scaler and what it was prepared for

    struct Mappers {
        SampleScale source;
        SampleMapper luma, chroma;
    };
    std::optional<Mappers> mappers_;
    std::optional<BGRAKernel> bgraKernel_;
};

} // namespace panoveer
