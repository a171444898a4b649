#include "Panoveer/Rendering/Projection/VRProjectionMath.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace panoveer::VRProjectionMath {

namespace {

using std::numbers::pi;

constexpr double tangentOf30Degrees = 0.5773502691896256;
constexpr double seamMarginPixels = 2;

double radians(double degrees) { return degrees * pi / 180; }

// A point within 0…1, or none. What only rounding has pushed over an edge counts as on it: a direction on the edge
// between two faces lies on one of them.
std::optional<ImagePoint> inside(double u, double v) {
    constexpr double rounding = 1e-12;
    if (!(u >= -rounding && u <= 1 + rounding && v >= -rounding && v <= 1 + rounding))
        return std::nullopt;
    return ImagePoint{std::clamp(u, 0.0, 1.0), std::clamp(v, 0.0, 1.0)};
}

double latitudeToV(double y) { return 0.5 - std::asin(std::clamp(y, -1.0, 1.0)) / pi; }

Direction directionForAngles(double longitude, double latitude) {
    return {std::sin(longitude) * std::cos(latitude), std::sin(latitude), std::cos(longitude) * std::cos(latitude)};
}

// The tangents of half a flat view's width and height.
struct HalfTangents {
    double x = 0;
    double y = 0;
};

HalfTangents flatViewTangents(double aspect) {
    // Beyond an aspect of 1 to 20 the height no longer follows.
    return {tangentOf30Degrees, aspect > 0.05 ? tangentOf30Degrees / aspect : 11.547005383792511};
}

HalfTangents rectilinearTangents(double fovDegrees, double aspect) {
    const double t = std::tan(halfAngleRadians(fovDegrees));
    return {aspect * t, t};
}

std::optional<ImagePoint> uvOnPlane(Direction direction, HalfTangents half) {
    const auto d = normalized(direction);
    if (!(d.z > 0) || !(half.x > 0) || !(half.y > 0))
        return std::nullopt;
    return inside((d.x / d.z / half.x + 1) * 0.5, (1 - d.y / d.z / half.y) * 0.5);
}

Direction directionOnPlane(ImagePoint point, HalfTangents half) {
    return normalized({(2 * point.u - 1) * half.x, (1 - 2 * point.v) * half.y, 1});
}

// Of a place in a circular picture: its distance from the middle as a fraction of the radius.
double radiusInCircle(ImagePoint point) { return std::hypot(point.u - 0.5, point.v - 0.5) * 2; }

std::size_t faceTowards(const std::array<std::size_t, 6>& order, Direction d) {
    const double x = std::abs(d.x);
    const double y = std::abs(d.y);
    const double z = std::abs(d.z);
    // A direction on an edge belongs to x before y, and to y before z.
    if (y <= x && z <= x)
        return d.x >= 0 ? order[0] : order[1];
    if (x <= y && z <= y)
        return d.y >= 0 ? order[2] : order[3];
    return d.z >= 0 ? order[4] : order[5];
}

// The faces towards +x, -x, +y, -y, +z, -z.
constexpr std::array<std::size_t, 6> cubemapOrder{0, 1, 2, 3, 4, 5};
constexpr std::array<std::size_t, 6> equiAngularOrder{2, 0, 5, 3, 1, 4};

struct FaceTangents {
    std::size_t face = 0;
    double a = 0; // to the right
    double b = 0; // downward
};

FaceTangents faceTangents(const std::array<CubeFace, 6>& faces, const std::array<std::size_t, 6>& order, Direction d) {
    const auto face = faceTowards(order, d);
    const double depth = dot(d, faces[face].forward);
    return {face, dot(d, faces[face].right) / depth, dot(d, faces[face].down) / depth};
}

Direction directionOnFace(const CubeFace& face, double a, double b) {
    return normalized(face.forward + face.right * a + face.down * b);
}

// Where u lies among three columns; places beyond the outer edges belong to the nearest column.
int columnOf(double u) { return int(std::clamp(std::floor(u * 3), 0.0, 2.0)); }

struct SeamMargin {
    double u = 0;
    double v = 0;
};

SeamMargin seamMargin(const std::optional<OutputResolution>& resolution) {
    if (!resolution)
        return {};
    return {seamMarginPixels / double(std::max<std::int64_t>(resolution->width, 1)),
            seamMarginPixels / double(std::max<std::int64_t>(resolution->height, 1))};
}

double faceFieldRadians(double faceFOVDegrees) { return radians(std::clamp(faceFOVDegrees, 1.0, 178.0)); }

} // namespace

const std::array<CubeFace, 6> cubemapFaces{{
    {{1, 0, 0}, {0, 0, -1}, {0, -1, 0}, 0, 0},
    {{-1, 0, 0}, {0, 0, 1}, {0, -1, 0}, 1, 0},
    {{0, 1, 0}, {1, 0, 0}, {0, 0, -1}, 2, 0},
    {{0, -1, 0}, {1, 0, 0}, {0, 0, 1}, 0, 1},
    {{0, 0, 1}, {1, 0, 0}, {0, -1, 0}, 1, 1},
    {{0, 0, -1}, {-1, 0, 0}, {0, -1, 0}, 2, 1},
}};

const std::array<CubeFace, 6> equiAngularCubemapFaces{{
    {{-1, 0, 0}, {0, 0, 1}, {0, -1, 0}, 0, 0},
    {{0, 0, 1}, {1, 0, 0}, {0, -1, 0}, 1, 0},
    {{1, 0, 0}, {0, 0, -1}, {0, -1, 0}, 2, 0},
    {{0, -1, 0}, {0, 0, -1}, {-1, 0, 0}, 0, 1},
    {{0, 0, -1}, {0, 1, 0}, {-1, 0, 0}, 1, 1},
    {{0, 1, 0}, {0, 0, 1}, {-1, 0, 0}, 2, 1},
}};

Direction normalized(Direction direction) { return direction * (1 / std::sqrt(dot(direction, direction))); }

Direction rotated(Direction direction, Direction unitAxis, double radians) {
    const double c = std::cos(radians);
    return direction * c + cross(unitAxis, direction) * std::sin(radians) +
           unitAxis * (dot(unitAxis, direction) * (1 - c));
}

Direction sourceDirectionForOutput(Direction direction, double yawDegrees, double pitchDegrees, double rollDegrees) {
    auto d = rotated(normalized(direction), {0, 0, 1}, radians(rollDegrees));
    d = rotated(d, {1, 0, 0}, radians(pitchDegrees));
    return normalized(rotated(d, {0, 1, 0}, radians(yawDegrees)));
}

Direction outputDirectionForSource(Direction direction, double yawDegrees, double pitchDegrees, double rollDegrees) {
    auto d = rotated(normalized(direction), {0, 1, 0}, -radians(yawDegrees));
    d = rotated(d, {1, 0, 0}, -radians(pitchDegrees));
    return normalized(rotated(d, {0, 0, 1}, -radians(rollDegrees)));
}

double halfAngleRadians(double fovDegrees) {
    return fovDegrees <= 1 ? 0.008726646259971648 : std::min(fovDegrees, 178.0) * pi / 360;
}

ImagePoint uvForEquirectDirection(Direction direction) {
    const auto d = normalized(direction);
    return {std::atan2(d.x, d.z) / (2 * pi) + 0.5, latitudeToV(d.y)};
}

Direction directionForEquirectUV(ImagePoint point) {
    return directionForAngles((point.u - 0.5) * 2 * pi, (0.5 - point.v) * pi);
}

std::optional<ImagePoint> uvForHalfEquirectDirection(Direction direction) {
    const auto d = normalized(direction);
    const double longitude = std::atan2(d.x, d.z);
    if (std::abs(longitude) > pi / 2)
        return std::nullopt;
    return ImagePoint{longitude / pi + 0.5, latitudeToV(d.y)};
}

Direction directionForHalfEquirectUV(ImagePoint point) {
    return directionForAngles((point.u - 0.5) * pi, (0.5 - point.v) * pi);
}

std::optional<ImagePoint> uvForRectilinearDirection(Direction direction, double fovDegrees, double aspect) {
    return uvOnPlane(direction, rectilinearTangents(fovDegrees, aspect));
}

Direction directionForRectilinearUV(ImagePoint point, double fovDegrees, double aspect) {
    return directionOnPlane(point, rectilinearTangents(fovDegrees, aspect));
}

std::optional<ImagePoint> uvForFlatViewDirection(Direction direction, double aspect) {
    return uvOnPlane(direction, flatViewTangents(aspect));
}

Direction directionForFlatViewUV(ImagePoint point, double aspect) {
    return directionOnPlane(point, flatViewTangents(aspect));
}

std::optional<ImagePoint> uvForDomemasterDirection(Direction direction, double thetaDegrees) {
    const auto d = normalized(direction);
    const double t = std::acos(std::clamp(d.z, -1.0, 1.0));
    const double half = radians(thetaDegrees) * 0.5;
    if (!(half > 0) || t > half)
        return std::nullopt;
    const double r = t / half;
    const double phi = std::atan2(d.x, d.y);
    return ImagePoint{0.5 + r * 0.5 * std::sin(phi), 0.5 - r * 0.5 * std::cos(phi)};
}

std::optional<Direction> directionForDomemasterUV(ImagePoint point, double thetaDegrees) {
    const double r = radiusInCircle(point);
    if (r > 1)
        return std::nullopt;
    const double t = r * radians(thetaDegrees) * 0.5;
    const double phi = std::atan2(point.u - 0.5, 0.5 - point.v);
    return Direction{std::sin(phi) * std::sin(t), std::cos(phi) * std::sin(t), std::cos(t)};
}

std::optional<ImagePoint> uvForDomeDomemasterDirection(Direction direction, double thetaDegrees) {
    const auto d = normalized(direction);
    const double t = std::acos(std::clamp(d.y, -1.0, 1.0));
    const double half = radians(thetaDegrees) * 0.5;
    if (!(half > 0) || t > half)
        return std::nullopt;
    const double rho = std::sqrt(d.x * d.x + d.z * d.z);
    if (rho < 1e-9)
        return ImagePoint{0.5, 0.5};
    const double r = t / half;
    return ImagePoint{d.x / rho * (r * 0.5) + 0.5, d.z / rho * (r * 0.5) + 0.5};
}

std::optional<Direction> directionForDomeDomemasterUV(ImagePoint point, double thetaDegrees) {
    const double r = radiusInCircle(point);
    if (r > 1)
        return std::nullopt;
    const double t = r * radians(thetaDegrees) * 0.5;
    const double phi = std::atan2(point.u - 0.5, point.v - 0.5);
    return Direction{std::sin(phi) * std::sin(t), std::cos(t), std::cos(phi) * std::sin(t)};
}

CubeFacePoint cubemapFaceUV(Direction direction, double faceFOVDegrees) {
    const auto at = faceTangents(cubemapFaces, cubemapOrder, normalized(direction));
    const double t = std::tan(halfAngleRadians(faceFOVDegrees));
    return {int(at.face), (at.a / t + 1) * 0.5, (at.b / t + 1) * 0.5};
}

std::optional<ImagePoint> uvForCubemapDirection(Direction direction, double faceFOVDegrees) {
    const auto onFace = cubemapFaceUV(direction, faceFOVDegrees);
    const auto point = inside(onFace.u, onFace.v);
    if (!point)
        return std::nullopt;
    const auto& face = cubemapFaces[std::size_t(onFace.face)];
    return ImagePoint{(point->u + face.column) / 3, (face.row + point->v) * 0.5};
}

Direction directionForCubemapUV(ImagePoint point, double faceFOVDegrees) {
    const int column = columnOf(point.u);
    const int row = point.v < 0.5 ? 0 : 1;
    const double t = std::tan(halfAngleRadians(faceFOVDegrees));
    return directionOnFace(cubemapFaces[std::size_t(row * 3 + column)], (2 * (point.u * 3 - column) - 1) * t,
                           (2 * (point.v * 2 - row) - 1) * t);
}

CubeFacePoint equiAngularCubemapFaceUV(Direction direction, double faceFOVDegrees) {
    const auto at = faceTangents(equiAngularCubemapFaces, equiAngularOrder, normalized(direction));
    const double field = faceFieldRadians(faceFOVDegrees);
    return {int(at.face), std::atan(at.a) / field + 0.5, std::atan(at.b) / field + 0.5};
}

std::optional<ImagePoint> uvForEquiAngularCubemapDirection(Direction direction,
                                                           std::optional<OutputResolution> resolution,
                                                           double faceFOVDegrees) {
    const auto onFace = equiAngularCubemapFaceUV(direction, faceFOVDegrees);
    const auto point = inside(onFace.u, onFace.v);
    if (!point)
        return std::nullopt;
    const auto margin = seamMargin(resolution);
    const auto& face = equiAngularCubemapFaces[std::size_t(onFace.face)];
    return ImagePoint{margin.u + (point->u + face.column) * (1 - 2 * margin.u) / 3,
                      margin.v + point->v * (0.5 - 2 * margin.v) + face.row * 0.5};
}

Direction directionForEquiAngularCubemapUV(ImagePoint point, std::optional<OutputResolution> resolution,
                                           double faceFOVDegrees) {
    const auto margin = seamMargin(resolution);
    // In a picture of a few pixels the margins would leave no faces, or reach beyond a right angle.
    const double u = (point.u - margin.u) / std::max(1 - 2 * margin.u, 1e-9);
    const int column = columnOf(u);
    const int row = point.v < 0.5 ? 0 : 1;
    const double v = (point.v - row * 0.5 - margin.v) / std::max(0.5 - 2 * margin.v, 1e-9);
    const double field = faceFieldRadians(faceFOVDegrees);
    const auto tangent = [&](double fraction) {
        return std::tan(std::clamp((fraction - 0.5) * field, -radians(85), radians(85)));
    };
    return directionOnFace(equiAngularCubemapFaces[std::size_t(row * 3 + column)], tangent(u * 3 - column), tangent(v));
}

StandardSourceScreen::StandardSourceScreen(const VRTransform& transform, double outputAspect)
    : tangentX_(std::tan(radians(std::clamp(transform.fovDegrees, 1.0, 178.0)) / 2)),
      tangentY_(tangentX_ / std::max(outputAspect, 0.05)),
      distance_(std::clamp(transform.standardDistance, 0.25, 4.0)) {
    // Outside a flat output the screen hangs a little above the horizon, where an audience under a dome looks.
    const double lift = transform.outputFormat == ProjectionFormat::standard ? 0 : 10;
    const double elevation = radians(std::clamp(transform.pitchDegrees + lift, -83.0, 83.0));
    const double yaw = radians(transform.yawDegrees);
    forward_ = normalized(directionForAngles(yaw, elevation));
    right_ = {forward_.z, 0, -forward_.x};
    right_ = dot(right_, right_) < 1e-6 ? Direction{1, 0, 0} : normalized(right_);
    if (std::abs(transform.rollDegrees) > 1e-6)
        right_ = rotated(right_, forward_, radians(transform.rollDegrees));
    up_ = normalized(cross(forward_, right_));
}

Direction StandardSourceScreen::direction(double screenX, double screenY) const {
    return normalized(forward_ * distance_ + right_ * (screenX * tangentX_) + up_ * (screenY * tangentY_));
}

std::optional<ImagePoint> StandardSourceScreen::uv(Direction direction) const {
    const double depth = dot(direction, forward_);
    if (!(depth > 0))
        return std::nullopt;
    const double scale = distance_ / depth;
    return ImagePoint{(dot(direction, right_) * scale / tangentX_ + 1) * 0.5,
                      (1 - dot(direction, up_) * scale / tangentY_) * 0.5};
}

} // namespace panoveer::VRProjectionMath
