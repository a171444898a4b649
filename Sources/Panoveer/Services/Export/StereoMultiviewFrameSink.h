#pragma once

#include "Panoveer/Services/Export/ExportVideoFrameSink.h"

#include <cstdint>
#include <memory>
#include <optional>

namespace panoveer {

// Parts side-by-side frames into the pictures of both eyes for a track with a layer for each:
//
//   packed frame  | left | right |        left: layer 0        right: layer 1
//
// The eyes are copied once for each new frame and never for a repeated one. Owned by the movie's export; one thread.
class StereoMultiviewFrameSink final : public ExportVideoFrameSink {
public:
    // What such a track says of its eyes, whatever it shows: both are there, and the left one comes first.
    static constexpr MultiviewProperties encoderProperties{
        .hasLeftStereoEyeView = true, .hasRightStereoEyeView = true, .heroEye = HeroEye::left};
    static constexpr int leftLayerID = 0;
    static constexpr int rightLayerID = 1;

    // The input outlives this. Throws Error as PixelBufferPool does.
    StereoMultiviewFrameSink(VideoInput& writerInput, FourCC pixelFormat, int eyeWidth, int eyeHeight);

    // Of packed frames, twice as wide as an eye. Made when it is first asked for.
    PixelBufferPool* pixelBufferPool() override;
    bool append(const PixelBufferPtr& packed, MediaTime presentationTime) override;

    // False unless both have one format that is known here and the source is exactly twice as wide as the target and as
    // high.
    static bool copyHalf(const PixelBuffer& source, bool rightHalf, PixelBuffer& target);

private:
    // The track and the buffers that it takes.
    struct Adaptor {
        VideoInput& input;
        PixelBufferPool pixelBufferPool;
    };
    struct PackedAttributes {
        FourCC pixelFormat;
        int width;
        int height;
    };
    struct Eyes {
        PixelBufferPtr left, right;
    };

    std::optional<Eyes> part(const PixelBuffer& packed);

    Adaptor adaptor_;
    const PackedAttributes packedAttributes_;
    std::optional<PixelBufferPool> packedPool_;
    // Not kept alive: of a small pool the frame loop may need it.
    std::weak_ptr<const PixelBuffer> lastPackedBuffer_;
    std::optional<Eyes> lastEyes_;
};

} // namespace panoveer
