#include "Panoveer/Rendering/Projection/VRProjectionUniforms.h"

#include <numbers>

namespace panoveer {

namespace {

float radians(double degrees) { return float(degrees * std::numbers::pi / 180); }

template<class Enum>
std::uint32_t index(Enum value) {
    return static_cast<std::uint32_t>(value);
}

} // namespace

VRProjectionUniforms makeProjectionUniforms(const VRSourceFrame& frame, UInt2 sourceSize, const VRTransform& transform,
                                            const ProjectionPass& pass) {
    const auto fisheye = transform.fisheyeTextureParameters(sourceSize.x, sourceSize.y);
    return {
        .outputSize = pass.outputSize,
        .sourceSize = sourceSize,
        .sourceFormat = kernelFormatCode(transform.sourceFormat),
        .outputFormat = kernelFormatCode(transform.outputFormat),
        .textureLayout = index(frame.textureLayout),
        .yCbCrMatrix = index(frame.yCbCrMatrix),
        .colorPrimaries = index(frame.colorPrimaries),
        .transferFunction = index(frame.transferFunction),
        .sourceOrientation = index(frame.sourceOrientation),
        .colorOutputMode = index(pass.colorOutputMode),
        .outputYCbCrMatrix = index(outputYCbCrMatrix(pass.colorOutputMode)),
        .fovRadians = radians(transform.fovDegrees),
        .yawRadians = radians(transform.yawDegrees),
        .pitchRadians = radians(transform.pitchDegrees),
        .rollRadians = radians(transform.rollDegrees),
        .domemasterThetaRadians = radians(transform.domemasterThetaDegrees),
        .standardDistance = float(transform.standardDistance),
        .transparentUnmappedAreas = pass.transparentUnmappedAreas,
        .sourceStereoLayout = index(transform.sourceStereoLayout),
        .outputStereoLayout = index(transform.outputStereoLayout),
        .monoStereoEye = index(transform.monoStereoEye),
        .outputBitDepth = bitsPerSample(pass.outputBitDepth),
        .alphaMode = index(frame.alphaMode),
        .compositingBackground = index(pass.compositingBackground),
        .fisheyeCenter = fisheye.center,
        .fisheyeRadius = fisheye.radius,
        .sourceEyesSwapped = transform.sourceEyesSwapped,
        .resamplingTaps = resamplingTapCount(pass.resampling),
    };
}

VRMirrorDomeUniforms makeMirrorDomeUniforms(const VRSourceFrame& frame, UInt2 sourceSize, const VRTransform& transform,
                                            const ProjectionPass& pass, float meshAspectRatio) {
    const auto plain = makeProjectionUniforms(frame, sourceSize, transform, pass);
    return {
        .aspectRatio = meshAspectRatio,
        .sourceFormat = plain.sourceFormat,
        .textureLayout = plain.textureLayout,
        .yCbCrMatrix = plain.yCbCrMatrix,
        .colorPrimaries = plain.colorPrimaries,
        .transferFunction = plain.transferFunction,
        .sourceOrientation = plain.sourceOrientation,
        .colorOutputMode = plain.colorOutputMode,
        .standardDistance = plain.standardDistance,
        .padding = {},
        .fovRadians = plain.fovRadians,
        .yawRadians = plain.yawRadians,
        .pitchRadians = plain.pitchRadians,
        .rollRadians = plain.rollRadians,
        .sourceSize = plain.sourceSize,
        .transparentUnmappedAreas = plain.transparentUnmappedAreas,
        .domemasterThetaRadians = plain.domemasterThetaRadians,
        .sourceStereoLayout = plain.sourceStereoLayout,
        .monoStereoEye = plain.monoStereoEye,
        .fisheyeCenter = plain.fisheyeCenter,
        .fisheyeRadius = plain.fisheyeRadius,
        .sourceEyesSwapped = plain.sourceEyesSwapped,
        .resamplingTaps = plain.resamplingTaps,
    };
}

} // namespace panoveer
