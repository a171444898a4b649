#include "Panoveer/Rendering/Projection/CPUProjectionRenderer.h"

#include "Panoveer/Rendering/Projection/CPUPictureRender.h"
#include "Panoveer/Rendering/Projection/ColorCurves.h"
#include "Panoveer/Rendering/Projection/VRMetalProjectionError.h"

#include <unistd.h>

#include <algorithm>
#include <format>
#include <utility>

namespace panoveer {

namespace {

constexpr std::size_t keptCurveSets = 4;
// Plans beyond this are dropped, except for the one in use.
constexpr std::size_t keptPlanBytes = std::size_t(768) << 20;

std::uint64_t physicalMemory() {
    return std::uint64_t(sysconf(_SC_PHYS_PAGES)) * std::uint64_t(sysconf(_SC_PAGE_SIZE));
}

class PendingCPURender final : public PendingRender {
public:
    PendingCPURender(CPUPictureRender::Request request, WorkerPool& workers)
        : render_(std::move(request)), job_(workers.start(render_.stages())) {}
    ~PendingCPURender() override {
        try {
            job_->wait();
        } catch (...) { // nobody asked for this picture any more
        }
    }

    void wait() override { job_->wait(); }

private:
    CPUPictureRender render_;
    std::shared_ptr<WorkerPool::Job> job_;
};

} // namespace

struct CPUProjectionRenderer::KeptCurves {
    VideoColorPrimaries primaries;
    VideoTransferFunction transfer;
    VRColorOutputMode mode;
    std::shared_ptr<const ColorCurves> curves;
};

CPUProjectionRenderer::CPUProjectionRenderer(CPUProjectionOptions options) : workers_(options.threads) {}

CPUProjectionRenderer::~CPUProjectionRenderer() = default;

std::string CPUProjectionRenderer::name() const {
    return std::format("CPU ({}, {} threads)", PlaneResampler::instructionSet(), workers_.threadCount());
}

std::uint64_t CPUProjectionRenderer::recommendedMaxWorkingSetSize() const { return physicalMemory() / 2; }

std::uint64_t CPUProjectionRenderer::currentAllocatedSize() const {
    std::uint64_t sum = 0;
    for (const auto& plan : plans_)
        sum += plan->byteCount();
    return sum;
}

std::shared_ptr<const ProjectionPlan>
CPUProjectionRenderer::plan(const PixelBuffer& source, const SourcePictureDescription& description,
                            const VRTransform& transform, const PixelBuffer& output, int taps, bool keepsYCbCr) {
    const ProjectionPlanKey key{.transform = transform,
                                .sourceFormat = source.format(),
                                .sourceSize = {source.width(), source.height()},
                                .orientation = description.orientation,
                                .outputFormat = output.format(),
                                .outputSize = {output.width(), output.height()},
                                .taps = taps,
                                .keepsYCbCr = keepsYCbCr};
    const auto found = std::ranges::find(plans_, key, [](const auto& plan) -> auto& { return plan->key; });
    if (found != plans_.end()) {
        plans_.splice(plans_.begin(), plans_, found);
        return plans_.front();
    }
    plans_.push_front(std::make_shared<const ProjectionPlan>(key));
    while (plans_.size() > 1 && currentAllocatedSize() > keptPlanBytes)
        plans_.pop_back();
    return plans_.front();
}

std::shared_ptr<const ColorCurves> CPUProjectionRenderer::curves(const SourcePictureDescription& description,
                                                                 VRColorOutputMode mode) {
    const auto found = std::ranges::find_if(curves_, [&](const KeptCurves& kept) {
        return kept.primaries == description.colorPrimaries && kept.transfer == description.transferFunction &&
               kept.mode == mode;
    });
    if (found != curves_.end()) {
        curves_.splice(curves_.begin(), curves_, found);
        return curves_.front().curves;
    }
    const ColorConversion conversion(description.colorPrimaries, description.transferFunction, mode);
    curves_.push_front({description.colorPrimaries, description.transferFunction, mode,
                        std::make_shared<const ColorCurves>(conversion)});
    if (curves_.size() > keptCurveSets)
        curves_.pop_back();
    return curves_.front().curves;
}

std::unique_ptr<PendingRender>
CPUProjectionRenderer::render(PixelBufferPtr source, const SourcePictureDescription& description,
                              const VRTransform& transform, PixelBufferPtr output, VRColorOutputMode colorOutputMode,
                              VRResamplingQuality resampling, bool transparentUnmappedAreas) {
    if (source->format() == pixelFormat::rgbaHalf)
        throw VRMetalProjectionError(VRMetalProjectionError::Case::textureCreationFailed,
                                     VRMetalProjectionError::invalidPixelFormatStatus);
    const ColorConversion conversion(description.colorPrimaries, description.transferFunction, colorOutputMode);
    const bool keepsYCbCr =
        source->layout().isYCbCr() && output->layout().isYCbCr() && conversion.keepsYCbCr(description.yCbCrMatrix);
    const int taps = resampling == VRResamplingQuality::final ? 8 : 2;
    CPUPictureRender::Request request{.description = description,
                                      .colorOutputMode = colorOutputMode,
                                      .transparentUnmappedAreas = transparentUnmappedAreas,
                                      .plan = plan(*source, description, transform, *output, taps, keepsYCbCr),
                                      .curves =
                                          conversion.isIdentity() ? nullptr : curves(description, colorOutputMode)};
    request.source = std::move(source);
    request.output = std::move(output);
    return std::make_unique<PendingCPURender>(std::move(request), workers_);
}

} // namespace panoveer
