#pragma once

#include "Panoveer/Rendering/Projection/ProjectionRenderer.h"
#include "Panoveer/Rendering/Projection/WorkerPool.h"

#include <list>
#include <memory>

namespace panoveer {

struct ColorCurves;
struct ProjectionPlan;

struct CPUProjectionOptions {
    int threads = 0; // 0: one for each available processor
};

// The engine on the processor. What a transform does to every sample is worked out once, as a ProjectionPlan, and kept
// for the pictures that follow; then a picture is read through it row by row on all threads. Several pictures may be in
// flight. Agrees with ScalarProjectionReference to within rounding. Throws VRMetalProjectionError for a picture that
// cannot be a source, as the engine on the GPU does.
class CPUProjectionRenderer final : public ProjectionRenderer {
public:
    explicit CPUProjectionRenderer(CPUProjectionOptions options = {});
    ~CPUProjectionRenderer() override;

    // "CPU (AVX3, 8 threads)"
    std::string name() const override;
    std::unique_ptr<PendingRender> render(PixelBufferPtr source, const SourcePictureDescription& description,
                                          const VRTransform& transform, PixelBufferPtr output,
                                          VRColorOutputMode colorOutputMode, VRResamplingQuality resampling,
                                          bool transparentUnmappedAreas) override;
    // Half of the machine's memory, and what the plans take of it.
    std::uint64_t recommendedMaxWorkingSetSize() const override;
    std::uint64_t currentAllocatedSize() const override;

private:
    std::shared_ptr<const ProjectionPlan> plan(const PixelBuffer& source, const SourcePictureDescription& description,
                                               const VRTransform& transform, const PixelBuffer& output, int taps,
                                               bool keepsYCbCr);

    std::shared_ptr<const ColorCurves> curves(const SourcePictureDescription& description, VRColorOutputMode mode);

    std::list<std::shared_ptr<const ProjectionPlan>> plans_; // the one used last in front
    struct KeptCurves;
    std::list<KeptCurves> curves_; // the ones used last in front
    WorkerPool workers_;
};

} // namespace panoveer
