#include "Panoveer/Rendering/Projection/ProjectionMapping.h"

#include <algorithm>
#include <cmath>

namespace panoveer {

using namespace VRProjectionMath;

namespace {

constexpr double cubeFaceFOVDegrees = 90;
// Small enough to stay within the pixel, and so within its cell and face; large enough for single precision.
constexpr double footprintStep = 0.25;

// Beyond this many samples a pixel is divided, into 8 by 8 at most. A little more than two, so that a picture of just
// half the size is all made in one way.
constexpr double undividedFootprint = 2.1;

std::array<Direction, 3> rotatedAxes(const VRTransform& transform) {
    const auto rotated = [&](Direction axis) {
        return sourceDirectionForOutput(axis, transform.yawDegrees, transform.pitchDegrees, transform.rollDegrees);
    };
    return {rotated({1, 0, 0}), rotated({0, 1, 0}), rotated({0, 0, 1})};
}

// A mirror dome is for one projector.
StereoVideoLayout outputLayout(const VRTransform& transform) {
    return transform.outputFormat == ProjectionFormat::mirrorDome ? StereoVideoLayout::mono
                                                                  : transform.outputStereoLayout;
}

double aspectOf(const OutputResolution& eye) {
    return double(eye.width) / double(std::max<std::int64_t>(eye.height, 1));
}

} // namespace

ProjectionMapping::ProjectionMapping(const VRTransform& transform, PictureSize output, PictureSize uprightSource)
    : transform_(transform),
      isFlatSource_(transform.sourceFormat == ProjectionFormat::standard ||
                    transform.sourceFormat == ProjectionFormat::mirrorDome),
      axes_(rotatedAxes(transform)),
      cellWidth_(transform.outputStereoLayout == StereoVideoLayout::sideBySide ? output.width * 0.5 : output.width),
      cellHeight_(transform.outputStereoLayout == StereoVideoLayout::overUnder ? output.height * 0.5 : output.height),
      eyeResolution_(OutputResolution{output.width, output.height}.eyeResolution(outputLayout(transform))),
      aspect_(aspectOf(eyeResolution_)),
      lattice_(transform, uprightSource, aspect_),
      raster_(MirrorDomeRaster::make(transform, output)) {}

ProjectionMapping::Cell ProjectionMapping::cell(double x, double y) const {
    if (raster_)
        return {.eye = transform_.monoStereoEye, .triangle = raster_->triangleAt(x, y)};
    switch (transform_.outputStereoLayout) {
    case StereoVideoLayout::sideBySide:
        return x < cellWidth_ ? Cell{StereoEye::left, 0, 0} : Cell{StereoEye::right, cellWidth_, 0};
    case StereoVideoLayout::overUnder:
        return y < cellHeight_ ? Cell{StereoEye::left, 0, 0} : Cell{StereoEye::right, 0, cellHeight_};
    case StereoVideoLayout::mono: break;
    }
    return {transform_.monoStereoEye, 0, 0};
}

StereoEye ProjectionMapping::eye(double x, double y) const { return cell(x, y).eye; }

int ProjectionMapping::sourceHalf(StereoEye eye) const {
    if (transform_.sourceStereoLayout == StereoVideoLayout::mono)
        return 0;
    return (eye == StereoEye::right) != transform_.sourceEyesSwapped ? 1 : 0;
}

std::optional<Direction> ProjectionMapping::outputDirection(ImagePoint point) const {
    switch (transform_.outputFormat) {
    case ProjectionFormat::standard:
        return isFlatSource_ ? directionForFlatViewUV(point, aspect_)
                             : directionForRectilinearUV(point, transform_.fovDegrees, aspect_);
    case ProjectionFormat::equirectangular: return directionForEquirectUV(point);
    case ProjectionFormat::halfEquirectangular: return directionForHalfEquirectUV(point);
    case ProjectionFormat::domemaster:
        return isFlatSource_ ? directionForDomeDomemasterUV(point, transform_.domemasterThetaDegrees)
                             : directionForDomemasterUV(point, transform_.fovDegrees);
    case ProjectionFormat::cubemap: return directionForCubemapUV(point, cubeFaceFOVDegrees);
    case ProjectionFormat::eac: return directionForEquiAngularCubemapUV(point, eyeResolution_, cubeFaceFOVDegrees);
    case ProjectionFormat::mirrorDome: return mirrorDomeDirection(point);
    }
    return std::nullopt;
}

// A flat source hangs in the dome; any other looks forward, and forward is laid into the zenith.
std::optional<Direction> ProjectionMapping::mirrorDomeDirection(ImagePoint point) const {
    if (isFlatSource_)
        return directionForDomeDomemasterUV(point, transform_.domemasterThetaDegrees);
    const auto onDome = directionForDomeDomemasterUV(point, transform_.fovDegrees);
    return onDome ? std::optional(domeDirectionForForwardDirection(*onDome)) : std::nullopt;
}

double ProjectionMapping::intensity(double x, double y) const {
    if (!raster_)
        return 1;
    const auto* triangle = raster_->triangleAt(x, y);
    return triangle ? triangle->intensity.at(x, y) : 1;
}

std::optional<Direction> ProjectionMapping::directionInCell(const Cell& cell, double x, double y) const {
    if (raster_ && !cell.triangle)
        return std::nullopt;
    const auto direction =
        outputDirection(cell.triangle ? cell.triangle->fisheye(x, y)
                                      : ImagePoint{(x - cell.left) / cellWidth_, (y - cell.top) / cellHeight_});
    // A flat source's screen carries the rotation itself.
    if (!direction || isFlatSource_)
        return direction;
    return axes_[0] * direction->x + axes_[1] * direction->y + axes_[2] * direction->z;
}

std::optional<Direction> ProjectionMapping::sourceDirection(double x, double y) const {
    return directionInCell(cell(x, y), x, y);
}

Footprint ProjectionMapping::step(const Cell& cell, const SourcePlace& place, double x, double y, double stepX,
                                  double stepY) const {
    auto direction = directionInCell(cell, x + stepX, y + stepY);
    if (!direction)
        direction = directionInCell(cell, x - stepX, y - stepY);
    if (!direction)
        return {0, 0};
    const auto other = lattice_.unlimitedPlace(*direction, place.half, place.face);
    double dx = other.x - place.x;
    if (lattice_.wrapsHorizontally()) {
        const auto area = lattice_.area(place);
        const double round = area.right - area.left;
        dx -= round * std::round(dx / round);
    }
    return {dx / footprintStep, (other.y - place.y) / footprintStep};
}

std::optional<SourcePlace> ProjectionMapping::position(double x, double y) const {
    const auto here = cell(x, y);
    const auto direction = directionInCell(here, x, y);
    return direction ? lattice_.place(*direction, sourceHalf(here.eye)) : std::nullopt;
}

std::optional<ProjectionMapping::Place> ProjectionMapping::place(double x, double y, Footprint pixelSize) const {
    const auto source = position(x, y);
    if (!source)
        return std::nullopt;
    const auto here = cell(x, y);
    const auto across = step(here, *source, x, y, footprintStep, 0);
    const auto down = step(here, *source, x, y, 0, footprintStep);
    return Place{*source,
                 {std::hypot(across.x * pixelSize.x, down.x * pixelSize.y),
                  std::hypot(across.y * pixelSize.x, down.y * pixelSize.y)}};
}

int ProjectionMapping::division(Footprint footprint, Footprint sampleSize) {
    // The lesser side decides: at the poles of a sphere a pixel spans many columns that show nearly the same.
    const double covered = std::min(footprint.x / sampleSize.x, footprint.y / sampleSize.y);
    return int(std::clamp(std::ceil(covered / undividedFootprint), 1.0, double(finestDivision)));
}

std::vector<ProjectionMapping::Place> ProjectionMapping::places(double x, double y, Footprint pixelSize,
                                                                Footprint sampleSize) const {
    const auto whole = place(x, y, pixelSize);
    if (!whole)
        return {};
    const int count = division(whole->footprint, sampleSize);
    if (count == 1)
        return {*whole};
    std::vector<Place> places;
    const Footprint part{pixelSize.x / count, pixelSize.y / count};
    const Place middle{whole->source, {whole->footprint.x / count, whole->footprint.y / count}};
    for (int j = 0; j < count; ++j)
        for (int i = 0; i < count; ++i)
            places.push_back(
                place(x + (i + 0.5) * part.x - pixelSize.x / 2, y + (j + 0.5) * part.y - pixelSize.y / 2, part)
                    .value_or(middle));
    return places;
}

} // namespace panoveer
