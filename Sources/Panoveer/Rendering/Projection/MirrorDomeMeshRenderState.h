#pragma once

#include "Panoveer/Rendering/Projection/MirrorDomeWarpMesh.h"
#include "Platform/GPU/GPUCommandBuffer.h"

#include <memory>

namespace panoveer {

class GPUDevice;

// A warp mesh on the GPU. Immutable, shared by copies.
struct MirrorDomeMeshRenderState {
    GPUMesh buffers; // vertices of 24 bytes
    float aspectRatio = 0;

    // Throws VRMetalProjectionError.commandBufferUnavailable when there is no memory for it.
    MirrorDomeMeshRenderState(const MirrorDomeWarpMesh& mesh, const std::shared_ptr<GPUDevice>& device);
};

} // namespace panoveer
