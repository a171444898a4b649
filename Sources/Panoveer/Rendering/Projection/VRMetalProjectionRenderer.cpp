#include "Panoveer/Rendering/Projection/VRMetalProjectionRenderer.h"

#include "Panoveer/Rendering/Projection/VRMetalProjectionError.h"
#include "Platform/Core/Resources.h"
#include "Platform/GPU/GPUCommandBuffer.h"
#include "Platform/GPU/GPUComputePipeline.h"
#include "Platform/GPU/GPUDevice.h"
#include "Platform/GPU/GPURenderPipeline.h"

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

bool isMirrorDome(const VRTransform& transform) { return transform.outputFormat == ProjectionFormat::mirrorDome; }

ShaderFunction requireFunction(const ShaderLibrary& library, std::string_view name, ShaderStage stage) {
    auto found = library.function(name, stage);
    if (!found)
        throw VRMetalProjectionError(Case::functionUnavailable);
    return std::move(*found);
}

// What the mesh's functions are given: the record, and what it does not say.
struct MirrorDomeConstants {
    VRMirrorDomeUniforms uniforms;
    UInt2 outputSize;              // pixels
    std::uint32_t alphaMode;       // AlphaMode of the source
    std::uint32_t outputAlphaMode; // AlphaMode: premultiplied, or as the source has it
};
static_assert(sizeof(MirrorDomeConstants) == 128);

// One picture in the making and one that is still in flight, of each of two sizes.
constexpr std::size_t maximumIdleIntermediateTextures = 4;

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
    : device_(std::move(device)),
      commandQueue_(makeCommandQueue(device_)),
      intermediateTextures_(device_, maximumIdleIntermediateTextures),
      textureBridge_(device_) {
    const auto library = makeLibrary();
    pipelineState_ = makePipeline(library, "vrProjectFrame");
    yCbCrPipelineState_ = makePipeline(library, "vrProjectFrameYCbCr");
    yCbCrConversionPipelineState_ = makePipeline(library, "vrConvertFrameToYCbCr");
    copyPipelineState_ = makePipeline(library, "copyProjectedFrame");
    mirrorDomeVertexFunction_ = requireFunction(library, "mirrorDomeVertexShader", ShaderStage::vertex);
    mirrorDomeFragmentFunction_ = requireFunction(library, "mirrorDomeFragmentShader", ShaderStage::fragment);
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
    return std::make_shared<GPUComputePipeline>(device_, requireFunction(library, function, ShaderStage::compute));
}

std::string VRMetalProjectionRenderer::name() const {
    return std::format("{} ({})", device_->name(), device_->isSoftware() ? "Vulkan, software" : "Vulkan");
}

std::uint64_t VRMetalProjectionRenderer::recommendedMaxWorkingSetSize() const {
    return device_->recommendedMaxWorkingSetSize();
}

std::uint64_t VRMetalProjectionRenderer::currentAllocatedSize() const { return device_->currentAllocatedSize(); }

bool VRMetalProjectionRenderer::hasUnifiedMemory() const { return device_->description().hasUnifiedMemory; }

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
    if (isMirrorDome(transform)) {
        renderMirrorDome(sourceFrame, outputTexture, transform, pass, commands);
        return;
    }
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
    runOnCommands(commands, [&](GPUCommandBuffer& buffer) {
        renderYCbCr(sourceFrame, outputLumaTexture, outputChromaTexture, transform, pass, buffer);
    });
}

void VRMetalProjectionRenderer::runOnCommands(GPUCommandBuffer* commands,
                                              const std::function<void(GPUCommandBuffer&)>& record) {
    if (commands) {
        record(*commands);
        return;
    }
    const auto own = makeCommandBuffer();
    record(*own);
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
    pass.outputSize = sizeOf(*outputLumaTexture);
    if (isMirrorDome(transform)) {
        // Half floats hold every code of ten bits; eight bits of the output need no more than eight here.
        const auto format = pass.outputBitDepth == VRYCbCrOutputBitDepth::ten ? GPUPixelFormat::rgba16Float
                                                                              : GPUPixelFormat::bgra8Unorm;
        const auto drawn = drawMirrorDome(sourceFrame, format, transform, pass, AlphaMode::premultiplied, commands);
        convertToYCbCr(drawn, outputLumaTexture, outputChromaTexture, pass.outputBitDepth, pass.colorOutputMode,
                       commands);
        return;
    }
    const auto uniforms = makeProjectionUniforms(sourceFrame, sourceFrame.sourceSize(), transform, pass);
    const std::array textures{sourceFrame.primaryTexture, outputLumaTexture, outputChromaTexture,
                              sourceFrame.chromaOrPrimary()};
    commands.dispatch(yCbCrPipelineState_, textures, bytesOf(uniforms), outputChromaTexture->width(),
                      outputChromaTexture->height());
}

void VRMetalProjectionRenderer::renderMirrorDome(const VRSourceFrame& sourceFrame,
                                                 const std::shared_ptr<GPUTexture>& outputTexture,
                                                 const VRTransform& transform, bool transparentUnmappedAreas,
                                                 VRCompositingBackground compositingBackground,
                                                 VRColorOutputMode colorOutputMode, VRResamplingQuality resampling,
                                                 GPUCommandBuffer* commands) {
    const ProjectionPass pass{.colorOutputMode = colorOutputMode,
                              .resampling = resampling,
                              .compositingBackground = compositingBackground,
                              .transparentUnmappedAreas = transparentUnmappedAreas};
    runOnCommands(commands, [&](GPUCommandBuffer& buffer) {
        renderMirrorDome(sourceFrame, outputTexture, transform, pass, buffer);
    });
}

void VRMetalProjectionRenderer::renderMirrorDome(const VRSourceFrame& sourceFrame,
                                                 const std::shared_ptr<GPUTexture>& outputTexture,
                                                 const VRTransform& transform, ProjectionPass pass,
                                                 GPUCommandBuffer& commands) {
    pass.outputSize = sizeOf(*outputTexture);
    // As deep as the output.
    const auto drawn =
        drawMirrorDome(sourceFrame, outputTexture->format(), transform, pass, sourceFrame.alphaMode, commands);
    copyProjectedFrame(drawn, outputTexture, sourceFrame.alphaMode, pass.compositingBackground, commands);
}

std::shared_ptr<GPUTexture> VRMetalProjectionRenderer::drawMirrorDome(const VRSourceFrame& sourceFrame,
                                                                      GPUPixelFormat format,
                                                                      const VRTransform& transform, ProjectionPass pass,
                                                                      AlphaMode alphaMode, GPUCommandBuffer& commands) {
    std::shared_ptr<GPUTexture> target;
    try {
        target = intermediateTextures_.acquire(format, int(pass.outputSize.x), int(pass.outputSize.y),
                                               GPUTextureUsage::renderTarget);
    } catch (const Error&) {
        throw VRMetalProjectionError(Case::textureCreationFailed, VRMetalProjectionError::privateTextureStatus);
    }
    const auto& mesh = mirrorDomeMeshState(transform);
    const MirrorDomeConstants constants{
        .uniforms = makeMirrorDomeUniforms(sourceFrame, sourceFrame.sourceSize(), transform, pass, mesh.aspectRatio),
        .outputSize = pass.outputSize,
        .alphaMode = std::uint32_t(sourceFrame.alphaMode),
        .outputAlphaMode = std::uint32_t(alphaMode)};
    // Where the mesh has no cells the source shows nothing.
    const GPUColor nothing{.alpha = pass.transparentUnmappedAreas ? 0.0f : 1.0f};
    const std::array textures{sourceFrame.primaryTexture, sourceFrame.chromaOrPrimary()};
    commands.draw(mirrorDomePipelineState(format), target, nothing, mesh.buffers, textures, bytesOf(constants));
    return target;
}

const MirrorDomeMeshRenderState& VRMetalProjectionRenderer::mirrorDomeMeshState(const VRTransform& transform) {
    const auto key = MirrorDomeMeshCacheKey::of(transform);
    if (!key)
        throw VRMetalProjectionError(Case::libraryUnavailable);
    const auto found = mirrorDomeMeshCache_.find(*key);
    if (found != mirrorDomeMeshCache_.end())
        return found->second;
    const MirrorDomeMeshRenderState state(MirrorDomeWarpMesh::load(key->url), device_);
    return mirrorDomeMeshCache_.emplace(*key, state).first->second;
}

const std::shared_ptr<GPURenderPipeline>& VRMetalProjectionRenderer::mirrorDomePipelineState(GPUPixelFormat format) {
    auto& pipeline = mirrorDomePipelineStates_[format];
    if (!pipeline) {
        constexpr std::array attributes{
            GPUVertexAttribute{.count = 2, .offset = offsetof(MirrorDomeWarpVertex, position)},
            GPUVertexAttribute{.count = 2, .offset = offsetof(MirrorDomeWarpVertex, texCoords)},
            GPUVertexAttribute{.count = 1, .offset = offsetof(MirrorDomeWarpVertex, intensity)}};
        pipeline = std::make_shared<GPURenderPipeline>(device_, mirrorDomeVertexFunction_, mirrorDomeFragmentFunction_,
                                                       attributes, sizeof(MirrorDomeWarpVertex), format,
                                                       "Panoveer.MirrorDomePipeline");
    }
    return pipeline;
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
