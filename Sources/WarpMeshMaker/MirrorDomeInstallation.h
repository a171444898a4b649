#pragma once

#include "Panoveer/Model/Records/MirrorDomeProjectorAspect.h"
#include "Panoveer/Rendering/Projection/VRProjectionMath.h"

#include <optional>
#include <string>

namespace panoveer::meshmaker {

// A small dome with a spherical mirror at its rear edge: the room that the standard meshes are made for.
//
//                         _.-----._                y up, z to the audience's front, x to its right;
//                     _.-'    |    '-._            the middle of the dome's circle is (0, 0, 0),
//                   .'        |        '.          its radius 1
//     rear         /          +y         \         front
//                 | (M)<--P              |
//                 +-----------+---------+z
//
// The projector P stands a little lower than the mirror M and looks at it, to the rear and upward. What leaves its
// frame at the bottom is thrown to the front of the dome, what leaves higher to the zenith and beyond. Lengths are in
// radii of the dome: with a dome of 5 m they would be 70 cm across for the mirror and 1.25 m from its middle to the
// projector.
struct MirrorDomeInstallation {
    Direction mirror{0, -0.02, -0.85}; // its middle
    double mirrorRadius = 0.14;
    Direction projector{0, -0.10, -0.35}; // its lens
    double projectorTiltDegrees = 16.5;   // upward
    double throwRatio = 1.68;             // distance over the width of the frame
    // Light is evened out up to this ratio between the brightest and the dimmest place; further would cost too much.
    double brightnessRatio = 2;

    // Where the light of one place of the frame arrives.
    struct LightPath {
        Direction place;              // on the sphere of the dome; below the dome's edge where y is negative
        double cosineOfIncidence = 0; // on the mirror
    };
    // `s` and `t` are 0…1 from the left and the top of the frame, as seen from the projector. No value for light that
    // misses the mirror.
    std::optional<LightPath> trace(MirrorDomeProjectorAspect aspect, double s, double t) const;

    // A mesh file for a projector of this shape.
    std::string mesh(MirrorDomeProjectorAspect aspect) const;
};

} // namespace panoveer::meshmaker
