#pragma once

#include "Panoveer/Model/Records/SourceVideoOrientation.h"
#include "Panoveer/Model/Records/VRTransform.h"
#include "Panoveer/Model/Records/VideoColorMetadata.h"
#include "Platform/Media/PixelBuffer.h"

#include <memory>
#include <string>

namespace panoveer {

enum class AlphaMode { opaque, straight, premultiplied };

// What an output's colours are to be: BT.709, BT.2020 with PQ, BT.2020 with HLG.
enum class VRColorOutputMode { sdr = 0, preserveHDR = 1, hdrHLG = 2 };

// 2 taps for interactive work, 8 for final pictures.
enum class VRResamplingQuality { interactive = 0, final = 1 };

// How the samples of a source picture are to be read; the layout itself is the pixel buffer's format.
struct SourcePictureDescription {
    VideoYCbCrMatrix yCbCrMatrix = VideoYCbCrMatrix::bt709;
    VideoColorPrimaries colorPrimaries = VideoColorPrimaries::bt709;
    VideoTransferFunction transferFunction = VideoTransferFunction::bt709;
    SourceVideoOrientation orientation = SourceVideoOrientation::up;
    AlphaMode alphaMode = AlphaMode::opaque;
};

// A picture that is being rendered. Holds source and output alive until it is done.
class PendingRender {
public:
    virtual ~PendingRender() = default;
    // Blocks until the output holds the picture. Throws the engine's error when rendering failed.
    virtual void wait() = 0;
};

// Reprojects pictures: the one contract of all engines. One thread at a time.
//
// The output's format decides what is written: BGRA and RGhA get colour with alpha; "420v" 8-bit and "x420", "x422"
// ten-bit Y'CbCr in video range, BT.709 for SDR and BT.2020 for both HDR modes.
class ProjectionRenderer {
public:
    virtual ~ProjectionRenderer() = default;

    // "NVIDIA H100 (Vulkan)", "llvmpipe (Vulkan, software)", …
    virtual std::string name() const = 0;

    // Starts one picture and returns without waiting for it. Throws VRMetalProjectionError.
    virtual std::unique_ptr<PendingRender> render(PixelBufferPtr source, const SourcePictureDescription& description,
                                                  const VRTransform& transform, PixelBufferPtr output,
                                                  VRColorOutputMode colorOutputMode, VRResamplingQuality resampling,
                                                  bool transparentUnmappedAreas) = 0;

    // Bytes that the engine's memory can hold and holds now, for the export's buffer budget.
    virtual std::uint64_t recommendedMaxWorkingSetSize() const = 0;
    virtual std::uint64_t currentAllocatedSize() const = 0;
    // Whether that memory is the machine's own.
    virtual bool hasUnifiedMemory() const { return true; }
};

} // namespace panoveer
