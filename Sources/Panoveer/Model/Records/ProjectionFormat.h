#pragma once

namespace panoveer {

// What a source is, and what an output is. The order is the one that pickers list.
enum class ProjectionFormat {
    standard,            // flat rectilinear video
    equirectangular,     // full sphere, 360 by 180 degrees, aspect 2:1
    halfEquirectangular, // hemisphere, 180 by 180 degrees, square
    domemaster,          // circular fisheye in a square; as a source, any fisheye camera
    cubemap,             // six faces, 3 by 2
    eac,                 // equi-angular cubemap, 3 by 2
    mirrorDome,          // warped for a projector and a spherical mirror; an output only
};

// The first guess from the pixel size alone; never `cubemap`, which has the shape of `eac`.
ProjectionFormat detectedProjectionFormat(int width, int height);

enum class StereoVideoLayout { mono, sideBySide, overUnder };

enum class StereoEye { left, right };

enum class VRSourcePreset { manual, canonDualFisheye };

} // namespace panoveer
