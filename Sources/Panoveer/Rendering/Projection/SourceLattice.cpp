#include "Panoveer/Rendering/Projection/SourceLattice.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace panoveer {

namespace {

using namespace VRProjectionMath;
using std::numbers::pi;

constexpr double cubeFaceFOVDegrees = 90;
constexpr double equiAngularSeamMargin = 2; // pixels
constexpr double steepestFaceAngle = 85 * pi / 180;

PictureSize eyeSize(PictureSize upright, StereoVideoLayout layout) {
    const auto eye = OutputResolution{upright.width, upright.height}.eyeResolution(layout);
    return {int(eye.width), int(eye.height)};
}

const CubeFace& cubeFace(ProjectionFormat format, int face) {
    return (format == ProjectionFormat::eac ? equiAngularCubemapFaces : cubemapFaces)[std::size_t(face)];
}

} // namespace

SourceLattice::SourceLattice(const VRTransform& transform, PictureSize upright, double outputAspect)
    : format_(transform.sourceFormat),
      stereoLayout_(transform.sourceStereoLayout),
      upright_(upright),
      eye_(eyeSize(upright, stereoLayout_)),
      fisheyeHalfAngle_(std::min(transform.domemasterThetaDegrees / 2, 180.0) * pi / 180),
      fisheye_(transform.fisheyeTextureParameters(upright.width, upright.height)),
      screen_(transform, outputAspect) {}

PixelArea SourceLattice::eyeArea(int half) const {
    // With an odd number of columns the one in the middle belongs to neither eye.
    const double left = half == 1 && stereoLayout_ == StereoVideoLayout::sideBySide ? upright_.width - eye_.width : 0;
    const double top = half == 1 && stereoLayout_ == StereoVideoLayout::overUnder ? upright_.height - eye_.height : 0;
    return {left, top, left + eye_.width, top + eye_.height};
}

SourceLattice::FaceFrame SourceLattice::faceFrame(int half, int face) const {
    const auto eye = eyeArea(half);
    const auto& f = cubeFace(format_, face);
    const double margin = format_ == ProjectionFormat::eac ? equiAngularSeamMargin : 0;
    const double width = std::max((eye_.width - 2 * margin) / 3, 1e-3);
    const double height = std::max(eye_.height * 0.5 - 2 * margin, 1e-3);
    return {eye.left + margin + f.column * width, eye.top + margin + f.row * eye_.height * 0.5, width, height};
}

PixelArea SourceLattice::area(const SourcePlace& place) const {
    if (!isCube())
        return eyeArea(place.half);
    const auto frame = faceFrame(place.half, place.face);
    return {frame.left, frame.top, frame.left + frame.width, frame.top + frame.height};
}

// In radii of the circle, to the right and downward.
ImagePoint SourceLattice::fromFisheyeCenter(const SourcePlace& place) const {
    const auto eye = eyeArea(place.half);
    return {((place.x - eye.left) / eye_.width - fisheye_.center.x) / fisheye_.radius.x,
            ((place.y - eye.top) / eye_.height - fisheye_.center.y) / fisheye_.radius.y};
}

bool SourceLattice::isWithinCircle(const SourcePlace& place) const {
    if (format_ != ProjectionFormat::domemaster)
        return true;
    const auto from = fromFisheyeCenter(place);
    return from.u * from.u + from.v * from.v <= 1;
}

SourcePlace SourceLattice::unlimitedPlace(Direction direction, int half, int face) const {
    const auto d = normalized(direction);
    const auto eye = eyeArea(half);
    const auto inEye = [&](ImagePoint p) {
        return SourcePlace{half, 0, eye.left + p.u * eye_.width, eye.top + p.v * eye_.height};
    };
    switch (format_) {
    case ProjectionFormat::equirectangular: return inEye(uvForEquirectDirection(d));
    case ProjectionFormat::halfEquirectangular: {
        const auto whole = uvForEquirectDirection(d);
        return inEye({(whole.u - 0.5) * 2 + 0.5, whole.v});
    }
    case ProjectionFormat::domemaster: {
        const double r = std::acos(std::clamp(d.z, -1.0, 1.0)) / fisheyeHalfAngle_;
        const double azimuth = std::atan2(d.x, d.y);
        return inEye({fisheye_.center.x + fisheye_.radius.x * r * std::sin(azimuth),
                      fisheye_.center.y - fisheye_.radius.y * r * std::cos(azimuth)});
    }
    case ProjectionFormat::cubemap:
    case ProjectionFormat::eac: {
        const auto& f = cubeFace(format_, face);
        const double depth = dot(d, f.forward);
        double a = dot(d, f.right) / depth;
        double b = dot(d, f.down) / depth;
        if (format_ == ProjectionFormat::eac) {
            a = std::atan(a) / (pi / 4);
            b = std::atan(b) / (pi / 4);
        }
        const auto frame = faceFrame(half, face);
        return {half, face, frame.left + (a + 1) * 0.5 * frame.width, frame.top + (b + 1) * 0.5 * frame.height};
    }
    case ProjectionFormat::standard:
    case ProjectionFormat::mirrorDome: break;
    }
    // Behind the viewer there is no screen; any place outside the picture says so.
    return inEye(screen_.uv(d).value_or(ImagePoint{-1, -1}));
}

std::optional<SourcePlace> SourceLattice::place(Direction direction, int half) const {
    const auto d = normalized(direction);
    const auto eye = eyeArea(half);
    switch (format_) {
    case ProjectionFormat::equirectangular: return unlimitedPlace(d, half, 0);
    case ProjectionFormat::halfEquirectangular:
        return std::abs(std::atan2(d.x, d.z)) <= pi / 2 ? std::optional(unlimitedPlace(d, half, 0)) : std::nullopt;
    case ProjectionFormat::cubemap: return unlimitedPlace(d, half, cubemapFaceUV(d, cubeFaceFOVDegrees).face);
    case ProjectionFormat::eac: return unlimitedPlace(d, half, equiAngularCubemapFaceUV(d, cubeFaceFOVDegrees).face);
    case ProjectionFormat::domemaster:
        if (std::acos(std::clamp(d.z, -1.0, 1.0)) > fisheyeHalfAngle_)
            return std::nullopt;
        break;
    case ProjectionFormat::standard:
    case ProjectionFormat::mirrorDome: break;
    }
    const auto found = unlimitedPlace(d, half, 0);
    const bool isInside = found.x >= eye.left && found.x <= eye.right && found.y >= eye.top && found.y <= eye.bottom;
    return isInside ? std::optional(found) : std::nullopt;
}

std::optional<Direction> SourceLattice::direction(const SourcePlace& place) const {
    const auto eye = eyeArea(place.half);
    const ImagePoint uv{(place.x - eye.left) / eye_.width, (place.y - eye.top) / eye_.height};
    switch (format_) {
    case ProjectionFormat::equirectangular: return directionForEquirectUV(uv);
    case ProjectionFormat::halfEquirectangular: return directionForHalfEquirectUV(uv);
    case ProjectionFormat::domemaster: {
        if (!isWithinCircle(place))
            return std::nullopt;
        const auto from = fromFisheyeCenter(place);
        const double angle = std::hypot(from.u, from.v) * fisheyeHalfAngle_;
        const double azimuth = std::atan2(from.u, -from.v);
        return Direction{std::sin(azimuth) * std::sin(angle), std::cos(azimuth) * std::sin(angle), std::cos(angle)};
    }
    case ProjectionFormat::cubemap:
    case ProjectionFormat::eac: {
        const auto frame = faceFrame(place.half, place.face);
        double a = 2 * (place.x - frame.left) / frame.width - 1;
        double b = 2 * (place.y - frame.top) / frame.height - 1;
        if (format_ == ProjectionFormat::eac) {
            a = std::tan(std::clamp(a * pi / 4, -steepestFaceAngle, steepestFaceAngle));
            b = std::tan(std::clamp(b * pi / 4, -steepestFaceAngle, steepestFaceAngle));
        }
        const auto& f = cubeFace(format_, place.face);
        return normalized(f.forward + f.right * a + f.down * b);
    }
    case ProjectionFormat::standard:
    case ProjectionFormat::mirrorDome: break;
    }
    return screen_.direction(2 * uv.u - 1, 1 - 2 * uv.v);
}

SourcePlace SourceLattice::placeAt(double x, double y) const {
    const bool isSecond = (stereoLayout_ == StereoVideoLayout::sideBySide && x >= upright_.width * 0.5) ||
                          (stereoLayout_ == StereoVideoLayout::overUnder && y >= upright_.height * 0.5);
    SourcePlace place{isSecond ? 1 : 0, 0, x, y};
    if (isCube()) {
        const auto eye = eyeArea(place.half);
        const auto first = faceFrame(place.half, 0);
        const int column = int(std::clamp(std::floor((x - first.left) / first.width), 0.0, 2.0));
        place.face = column + (y - eye.top >= eye_.height * 0.5 ? 3 : 0);
    }
    return place;
}

SourcePlace SourceLattice::resolved(const SourcePlace& place, double inset) const {
    if (isCube())
        return *this->place(*direction(place), place.half);
    const auto eye = eyeArea(place.half);
    if (format_ == ProjectionFormat::domemaster) {
        const auto from = fromFisheyeCenter(place);
        const double radius = std::max(1 - inset / (fisheye_.radius.x * eye_.width), 0.0);
        const double scale = std::min(radius / std::hypot(from.u, from.v), 1.0);
        return {place.half, 0, eye.left + (fisheye_.center.x + from.u * scale * fisheye_.radius.x) * eye_.width,
                eye.top + (fisheye_.center.y + from.v * scale * fisheye_.radius.y) * eye_.height};
    }
    if (!wrapsHorizontally())
        return place;
    double u = (place.x - eye.left) / eye_.width;
    double v = (place.y - eye.top) / eye_.height;
    if (v < 0 || v > 1) {
        v = std::clamp(v < 0 ? -v : 2 - v, 0.0, 1.0);
        u += 0.5;
    }
    return {place.half, 0, eye.left + (u - std::floor(u)) * eye_.width, eye.top + v * eye_.height};
}

} // namespace panoveer
