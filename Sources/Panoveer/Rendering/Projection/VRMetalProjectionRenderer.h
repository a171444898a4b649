#pragma once

#include "Panoveer/Rendering/Projection/CVMetalTextureBridge.h"
#include "Panoveer/Rendering/Projection/MirrorDomeMeshRenderState.h"
#include "Panoveer/Rendering/Projection/ProjectionRenderer.h"
#include "Panoveer/Rendering/Projection/VRProjectionUniforms.h"
#include "Panoveer/Rendering/Projection/VRSourceFrame.h"
#include "Platform/GPU/GPUCommandQueue.h"
#include "Platform/GPU/GPUTexturePool.h"
#include "Platform/GPU/ShaderLibrary.h"

#include <functional>
#include <map>
#include <memory>
#include <span>
#include <string>
#include <string_view>

namespace panoveer {

class GPUCommandBuffer;
class GPUComputePipeline;
class GPUDevice;
class GPURenderPipeline;
class GPUTexture;

// The engine on the GPU. Each user of it has its own, and uses it from one thread at a time; several pictures may be in
// flight. Throws VRMetalProjectionError for what it cannot get, and the Error of the layer below for what goes wrong on
// the device.
class VRMetalProjectionRenderer final : public ProjectionRenderer {
public:
    explicit VRMetalProjectionRenderer(std::shared_ptr<GPUDevice> device);
    ~VRMetalProjectionRenderer() override;

    const std::shared_ptr<GPUDevice>& device() const { return device_; }

    std::string name() const override;
    std::unique_ptr<PendingRender> render(PixelBufferPtr source, const SourcePictureDescription& description,
                                          const VRTransform& transform, PixelBufferPtr output,
                                          VRColorOutputMode colorOutputMode, VRResamplingQuality resampling,
                                          bool transparentUnmappedAreas) override;
    std::uint64_t recommendedMaxWorkingSetSize() const override;
    std::uint64_t currentAllocatedSize() const override;
    bool hasUnifiedMemory() const override;

    // An empty command buffer of this renderer's queue.
    std::unique_ptr<GPUCommandBuffer> makeCommandBuffer();
    CVMetalTextureBridge& textureBridge() { return textureBridge_; }

    // Records the projection of a frame into a bgra8Unorm or rgba16Float texture. `pass` counts except for its output
    // size, which is that of the texture.
    void renderColor(const VRSourceFrame& sourceFrame, const std::shared_ptr<GPUTexture>& outputTexture,
                     const VRTransform& transform, ProjectionPass pass, GPUCommandBuffer& commands);

    // Projects a frame into the planes of a Y'CbCr picture at final quality. With a command buffer it records and
    // returns; the buffer stays open, and its error is the caller's to read. Without one it makes its own, waits for it
    // and throws its error.
    void renderYCbCr(const VRSourceFrame& sourceFrame, const std::shared_ptr<GPUTexture>& outputLumaTexture,
                     const std::shared_ptr<GPUTexture>& outputChromaTexture, VRYCbCrOutputBitDepth bitDepth,
                     const VRTransform& transform, VRColorOutputMode colorOutputMode,
                     GPUCommandBuffer* commands = nullptr);

    // Projects a frame through the mesh of a mirror dome into a bgra8Unorm or rgba16Float texture. The command buffer
    // is as for renderYCbCr(). Throws MirrorDomeWarpMeshError for a mesh file that cannot be used.
    void renderMirrorDome(const VRSourceFrame& sourceFrame, const std::shared_ptr<GPUTexture>& outputTexture,
                          const VRTransform& transform, bool transparentUnmappedAreas = false,
                          VRCompositingBackground compositingBackground = VRCompositingBackground::none,
                          VRColorOutputMode colorOutputMode = VRColorOutputMode::sdr,
                          VRResamplingQuality resampling = VRResamplingQuality::final,
                          GPUCommandBuffer* commands = nullptr);

    // Records the conversion of a projected picture to Y'CbCr by the same rules.
    void convertToYCbCr(const std::shared_ptr<GPUTexture>& inputTexture,
                        const std::shared_ptr<GPUTexture>& outputLumaTexture,
                        const std::shared_ptr<GPUTexture>& outputChromaTexture, VRYCbCrOutputBitDepth bitDepth,
                        VRColorOutputMode colorOutputMode, GPUCommandBuffer& commands);

    // Records a copy of a projected picture with its alpha treated as asked.
    void copyProjectedFrame(const std::shared_ptr<GPUTexture>& inputTexture,
                            const std::shared_ptr<GPUTexture>& outputTexture, AlphaMode alphaMode,
                            VRCompositingBackground compositingBackground, GPUCommandBuffer& commands);

    // The kernels' text, from the program's resources.
    static ShaderLibrary makeLibrary();

private:
    void renderYCbCr(const VRSourceFrame& sourceFrame, const std::shared_ptr<GPUTexture>& outputLumaTexture,
                     const std::shared_ptr<GPUTexture>& outputChromaTexture, const VRTransform& transform,
                     ProjectionPass pass, GPUCommandBuffer& commands);
    void renderMirrorDome(const VRSourceFrame& sourceFrame, const std::shared_ptr<GPUTexture>& outputTexture,
                          const VRTransform& transform, ProjectionPass pass, GPUCommandBuffer& commands);
    // The picture as the mesh draws it: straight or premultiplied, as `alphaMode` says.
    std::shared_ptr<GPUTexture> drawMirrorDome(const VRSourceFrame& sourceFrame, GPUPixelFormat format,
                                               const VRTransform& transform, ProjectionPass pass, AlphaMode alphaMode,
                                               GPUCommandBuffer& commands);
    const MirrorDomeMeshRenderState& mirrorDomeMeshState(const VRTransform& transform);
    const std::shared_ptr<GPURenderPipeline>& mirrorDomePipelineState(GPUPixelFormat format);
    void runOnCommands(GPUCommandBuffer* commands, const std::function<void(GPUCommandBuffer&)>& record);
    std::shared_ptr<GPUComputePipeline> makePipeline(const ShaderLibrary& library, std::string_view function) const;

    std::shared_ptr<GPUDevice> device_;
    GPUCommandQueue commandQueue_;
    std::shared_ptr<GPUComputePipeline> pipelineState_;                // vrProjectFrame
    std::shared_ptr<GPUComputePipeline> yCbCrPipelineState_;           // vrProjectFrameYCbCr
    std::shared_ptr<GPUComputePipeline> yCbCrConversionPipelineState_; // vrConvertFrameToYCbCr
    std::shared_ptr<GPUComputePipeline> copyPipelineState_;            // copyProjectedFrame
    ShaderFunction mirrorDomeVertexFunction_;
    ShaderFunction mirrorDomeFragmentFunction_;
    // By the format that they draw; made when first asked for, since most conversions need none.
    std::map<GPUPixelFormat, std::shared_ptr<GPURenderPipeline>> mirrorDomePipelineStates_;
    // A mesh is kept for the life of the renderer, whatever becomes of its file.
    std::map<MirrorDomeMeshCacheKey, MirrorDomeMeshRenderState> mirrorDomeMeshCache_;
    GPUTexturePool intermediateTextures_;
    CVMetalTextureBridge textureBridge_;
};

} // namespace panoveer
