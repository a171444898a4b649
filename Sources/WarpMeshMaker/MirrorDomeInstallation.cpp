#include "WarpMeshMaker/MirrorDomeInstallation.h"

#include <algorithm>
#include <cmath>
#include <format>
#include <numbers>
#include <vector>

namespace panoveer::meshmaker {

namespace {

using std::numbers::pi;
using VRProjectionMath::cross;
using VRProjectionMath::dot;
using VRProjectionMath::normalized;

// Nodes across and down: square cells, of 24 pixels in a picture 1920 wide.
struct GridSize {
    int columns = 80;
    int rows = 45;
};

GridSize gridSize(MirrorDomeProjectorAspect aspect) {
    return aspect == MirrorDomeProjectorAspect::sixteenTen ? GridSize{80, 50} : GridSize{80, 45};
}

// The mesh goes on below the dome's edge, so that it is the renderer that cuts the picture there, by the pixel. In
// radii of the fisheye picture.
constexpr double largestRadius = 1.35;

// The mesh ends in steps along the mirror's outline. The picture has faded out before: between these cosines of the
// angle of incidence, the outer one about two cells within the outline.
constexpr double fadedOutCosine = 0.26;
constexpr double fullCosine = 0.5;

// The light that a signal makes goes with this power of it, as ITU-R BT.1886 has displays.
constexpr double displayGamma = 2.4;

constexpr double derivativeStep = 1e-4;

struct Node {
    double u = 0; // as MirrorDomeWarpMesh has them
    double v = 0;
    double area = 0; // on the dome's sphere, of one unit of area of the frame
    double fade = 0;
    bool isHole = true;
};

Direction difference(Direction a, Direction b) { return a + b * -1; }
double length(Direction d) { return std::sqrt(dot(d, d)); }

double smoothStep(double from, double to, double value) {
    const double t = std::clamp((value - from) / (to - from), 0.0, 1.0);
    return t * t * (3 - 2 * t);
}

// Which of the two meetings of a ray and a sphere is wanted.
enum class Meeting { entry, exit };

// The distance along a ray of unit direction: |from + t ray - middle| = radius, a quadratic equation in t.
std::optional<double> distanceToSphere(Direction from, Direction ray, Direction middle, double radius, Meeting which) {
    const auto toMiddle = difference(middle, from);
    const double nearest = dot(toMiddle, ray);
    const double discriminant = nearest * nearest - dot(toMiddle, toMiddle) + radius * radius;
    if (discriminant < 0)
        return std::nullopt;
    return nearest + (which == Meeting::entry ? -1 : 1) * std::sqrt(discriminant);
}

Node makeNode(const MirrorDomeInstallation& room, MirrorDomeProjectorAspect aspect, double s, double t) {
    const auto path = room.trace(aspect, s, t);
    // One-sided towards the middle of the frame, so that the light of the outermost nodes still meets the mirror.
    const double stepS = s < 0.5 ? derivativeStep : -derivativeStep;
    const double stepT = t < 0.5 ? derivativeStep : -derivativeStep;
    const auto beside = room.trace(aspect, s + stepS, t);
    const auto below = room.trace(aspect, s, t + stepT);
    if (!path || !beside || !below)
        return {};
    const auto& p = path->place;
    const double radius = std::acos(std::clamp(p.y, -1.0, 1.0)) / (pi / 2);
    if (radius > largestRadius)
        return {};
    // The zenith is in the middle, the front at v = 0, the audience's right at u = 0.
    const double scale = radius / 2 / std::max(std::hypot(p.x, p.z), 1e-12);
    const auto alongS = difference(beside->place, p) * (1 / stepS);
    const auto alongT = difference(below->place, p) * (1 / stepT);
    return {.u = 0.5 - p.x * scale,
            .v = 0.5 - p.z * scale,
            .area = length(cross(alongS, alongT)),
            .fade = smoothStep(fadedOutCosine, fullCosine, path->cosineOfIncidence),
            .isHole = false};
}

std::string nodeLine(double x, double y, const Node& node, double intensity) {
    if (node.isHole)
        return std::format("{:.5f} {:.5f} 0 0 -1\n", x, y);
    return std::format("{:.5f} {:.5f} {:.5f} {:.5f} {:.4f}\n", x, y, node.u, node.v, intensity);
}

} // namespace

std::optional<MirrorDomeInstallation::LightPath> MirrorDomeInstallation::trace(MirrorDomeProjectorAspect aspect,
                                                                               double s, double t) const {
    const double tilt = projectorTiltDegrees * pi / 180;
    const Direction forward{0, std::sin(tilt), -std::cos(tilt)};
    const Direction up{0, std::cos(tilt), std::sin(tilt)};
    const auto right = cross(up, forward); // who looks to the rear has the audience's left there
    const double width = 1 / throwRatio;
    const auto ray = normalized(forward + right * ((s - 0.5) * width) + up * ((0.5 - t) * width / ratio(aspect)));

    const auto toMirror = distanceToSphere(projector, ray, mirror, mirrorRadius, Meeting::entry);
    if (!toMirror)
        return std::nullopt;
    const auto onMirror = projector + ray * *toMirror;
    const auto normal = difference(onMirror, mirror) * (1 / mirrorRadius);
    const double cosine = -dot(ray, normal);
    const auto reflected = ray + normal * (2 * cosine); // the law of reflection
    // The mirror is within the dome, so its light leaves through the sphere once.
    const auto toDome = distanceToSphere(onMirror, reflected, {}, 1, Meeting::exit);
    return LightPath{onMirror + reflected * toDome.value(), cosine};
}

std::string MirrorDomeInstallation::mesh(MirrorDomeProjectorAspect aspect) const {
    const auto size = gridSize(aspect);
    std::vector<Node> nodes;
    double largestArea = 0;
    for (int row = 0; row < size.rows; ++row) {
        for (int column = 0; column < size.columns; ++column) {
            nodes.push_back(makeNode(*this, aspect, column / double(size.columns - 1), row / double(size.rows - 1)));
            largestArea = std::max(largestArea, nodes.back().area);
        }
    }
    std::string text = std::format("2\n{} {}\n", size.columns, size.rows);
    for (int row = 0; row < size.rows; ++row) {
        for (int column = 0; column < size.columns; ++column) {
            const auto& node = nodes[std::size_t(row * size.columns + column)];
            // A matt dome is as bright as the light of the frame is dense there.
            const double light = std::min(node.area * brightnessRatio / largestArea, 1.0);
            text += nodeLine(ratio(aspect) * (1 - 2.0 * column / (size.columns - 1)), 1 - 2.0 * row / (size.rows - 1),
                             node, node.fade * std::pow(light, 1 / displayGamma));
        }
    }
    return text;
}

} // namespace panoveer::meshmaker
