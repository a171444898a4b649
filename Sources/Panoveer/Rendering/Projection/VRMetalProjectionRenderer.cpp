#include "Panoveer/Rendering/Projection/VRMetalProjectionRenderer.h"

#include "Panoveer/Rendering/Projection/VRMetalProjectionError.h"
#include "Platform/Core/Localization.h"
#include "Platform/Core/Resources.h"
#include "Platform/GPU/GPUCommandBuffer.h"
#include "Platform/GPU/GPUComputePipeline.h"
#include "Platform/GPU/GPUDevice.h"
#include "Platform/GPU/ShaderLibrary.h"

#include <array>
#include <format>
#include <optional>

namespace panoveer {

namespace {

using Case = VRMetalProjectionError::Case;

GPUCommandQueue makeCommandQueue(const std::shared_ptr<GPUDevice>& device) {
    try {
        return GPUCommandQueue(device);
    } catch (const Error& failure) {
        throw VRMetalProjectionError(Case::commandQueueUnavailable, failure);
    }
}

template<class Record>
std::span<const std::byte> bytesOf(const Record& record) {
    return std::as_bytes(std::span(&record, 1));
}

UInt2 sizeOf(const GPUTexture& texture) { return {std::uint32_t(texture.width()), std::uint32_t(texture.height())}; }

void requireKernelOutput(const VRTransform& transform) {
    if (transform.outputFormat == ProjectionFormat::mirrorDome)
        throw Error(localized("error.metal.mirror_dome_unavailable"));
}

// The planes of a Y'CbCr output.
struct YCbCrRecipe {
    GPUPixelFormat luma;
    GPUPixelFormat chroma;
    VRYCbCrOutputBitDepth bitDepth;
};

std::optional<YCbCrRecipe> yCbCrRecipe(FourCC format) {
    if (format == pixelFormat::yCbCr420VideoRange)
        return YCbCrRecipe{GPUPixelFormat::r8Unorm, GPUPixelFormat::rg8Unorm, VRYCbCrOutputBitDepth::eight};
    if (format == pixelFormat::yCbCr420TenBitVideoRange || format == pixelFormat::yCbCr422TenBitVideoRange)
        return YCbCrRecipe{GPUPixelFormat::r16Unorm, GPUPixelFormat::rg16Unorm, VRYCbCrOutputBitDepth::ten};
    return std::nullopt;
}

class PendingGPURender final : public PendingRender {
public:
    PendingGPURender(PixelBufferPtr output, std::unique_ptr<GPUCommandBuffer> commands)
        : output_(std::move(output)), commands_(std::move(commands)) {}

    void wait() override {
        commands_->waitUntilCompleted();
        if (commands_->error())
            throw *commands_->error();
    }

private:
    PixelBufferPtr output_; // the source has been copied already
    std::unique_ptr<GPUCommandBuffer> commands_;
};

} // namespace

VRMetalProjectionRenderer::VRMetalProjectionRenderer(std::shared_ptr<GPUDevice> device)
    : device_(std::move(device)), commandQueue_(makeCommandQueue(device_)), textureBridge_(device_) {
    const auto library = makeLibrary();
    pipelineState_ = makePipeline(library, "vrProjectFrame");
    yCbCrPipelineState_ = makePipeline(library, "vrProjectFrameYCbCr");
    yCbCrConversionPipelineState_ = makePipeline(library, "vrConvertFrameToYCbCr");
    copyPipelineState_ = makePipeline(library, "copyProjectedFrame");
}

VRMetalProjectionRenderer::~VRMetalProjectionRenderer() = default;

ShaderLibrary VRMetalProjectionRenderer::makeLibrary() {
    const auto file = resourceURL("VRProjectionShaders", "glsl");
    if (!file)
        throw VRMetalProjectionError(Case::libraryUnavailable);
    return ShaderLibrary::fromFile(*file);
}

std::shared_ptr<GPUComputePipeline> VRMetalProjectionRenderer::makePipeline(const ShaderLibrary& library,
                                                                            std::string_view function) const {
    const auto found = library.function(function);
    if (!found)
        throw VRMetalProjectionError(Case::functionUnavailable);
    return std::make_shared<GPUComputePipeline>(device_, *found);
}

std::string VRMetalProjectionRenderer::name() const {
    return std::format("{} ({})", device_->name(), device_->isSoftware() ? "Vulkan, software" : "Vulkan");
}

std::uint64_t VRMetalProjectionRenderer::recommendedMaxWorkingSetSize() const {
    return device_->recommendedMaxWorkingSetSize();
}

std::uint64_t VRMetalProjectionRenderer::currentAllocatedSize() const { return device_->currentAllocatedSize(); }

std::unique_ptr<GPUCommandBuffer> VRMetalProjectionRenderer::makeCommandBuffer() {
    try {
        return commandQueue_.makeCommandBuffer();
    } catch (const Error& failure) {
        throw VRMetalProjectionError(Case::commandBufferUnavailable, failure);
    }
}

std::unique_ptr<PendingRender> VRMetalProjectionRenderer::render(PixelBufferPtr source,
                                                                 const SourcePictureDescription& description,
                                                                 const VRTransform& transform, PixelBufferPtr output,
                                                                 VRColorOutputMode colorOutputMode,
                                                                 VRResamplingQuality resampling,
                                                                 bool transparentUnmappedAreas) {
    requireKernelOutput(transform);
    auto commands = makeCommandBuffer();
    const auto frame = textureBridge_.sourceFrame(*source, description, *commands);
    ProjectionPass pass{.colorOutputMode = colorOutputMode,
                        .resampling = resampling,
                        .transparentUnmappedAreas = transparentUnmappedAreas};
    if (const auto recipe = yCbCrRecipe(output->format())) {
        pass.outputBitDepth = recipe->bitDepth;
        pass.transparentUnmappedAreas = false; // such a picture has no alpha
        const auto luma = textureBridge_.outputTexture(*output, recipe->luma, 0, *commands);
        const auto chroma = textureBridge_.outputTexture(*output, recipe->chroma, 1, *commands);
        renderYCbCr(frame, luma, chroma, transform, pass, *commands);
    } else {
        const bool isHalf = output->format() == pixelFormat::rgbaHalf;
        const auto format = isHalf ? GPUPixelFormat::rgba16Float : GPUPixelFormat::bgra8Unorm;
        renderColor(frame, textureBridge_.outputTexture(*output, format, 0, *commands), transform, pass, *commands);
    }
    commands->commit();
    return std::make_unique<PendingGPURender>(std::move(output), std::move(commands));
}

void VRMetalProjectionRenderer::renderColor(const VRSourceFrame& sourceFrame,
                                            const std::shared_ptr<GPUTexture>& outputTexture,
                                            const VRTransform& transform, ProjectionPass pass,
                                            GPUCommandBuffer& commands) {
    requireKernelOutput(transform);
    pass.outputSize = sizeOf(*outputTexture);
    const auto uniforms = makeProjectionUniforms(sourceFrame, sourceFrame.sourceSize(), transform, pass);
    const std::array textures{sourceFrame.primaryTexture, outputTexture, sourceFrame.chromaOrPrimary()};
    commands.dispatch(pipelineState_, textures, bytesOf(uniforms), outputTexture->width(), outputTexture->height());
}

void VRMetalProjectionRenderer::renderYCbCr(const VRSourceFrame& sourceFrame,
                                            const std::shared_ptr<GPUTexture>& outputLumaTexture,
                                            const std::shared_ptr<GPUTexture>& outputChromaTexture,
                                            VRYCbCrOutputBitDepth bitDepth, const VRTransform& transform,
                                            VRColorOutputMode colorOutputMode, GPUCommandBuffer* commands) {
    const ProjectionPass pass{.outputBitDepth = bitDepth, .colorOutputMode = colorOutputMode};
    if (commands) {
        renderYCbCr(sourceFrame, outputLumaTexture, outputChromaTexture, transform, pass, *commands);
        return;
    }
    const auto own = makeCommandBuffer();
    renderYCbCr(sourceFrame, outputLumaTexture, outputChromaTexture, transform, pass, *own);
    own->commit();
    own->waitUntilCompleted();
    if (own->error())
        throw *own->error();
}

// A place of the grid is a chroma pixel with the block of luma pixels that it covers.
void VRMetalProjectionRenderer::renderYCbCr(const VRSourceFrame& sourceFrame,
                                            const std::shared_ptr<GPUTexture>& outputLumaTexture,
                                            const std::shared_ptr<GPUTexture>& outputChromaTexture,
                                            const VRTransform& transform, ProjectionPass pass,
                                            GPUCommandBuffer& commands) {
    requireKernelOutput(transform);
    pass.outputSize = sizeOf(*outputLumaTexture);
    const auto uniforms = makeProjectionUniforms(sourceFrame, sourceFrame.sourceSize(), transform, pass);
    const std::array textures{sourceFrame.primaryTexture, outputLumaTexture, outputChromaTexture,
                              sourceFrame.chromaOrPrimary()};
    commands.dispatch(yCbCrPipelineState_, textures, bytesOf(uniforms), outputChromaTexture->width(),
                      outputChromaTexture->height());
}

void VRMetalProjectionRenderer::convertToYCbCr(const std::shared_ptr<GPUTexture>& inputTexture,
                                               const std::shared_ptr<GPUTexture>& outputLumaTexture,
                                               const std::shared_ptr<GPUTexture>& outputChromaTexture,
                                               VRYCbCrOutputBitDepth bitDepth, VRColorOutputMode colorOutputMode,
                                               GPUCommandBuffer& commands) {
    const VRYCbCrConvertUniforms uniforms{.outputBitDepth = bitsPerSample(bitDepth),
                                          .outputYCbCrMatrix = std::uint32_t(outputYCbCrMatrix(colorOutputMode))};
    const std::array textures{inputTexture, outputLumaTexture, outputChromaTexture};
    commands.dispatch(yCbCrConversionPipelineState_, textures, bytesOf(uniforms), outputChromaTexture->width(),
                      outputChromaTexture->height());
}

void VRMetalProjectionRenderer::copyProjectedFrame(const std::shared_ptr<GPUTexture>& inputTexture,
                                                   const std::shared_ptr<GPUTexture>& outputTexture,
                                                   AlphaMode alphaMode, VRCompositingBackground compositingBackground,
                                                   GPUCommandBuffer& commands) {
    const VRCopyUniforms uniforms{.alphaMode = std::uint32_t(alphaMode),
                                  .compositingBackground = std::uint32_t(compositingBackground)};
    const std::array textures{inputTexture, outputTexture};
    commands.dispatch(copyPipelineState_, textures, bytesOf(uniforms), outputTexture->width(), outputTexture->height());
}

} // namespace panoveer
