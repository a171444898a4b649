#pragma once

#include "Panoveer/Model/Records/OutputResolution.h"
#include "Panoveer/Model/Records/VRTransform.h"

#include <array>
#include <optional>

namespace panoveer {

// A direction in the scene: x right, y up, z forward. Not necessarily of unit length.
struct Direction {
    double x = 0;
    double y = 0;
    double z = 0;

    friend bool operator==(const Direction&, const Direction&) = default;
    friend constexpr Direction operator+(Direction a, Direction b) { return {a.x + b.x, a.y + b.y, a.z + b.z}; }
    friend constexpr Direction operator*(Direction a, double s) { return {a.x * s, a.y * s, a.z * s}; }
};

// A place in an image: both 0…1, u to the right, v downward, (0, 0) the top left corner.
struct ImagePoint {
    double u = 0;
    double v = 0;

    friend bool operator==(const ImagePoint&, const ImagePoint&) = default;
};

// A place on one face of a cube map; (0, 0) is the face's top left corner as it lies in the picture.
struct CubeFacePoint {
    int face = 0;
    double u = 0;
    double v = 0;
};

// The shared maths of pixel positions, in double precision: between directions and images of every format, both ways.
// All functions are pure. "No value" means that the direction has no place in that image, or the place no direction.
// Functions that take a direction normalise it themselves; those that return one return unit length.
namespace VRProjectionMath {

constexpr double dot(Direction a, Direction b) { return a.x * b.x + a.y * b.y + a.z * b.z; }
constexpr Direction cross(Direction a, Direction b) {
    return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x};
}
Direction normalized(Direction direction);

// Turned about a unit axis by Rodrigues's formula.
Direction rotated(Direction direction, Direction unitAxis, double radians);

// From a direction of the output to one of the source: roll about z, then pitch about x, then yaw about y. A positive
// yaw looks to the right, a positive pitch looks down. Does not apply to a flat source (see StandardSourceScreen).
Direction sourceDirectionForOutput(Direction direction, double yawDegrees, double pitchDegrees, double rollDegrees);
// Its exact inverse.
Direction outputDirectionForSource(Direction direction, double yawDegrees, double pitchDegrees, double rollDegrees);

// Half of a field of view in radians: 0.5 degrees for 1 degree or less, 89 for 178 or more.
double halfAngleRadians(double fovDegrees);

// The whole sphere; longitude 0 is in the middle, the zenith at the top.
ImagePoint uvForEquirectDirection(Direction direction);
Direction directionForEquirectUV(ImagePoint point);

// The front hemisphere between longitudes -90 and 90.
std::optional<ImagePoint> uvForHalfEquirectDirection(Direction direction);
Direction directionForHalfEquirectUV(ImagePoint point);

// A flat view into a sphere; fovDegrees is its vertical field, aspect its width over its height.
std::optional<ImagePoint> uvForRectilinearDirection(Direction direction, double fovDegrees, double aspect);
Direction directionForRectilinearUV(ImagePoint point, double fovDegrees, double aspect);

// A flat view of a flat source: 60 degrees wide, whatever the field of view.
std::optional<ImagePoint> uvForFlatViewDirection(Direction direction, double aspect);
Direction directionForFlatViewUV(ImagePoint point, double aspect);

// A circular fisheye that looks forward: +z in the middle, up at the top, thetaDegrees across.
std::optional<ImagePoint> uvForDomemasterDirection(Direction direction, double thetaDegrees);
std::optional<Direction> directionForDomemasterUV(ImagePoint point, double thetaDegrees);

// The same seen on a dome: the zenith (+y) in the middle, the front at the bottom.
std::optional<ImagePoint> uvForDomeDomemasterDirection(Direction direction, double thetaDegrees);
std::optional<Direction> directionForDomeDomemasterUV(ImagePoint point, double thetaDegrees);

// Lays a picture that looks forward onto a dome whose middle is the zenith. It is its own inverse.
constexpr Direction domeDirectionForForwardDirection(Direction direction) {
    return {-direction.x, direction.z, direction.y};
}

// One face of a cube map: a direction on it is forward + right * a + down * b, with a and b in -1…1 for a field of 90
// degrees. Column and row are its place among 3 by 2.
struct CubeFace {
    Direction forward;
    Direction right;
    Direction down;
    int column = 0;
    int row = 0;
};

// The faces towards +y and -y are mirrored top to bottom against the other four: the front lies at the upper edge of
// the top face and at the lower edge of the bottom face.
//
//     right  left  top
//     bottom front back
extern const std::array<CubeFace, 6> cubemapFaces;

// Each row is one band without a break; the lower one lies on its side.
//
//     left   front  right
//     bottom back   top
extern const std::array<CubeFace, 6> equiAngularCubemapFaces;

CubeFacePoint cubemapFaceUV(Direction direction, double faceFOVDegrees);
std::optional<ImagePoint> uvForCubemapDirection(Direction direction, double faceFOVDegrees);
Direction directionForCubemapUV(ImagePoint point, double faceFOVDegrees);

// With a resolution, two pixels stay free at the left and right edges of the picture, and at the upper and lower edges
// of each row; without one, nothing does.
CubeFacePoint equiAngularCubemapFaceUV(Direction direction, double faceFOVDegrees);
std::optional<ImagePoint> uvForEquiAngularCubemapDirection(Direction direction,
                                                           std::optional<OutputResolution> resolution,
                                                           double faceFOVDegrees);
// In the margin the nearest face continues beyond its edge.
Direction directionForEquiAngularCubemapUV(ImagePoint point, std::optional<OutputResolution> resolution,
                                           double faceFOVDegrees);

// The flat screen that a `standard` source hangs on: it carries yaw, pitch and roll itself. A positive pitch lifts it.
class StandardSourceScreen {
public:
    // The aspect is the width of one output eye over its height.
    StandardSourceScreen(const VRTransform& transform, double outputAspect);

    // screenX and screenY are -1…1 across the picture, screenY upward.
    Direction direction(double screenX, double screenY) const;
    // The inverse; the result may lie outside 0…1. None behind the viewer.
    std::optional<ImagePoint> uv(Direction direction) const;

private:
    Direction forward_;
    Direction right_;
    Direction up_;
    double tangentX_; // of half the screen's width at distance 1
    double tangentY_;
    double distance_; // 0.25…4
};

} // namespace VRProjectionMath
} // namespace panoveer
