#include "Panoveer/Model/Records/VRTransform.h"

#include "Panoveer/Model/Records/ExportSettings.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace panoveer {

namespace {

// Two angles that differ by less are the same setting.
constexpr double angleTolerance = 0.0001;

constexpr double canonThetaDegrees = 190;

bool isNear(double left, double right) { return std::abs(left - right) < angleTolerance; }

bool isCubic(ProjectionFormat format) { return format == ProjectionFormat::cubemap || format == ProjectionFormat::eac; }

// Unlike std::clamp it gives a number for every input: a NaN becomes the lower bound.
double limited(double value, double lower, double upper) { return std::fmin(std::fmax(value, lower), upper); }

// Into -180 through 180; both ends stay as they are.
double wrappedDegrees(double degrees) {
    if (!std::isfinite(degrees))
        return 0;
    const double remainder = std::fmod(degrees, 360.0);
    if (remainder > 180)
        return remainder - 360;
    if (remainder < -180)
        return remainder + 360;
    return remainder;
}

double radians(double degrees) { return degrees * std::numbers::pi / 180; }

} // namespace

VRTransform VRTransform::normalized() const {
    auto copy = *this;
    const auto fovRange = editableFOVRange(outputFormat, sourceFormat);
    copy.fovDegrees = isCubic(outputFormat) ? 90 : limited(fovDegrees, fovRange.lower, fovRange.upper);
    copy.standardDistance = limited(standardDistance, 0.25, 4.0);
    copy.pitchDegrees = limited(pitchDegrees, -90, 90);
    copy.yawDegrees = wrappedDegrees(yawDegrees);
    copy.rollDegrees = wrappedDegrees(rollDegrees);
    copy.domemasterThetaDegrees = limited(domemasterThetaDegrees, 1, 360);
    if (outputFormat == ProjectionFormat::mirrorDome)
        copy.outputStereoLayout = StereoVideoLayout::mono;
    copy.outputResolution =
        OutputResolution::validated(outputFormat, copy.outputStereoLayout, OutputResolution::maximumDimension,
                                    outputResolution.width, outputResolution.height);
    if (sourceStereoLayout == StereoVideoLayout::mono) {
        copy.monoStereoEye = StereoEye::left;
        copy.sourceEyesSwapped = false;
    }
    if (sourceFormat != ProjectionFormat::domemaster) {
        copy.fisheyeCircle.reset();
    } else if (auto& circle = copy.fisheyeCircle) {
        circle->centerX = limited(circle->centerX, 0, 1);
        circle->centerY = limited(circle->centerY, 0, 1);
        circle->radius = limited(circle->radius, 0.05, 1.0);
    }
    return copy;
}

double VRTransform::defaultFOV(ProjectionFormat outputFormat, ProjectionFormat sourceFormat) {
    if (isCubic(outputFormat))
        return 90;
    if (outputFormat == ProjectionFormat::standard)
        return 60;
    return sourceFormat == ProjectionFormat::standard ? 178 : 180;
}

double VRTransform::defaultFOV(ProjectionFormat format) const {
    // A flat source on a sphere covers just what its lens saw.
    if (sourceFormat == ProjectionFormat::standard && format != ProjectionFormat::standard && !isCubic(format) &&
        sourceHorizontalFieldOfView)
        return *sourceHorizontalFieldOfView;
    return defaultFOV(format, sourceFormat);
}

ClosedRange VRTransform::editableFOVRange(ProjectionFormat outputFormat, ProjectionFormat sourceFormat) {
    const bool isFlat = outputFormat == ProjectionFormat::standard || sourceFormat == ProjectionFormat::standard;
    return {1, isFlat ? 178.0 : 360.0};
}

std::optional<double> VRTransform::outputHorizontalFieldOfView(double eyeAspect) const {
    if (outputFormat != ProjectionFormat::standard || !(eyeAspect > 0))
        return std::nullopt;
    const double tangent = std::tan(radians(limited(fovDegrees, 1, 178)) / 2);
    double x = eyeAspect * tangent;
    if (sourceFormat == ProjectionFormat::standard) {
        // tan 30 degrees makes a flat source of unknown field of view report 60 degrees.
        constexpr double tangentOf30Degrees = 0.5773502691896256;
        const double scaled = tangent / std::max(standardDistance, 0.0001);
        const double source =
            sourceHorizontalFieldOfView ? std::tan(radians(*sourceHorizontalFieldOfView) / 2) : scaled;
        x = source * tangentOf30Degrees / scaled;
    }
    return 2 * std::atan(x) * 180 / std::numbers::pi;
}

FisheyeTextureParameters VRTransform::fisheyeTextureParameters(double sourceWidth, double sourceHeight) const {
    const double eyeWidth = sourceStereoLayout == StereoVideoLayout::sideBySide ? sourceWidth / 2 : sourceWidth;
    const double eyeHeight = sourceStereoLayout == StereoVideoLayout::overUnder ? sourceHeight / 2 : sourceHeight;
    const auto circle = fisheyeCircle.value_or(FisheyeCircle{});
    const double shorterSide = std::min(eyeWidth, eyeHeight);
    const double pixelRadius = shorterSide >= 1 ? circle.radius * shorterSide : circle.radius;
    return {
        .center = {float(circle.centerX), float(circle.centerY)},
        .radius = {float(pixelRadius / std::max(eyeWidth, 1.0)), float(pixelRadius / std::max(eyeHeight, 1.0))},
    };
}

void VRTransform::applyCanonDualFisheyePreset() {
    sourcePreset = VRSourcePreset::canonDualFisheye;
    sourceFormat = ProjectionFormat::domemaster;
    sourceStereoLayout = StereoVideoLayout::sideBySide;
    sourceEyesSwapped = true;
    monoStereoEye = StereoEye::left;
    domemasterThetaDegrees = canonThetaDegrees;
    fovDegrees = defaultFOV(outputFormat, sourceFormat);
}

bool VRTransform::usesCanonDualFisheyePreset() const {
    return sourcePreset == VRSourcePreset::canonDualFisheye && sourceFormat == ProjectionFormat::domemaster &&
           sourceStereoLayout == StereoVideoLayout::sideBySide && sourceEyesSwapped &&
           isNear(domemasterThetaDegrees, canonThetaDegrees);
}

VRTransform VRTransform::synced(const ExportSettings& settings,
                                std::optional<ProjectionFormat> previousOutputFormat) const {
    auto copy = *this;
    const auto newFormat = settings.outputFormat;
    if (previousOutputFormat) {
        const double previousDefault = defaultFOV(*previousOutputFormat);
        // A flat source may have taken the flat default of 60 degrees before its output became spherical.
        const bool hasFlatDefault = sourceFormat == ProjectionFormat::standard &&
                                    *previousOutputFormat != ProjectionFormat::standard && isNear(fovDegrees, 60);
        if (isCubic(newFormat))
            copy.fovDegrees = 90;
        else if (isNear(fovDegrees, previousDefault) || hasFlatDefault)
            copy.fovDegrees = defaultFOV(newFormat);
    }
    copy.outputFormat = newFormat;
    copy.outputResolution = settings.validatedResolution();
    copy.outputStereoLayout = settings.effectiveStereoLayout();
    copy.mirrorDomeWarpMeshURL = settings.mirrorDomeWarpMeshURL;
    return copy.normalized();
}

} // namespace panoveer
