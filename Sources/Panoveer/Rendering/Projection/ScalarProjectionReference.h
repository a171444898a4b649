#pragma once

#include "Panoveer/Rendering/Projection/ProjectionRenderer.h"

namespace panoveer {

struct ScalarRenderOptions {
    VRColorOutputMode colorOutputMode = VRColorOutputMode::sdr;
    int resamplingTaps = 8; // 2 or 8
    bool transparentUnmappedAreas = false;
    // Lays the picture on the checkerboard that the preview shows behind transparent places.
    bool hasCheckerboard = false;
};

// Reprojection in double precision, one sample at a time: what every faster engine is measured against. Slow, meant for
// tests and for machines where nothing else works.
//
// How a picture comes about:
//  - Every output sample is computed for itself at its own place: luma and colour in the middle of its pixel, chroma
//    where it is sited, each with the footprint of what it covers.
//  - Luma and chroma of a source are resampled on their own grids, colours with alpha premultiplied.
//  - When matrix, primaries and transfer function stay the same, Y'CbCr goes to Y'CbCr without RGB.
//  - Alpha comes out as it went in, straight or premultiplied. Where the source shows nothing the picture is opaque
//    black, or transparent.
//  - The mesh of a mirror dome says what a sample shows and how much it is dimmed, luma and chroma alike.
class ScalarProjectionReference final : public ProjectionRenderer {
public:
    std::string name() const override { return "Reference"; }
    std::unique_ptr<PendingRender> render(PixelBufferPtr source, const SourcePictureDescription& description,
                                          const VRTransform& transform, PixelBufferPtr output,
                                          VRColorOutputMode colorOutputMode, VRResamplingQuality resampling,
                                          bool transparentUnmappedAreas) override;
    // Works in the buffers themselves.
    std::uint64_t recommendedMaxWorkingSetSize() const override { return 0; }
    std::uint64_t currentAllocatedSize() const override { return 0; }

    // The whole picture at once. Throws Error (mediaErrorDomain) when the source's format cannot be a source, and what
    // keeps the mesh of a mirror dome from being used.
    static void renderPicture(const PixelBuffer& source, const SourcePictureDescription& description,
                              const VRTransform& transform, PixelBuffer& output, const ScalarRenderOptions& options);

    // A BGRA picture that is projected already, into a Y'CbCr buffer of its size. Chroma is the mean of what it covers,
    // weighted 1 2 1 around the column that it is sited on.
    static void convertToYCbCr(const PixelBuffer& projected, PixelBuffer& output, VideoYCbCrMatrix matrix);
};

// The grey, 0…1, of the checkerboard behind transparent places, in squares of 16 pixels.
double checkerboardGrey(int x, int y);

} // namespace panoveer
