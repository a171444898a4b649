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

} // namespace panoveer
