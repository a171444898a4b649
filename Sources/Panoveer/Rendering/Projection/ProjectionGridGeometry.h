#pragma once

#include "Panoveer/Model/Records/VRTransform.h"

#include <memory>

namespace panoveer {

class MirrorDomeGridMapper;

// Where lines of the scene lie in the output, for overlays. Safe from any thread.
namespace ProjectionGridGeometry {

// The mapper of the mesh that a transform asks for; null when that cannot be read. Mappers are shared and kept; a mesh
// file that has changed since gets a new one.
std::shared_ptr<const MirrorDomeGridMapper> mirrorDomeGridMapper(const VRTransform& transform);

} // namespace ProjectionGridGeometry
} // namespace panoveer
