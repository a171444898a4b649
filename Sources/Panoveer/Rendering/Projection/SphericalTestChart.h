#pragma once

#include "Panoveer/Rendering/Projection/ProjectionMapping.h"
#include "Panoveer/Rendering/Projection/VideoColorMath.h"
#include "Platform/Media/PixelBuffer.h"

#include <functional>

namespace panoveer {

// What an eye sees in every direction: R'G'B' of BT.709, of a pixel that covers `footprint` radians.
using SphericalScene = std::function<RGB(Direction direction, double footprint, StereoEye eye)>;

// A scene whose picture is known exactly in every direction: what the built-in sample shows, and what a projection can
// be measured with. A value; safe from any thread.
//
//   front blue, right green, back red, left amber; bright above, dark below; a graticule of 15 degrees
//   F R B L on the horizon, Z at the zenith (upright for who faces the front and looks up), N at the nadir
//   an arrow above the F that points up; a yellow disc that circles below the horizon in 6 seconds
//   left eye: a red disc left of the F and below it; right eye: a cyan one to the right
struct SphericalTestChart {
    double seconds = 0; // where the yellow disc is
    // Edges are blurred by a Gaussian of this standard deviation, in radians, so that a picture of limited resolution
    // can hold them. 0: as sharp as the pixels allow.
    double softness = 0;

    RGB operator()(Direction direction, double footprint, StereoEye eye) const;
};

// Paints a scene as a source picture of the transform's source format, stereo layout and fisheye circle, upright.
// Places that show nothing are black. For a flat source, the transform's output resolution gives the screen its shape.
// The buffer may have any format; the samples of Y'CbCr are BT.709.
void paintAsSource(const SphericalScene& scene, const VRTransform& transform, PixelBuffer& picture);

// Paints what a perfect projection of such a source makes. `uprightSource` is the size of the source.
void paintAsOutput(const SphericalScene& scene, const VRTransform& transform, PictureSize uprightSource,
                   PixelBuffer& picture);

} // namespace panoveer
