#include "Panoveer/Rendering/Projection/SphericalTestChart.h"

#include "Panoveer/Rendering/Projection/ParallelRows.h"
#include "Panoveer/Rendering/Projection/PictureWriter.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <functional>
#include <numbers>
#include <optional>
#include <span>

namespace panoveer {

namespace {

using namespace VRProjectionMath;
using std::numbers::pi;

constexpr double degree = pi / 180;
constexpr double orbitSeconds = 6;
constexpr double capRadius = 15 * degree;

constexpr RGB white{0.92, 0.92, 0.92};
constexpr RGB black{0.06, 0.06, 0.07};
constexpr std::array<RGB, 4> quadrantColors{
    {{0.18, 0.36, 0.62}, {0.20, 0.50, 0.30}, {0.60, 0.22, 0.26}, {0.68, 0.50, 0.18}}};

RGB mixed(const RGB& under, const RGB& over, double coverage) {
    const double rest = 1 - coverage;
    return {under.r * rest + over.r * coverage, under.g * rest + over.g * coverage, under.b * rest + over.b * coverage};
}

// How much of a pixel lies on the inner side of an edge; the distance is negative inside. The variance of a box of
// width w is w * w / 12.
class Edge {
public:
    Edge(double footprint, double softness)
        : scale_(1 / std::sqrt(2 * std::max(footprint * footprint / 12 + softness * softness, 1e-18))) {}

    double inside(double distance) const {
        const double d = distance * scale_;
        // Beyond, the profile differs from 0 and 1 by less than 1e-8.
        return d > 4 ? 0 : d < -4 ? 1 : 0.5 * std::erfc(d);
    }
    // Of a line of a given half width.
    double line(double distance, double halfWidth) const {
        return inside(distance - halfWidth) - inside(distance + halfWidth);
    }

private:
    double scale_;
};

Direction fromDegrees(double longitude, double latitude) {
    return directionForEquirectUV({longitude / 360 + 0.5, 0.5 - latitude / 180});
}

double angleBetween(Direction a, Direction b) {
    const auto chord = a + b * -1;
    return 2 * std::asin(std::min(std::sqrt(dot(chord, chord)) / 2, 1.0));
}

// A pen stroke in letter space: x to the right and y upward, -1…1 for the height of a letter.
struct Stroke {
    double x0 = 0, y0 = 0, x1 = 0, y1 = 0;

    double distance(double x, double y) const {
        const double dx = x1 - x0, dy = y1 - y0;
        const double t = std::clamp(((x - x0) * dx + (y - y0) * dy) / (dx * dx + dy * dy), 0.0, 1.0);
        return std::hypot(x - x0 - t * dx, y - y0 - t * dy);
    }
};

constexpr std::array letterF{Stroke{-0.5, -1, -0.5, 1}, Stroke{-0.5, 1, 0.6, 1}, Stroke{-0.5, 0.1, 0.35, 0.1}};
constexpr std::array letterR{Stroke{-0.5, -1, -0.5, 1}, Stroke{-0.5, 1, 0.45, 0.9}, Stroke{0.45, 0.9, 0.45, 0.15},
                             Stroke{0.45, 0.15, -0.5, 0}, Stroke{-0.1, 0.05, 0.6, -1}};
constexpr std::array letterB{Stroke{-0.5, -1, -0.5, 1},     Stroke{-0.5, 1, 0.35, 0.9},
                             Stroke{0.35, 0.9, 0.35, 0.2},  Stroke{0.35, 0.2, -0.5, 0.1},
                             Stroke{0.35, 0.2, 0.55, -0.1}, Stroke{0.55, -0.1, 0.55, -0.8},
                             Stroke{0.55, -0.8, -0.5, -1}};
constexpr std::array letterL{Stroke{-0.5, 1, -0.5, -1}, Stroke{-0.5, -1, 0.6, -1}};
constexpr std::array letterZ{Stroke{-0.6, 1, 0.6, 1}, Stroke{0.6, 1, -0.6, -1}, Stroke{-0.6, -1, 0.6, -1}};
constexpr std::array letterN{Stroke{-0.55, -1, -0.55, 1}, Stroke{-0.55, 1, 0.55, -1}, Stroke{0.55, -1, 0.55, 1}};
constexpr std::array arrowUp{Stroke{0, -1, 0, 1}, Stroke{-0.6, 0.2, 0, 1}, Stroke{0.6, 0.2, 0, 1}};

// A sign on the sphere: strokes in the plane that touches it at the centre.
struct Sign {
    Direction center;
    Direction right;
    Direction up;
    std::span<const Stroke> strokes;
    double discRadius = 0; // radians; 0: no disc behind the strokes
    double size = 0;       // tangent of half a letter's height
};

const std::array<Sign, 7>& signs() {
    constexpr double disc = 11 * degree;
    constexpr double size = 0.105;
    static const std::array<Sign, 7> all{{
        {{0, 0, 1}, {1, 0, 0}, {0, 1, 0}, letterF, disc, size},
        {{1, 0, 0}, {0, 0, -1}, {0, 1, 0}, letterR, disc, size},
        {{0, 0, -1}, {-1, 0, 0}, {0, 1, 0}, letterB, disc, size},
        {{-1, 0, 0}, {0, 0, 1}, {0, 1, 0}, letterL, disc, size},
        {{0, 1, 0}, {1, 0, 0}, {0, 0, -1}, letterZ, capRadius, size},
        {{0, -1, 0}, {1, 0, 0}, {0, 0, 1}, letterN, capRadius, size},
        {fromDegrees(0, 30), {1, 0, 0}, fromDegrees(180, 60), arrowUp, 0, 0.08},
    }};
    return all;
}

RGB ground(double longitude, double latitude, double y, const Edge& edge) {
    // Each quadrant's colour lies over the one before it, from its western edge on.
    RGB color = quadrantColors[2];
    for (int quadrant = 3; quadrant < 6; ++quadrant) {
        const double west = (quadrant * 90 - 45 - 360) * degree;
        const double east = west + pi / 2;
        const double center = (west + east) / 2;
        const double beyond = (std::abs(std::remainder(longitude - center, 2 * pi)) - pi / 4) * std::cos(latitude);
        color = mixed(color, quadrantColors[std::size_t(quadrant % 4)], edge.inside(beyond));
    }
    return color * (0.85 + 0.3 * y);
}

RGB withGraticule(RGB color, double longitude, double latitude, const Edge& edge) {
    constexpr double minorHalfWidth = 0.2 * degree;
    constexpr double majorHalfWidth = 0.45 * degree;
    const auto line = [&](double angle, double scale, double step, double halfWidth) {
        return edge.line(std::remainder(angle, step) * scale, halfWidth);
    };
    const double alongMeridian = std::cos(latitude);
    const double minor = std::max(line(longitude, alongMeridian, 15 * degree, minorHalfWidth),
                                  line(latitude, 1, 15 * degree, minorHalfWidth));
    const double major =
        std::max(line(longitude, alongMeridian, 90 * degree, majorHalfWidth), edge.line(latitude, majorHalfWidth));
    return mixed(mixed(color, white, 0.45 * minor), white, 0.85 * major);
}

RGB withSigns(RGB color, Direction d, const Edge& edge, double reach) {
    constexpr double strokeHalfWidth = 0.018;
    for (const auto& sign : signs()) {
        const double depth = dot(d, sign.center);
        if (depth < std::cos(capRadius + reach))
            continue;
        if (sign.discRadius > 0)
            color = mixed(color, sign.center.y > 0.5 ? white : black,
                          edge.inside(angleBetween(d, sign.center) - sign.discRadius));
        const double x = dot(d, sign.right) / depth / sign.size;
        const double y = dot(d, sign.up) / depth / sign.size;
        double distance = 10;
        for (const auto& stroke : sign.strokes)
            distance = std::min(distance, stroke.distance(x, y));
        color = mixed(color, sign.center.y > 0.9 ? black : white, edge.inside(distance * sign.size - strokeHalfWidth));
    }
    return color;
}

RGB withDisc(RGB color, Direction d, Direction center, const RGB& fill, const Edge& edge) {
    constexpr double radius = 4.5 * degree;
    constexpr double rim = 1 * degree;
    const double distance = angleBetween(d, center);
    return mixed(mixed(color, black, edge.inside(distance - radius)), fill, edge.inside(distance - radius + rim));
}

// What a painter needs to know of a position in its picture.
struct Sight {
    Direction direction;
    StereoEye eye = StereoEye::left;
};
using Look = std::function<std::optional<Sight>(double x, double y)>;

// Paints a picture sample by sample; the scene itself takes the mean over what a sample covers.
class ScenePainter {
public:
    ScenePainter(const SphericalScene& scene, const Look& look, PixelBuffer& picture)
        : scene_(scene), look_(look), writer_(picture, VideoYCbCrMatrix::bt709) {}

    void paint() {
        forEachRowInParallel(writer_.height(), [this](int y) {
            for (int x = 0; x < writer_.width(); ++x) {
                const auto color = colorAt(x + 0.5, y + 0.5, 1, 1);
                if (writer_.isYCbCr())
                    writer_.writeLuma(x, y, color);
                else
                    writer_.writeColor(x, y, color, 1);
            }
        });
        if (!writer_.isYCbCr())
            return;
        forEachRowInParallel(writer_.chromaRows(), [this](int row) {
            for (int column = 0; column < writer_.chromaColumns(); ++column)
                writer_.writeChroma(column, row,
                                    colorAt(writer_.chromaX(column), writer_.chromaY(row), writer_.chromaWidth(),
                                            writer_.chromaHeight()));
        });
    }

private:
    RGB colorAt(double x, double y, double width, double height) const {
        const auto sight = look_(x, y);
        if (!sight)
            return {};
        const double footprint = std::max(angleAcross(*sight, x, y, width, 0), angleAcross(*sight, x, y, 0, height));
        return scene_(sight->direction, footprint, sight->eye);
    }

    // The angle that a sample covers along one side; measured on a quarter of it, so as to stay on a face.
    double angleAcross(const Sight& sight, double x, double y, double stepX, double stepY) const {
        const auto other = look_(x + stepX / 4, y + stepY / 4);
        return other ? angleBetween(sight.direction, other->direction) * 4 : 0;
    }

    const SphericalScene& scene_;
    const Look& look_;
    PictureWriter writer_;
};

} // namespace

RGB SphericalTestChart::operator()(Direction direction, double footprint, StereoEye eye) const {
    const auto d = normalized(direction);
    const Edge edge(footprint, softness);
    const double reach = 4 * (footprint + softness);
    const double longitude = std::atan2(d.x, d.z);
    const double latitude = std::atan2(d.y, std::hypot(d.x, d.z));
    auto result = ground(longitude, latitude, d.y, edge);
    result = withGraticule(result, longitude, latitude, edge);
    result = withSigns(result, d, edge, reach);
    static const Direction leftMark = fromDegrees(-22.5, -22.5);
    static const Direction rightMark = fromDegrees(22.5, -22.5);
    result = eye == StereoEye::left ? withDisc(result, d, leftMark, {0.85, 0.15, 0.12}, edge)
                                    : withDisc(result, d, rightMark, {0.10, 0.75, 0.80}, edge);
    return withDisc(result, d, fromDegrees(37.5 + 360 * seconds / orbitSeconds, -37.5), {0.90, 0.80, 0.15}, edge);
}

void paintAsSource(const SphericalScene& scene, const VRTransform& transform, PixelBuffer& picture) {
    const auto eyeOutput = transform.outputResolution.eyeResolution(transform.outputStereoLayout);
    const SourceLattice lattice(transform, {picture.width(), picture.height()},
                                double(eyeOutput.width) / double(eyeOutput.height));
    const Look look = [&](double x, double y) -> std::optional<Sight> {
        const auto place = lattice.placeAt(x, y);
        const auto direction = lattice.direction(place);
        if (!direction)
            return std::nullopt;
        const bool isRight =
            transform.sourceStereoLayout != StereoVideoLayout::mono && (place.half == 1) != transform.sourceEyesSwapped;
        return Sight{*direction, isRight ? StereoEye::right : StereoEye::left};
    };
    ScenePainter(scene, look, picture).paint();
}

void paintAsOutput(const SphericalScene& scene, const VRTransform& transform, PictureSize uprightSource,
                   PixelBuffer& picture) {
    const ProjectionMapping mapping(transform, {picture.width(), picture.height()}, uprightSource);
    const bool isMonoSource = transform.sourceStereoLayout == StereoVideoLayout::mono;
    const Look look = [&](double x, double y) -> std::optional<Sight> {
        const auto direction = mapping.sourceDirection(x, y);
        const auto eye = mapping.eye(x, y);
        if (!direction || !mapping.sourceLattice().place(*direction, mapping.sourceHalf(eye)))
            return std::nullopt;
        return Sight{*direction, isMonoSource ? StereoEye::left : eye};
    };
    ScenePainter(scene, look, picture).paint();
}

} // namespace panoveer
