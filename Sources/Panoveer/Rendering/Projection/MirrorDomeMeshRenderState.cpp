#include "Panoveer/Rendering/Projection/MirrorDomeMeshRenderState.h"

#include "Panoveer/Rendering/Projection/VRMetalProjectionError.h"
#include "Platform/GPU/GPUBuffer.h"

#include <span>

namespace panoveer {

MirrorDomeMeshRenderState::MirrorDomeMeshRenderState(const MirrorDomeWarpMesh& mesh,
                                                     const std::shared_ptr<GPUDevice>& device)
    : aspectRatio(mesh.aspectRatio) {
    try {
        buffers = {GPUBuffer::make(device, std::as_bytes(std::span(mesh.vertices)), "Panoveer.MirrorDome.vertices"),
                   GPUBuffer::make(device, std::as_bytes(std::span(mesh.indices)), "Panoveer.MirrorDome.indices"),
                   std::uint32_t(mesh.indices.size())};
    } catch (const Error& failure) {
        throw VRMetalProjectionError(VRMetalProjectionError::Case::commandBufferUnavailable, failure);
    }
}

} // namespace panoveer
