#pragma once

#include "Panoveer/Model/Records/OutputResolution.h"
#include "Panoveer/Model/Records/ProjectionFormat.h"
#include "Platform/Core/URL.h"

#include <optional>
#include <utility>

namespace panoveer {

struct ExportSettings;

// A fisheye's image circle, relative to the image of one eye.
struct FisheyeCircle {
    double centerX = 0.5; // fraction of the eye's width
    double centerY = 0.5; // fraction of the eye's height
    double radius = 0.5;  // fraction of the eye's shorter side

    friend bool operator==(const FisheyeCircle&, const FisheyeCircle&) = default;
};

struct Float2 {
    float x = 0;
    float y = 0;
    friend bool operator==(const Float2&, const Float2&) = default;
};

// A fisheye circle in texture coordinates of the eye, as the renderer takes it.
struct FisheyeTextureParameters {
    Float2 center;
    Float2 radius;
};

struct ClosedRange {
    double lower = 0;
    double upper = 0;
    friend bool operator==(const ClosedRange&, const ClosedRange&) = default;
};

// The whole reprojection of one clip. A value; the default member values are those of every new clip.
struct VRTransform {
    ProjectionFormat sourceFormat = ProjectionFormat::standard;
    ProjectionFormat outputFormat = ProjectionFormat::standard;
    VRSourcePreset sourcePreset = VRSourcePreset::manual;
    StereoVideoLayout sourceStereoLayout = StereoVideoLayout::mono;
    bool sourceEyesSwapped = false; // the source's left image is the right eye
    StereoVideoLayout outputStereoLayout = StereoVideoLayout::mono;
    StereoEye monoStereoEye = StereoEye::left; // which eye of a stereo source a mono output shows
    double fovDegrees = 60;                    // field of view of the output
    double standardDistance = 1.0;             // virtual distance of a flat source, 0.25 to 4
    double yawDegrees = 0;                     // -180 to 180
    double pitchDegrees = 0;                   // -90 to 90
    double rollDegrees = 0;                    // -180 to 180
    double domemasterThetaDegrees = 180;       // full aperture of a fisheye or domemaster source, 1 to 360
    OutputResolution outputResolution{3840, 2160};
    std::optional<URL> mirrorDomeWarpMeshURL; // none: the standard mesh of the output's shape
    std::optional<FisheyeCircle> fisheyeCircle;
    std::optional<double> sourceHorizontalFieldOfView;     // degrees, of a flat source, from its metadata
    std::optional<double> sourceStereoBaselineMillimeters; // from the source's metadata

    // A copy with every field within its range and the fields that exclude each other settled.
    VRTransform normalized() const;

    // The field of view that an output format starts from.
    static double defaultFOV(ProjectionFormat outputFormat, ProjectionFormat sourceFormat);
    double defaultFOV(ProjectionFormat outputFormat) const;

    static ClosedRange editableFOVRange(ProjectionFormat outputFormat, ProjectionFormat sourceFormat);

    // Degrees; none unless the output is flat and the aspect (width over height of one eye) is positive.
    std::optional<double> outputHorizontalFieldOfView(double eyeAspect) const;

    FisheyeTextureParameters fisheyeTextureParameters(double sourceWidth, double sourceHeight) const;

    void applyCanonDualFisheyePreset();
    bool usesCanonDualFisheyePreset() const;

    // A copy brought into line with export settings; the field of view follows the output format only while the
    // user has not set it.
    VRTransform synced(const ExportSettings& settings, std::optional<ProjectionFormat> previousOutputFormat) const;

    friend bool operator==(const VRTransform&, const VRTransform&) = default;
};

} // namespace panoveer
