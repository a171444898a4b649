#pragma once

#include "Panoveer/Model/Records/VRTransform.h"
#include "Panoveer/Rendering/Projection/ProjectionRenderer.h"
#include "Panoveer/Rendering/Projection/VRSourceFrame.h"

#include <cstddef>
#include <cstdint>

// The records that the program hands to its kernels: the push constants of VRProjectionShaders.glsl, byte for byte.
// Every engine takes its numbers from them, so that all compute the same picture.
namespace panoveer {

// What lies behind a source with alpha: nothing, or what the preview shows there.
enum class VRCompositingBackground { none = 0, preview = 1 };

enum class VRYCbCrOutputBitDepth { eight = 0, ten = 1 };

constexpr std::uint32_t bitsPerSample(VRYCbCrOutputBitDepth depth) {
    return depth == VRYCbCrOutputBitDepth::ten ? 10 : 8;
}

// The code by which kernels know a format; it differs from the order of the enumeration.
constexpr std::uint32_t kernelFormatCode(ProjectionFormat format) {
    switch (format) {
    case ProjectionFormat::standard: return 0;
    case ProjectionFormat::equirectangular: return 1;
    case ProjectionFormat::halfEquirectangular: return 6;
    case ProjectionFormat::domemaster: return 2;
    case ProjectionFormat::cubemap: return 3;
    case ProjectionFormat::eac: return 5;
    case ProjectionFormat::mirrorDome: return 4; // as a source only: the output is drawn through a mesh
    }
    return 0;
}

constexpr std::uint32_t resamplingTapCount(VRResamplingQuality quality) {
    return quality == VRResamplingQuality::final ? 8 : 2;
}

// Output Y'CbCr is BT.709 for SDR and BT.2020 for both HDR modes.
constexpr VRSourceFrame::YCbCrMatrix outputYCbCrMatrix(VRColorOutputMode mode) {
    return mode == VRColorOutputMode::sdr ? VRSourceFrame::YCbCrMatrix::ituR709 : VRSourceFrame::YCbCrMatrix::ituR2020;
}

// For vrProjectFrame and vrProjectFrameYCbCr. Enumerations as their index unless said otherwise.
struct VRProjectionUniforms {
    UInt2 outputSize;                // pixels; of the luma plane for Y'CbCr
    UInt2 sourceSize;                // pixels of the upright source
    std::uint32_t sourceFormat;      // kernelFormatCode
    std::uint32_t outputFormat;      // kernelFormatCode
    std::uint32_t textureLayout;     // VRSourceFrame::TextureLayout
    std::uint32_t yCbCrMatrix;       // VRSourceFrame::YCbCrMatrix
    std::uint32_t colorPrimaries;    // VideoColorPrimaries
    std::uint32_t transferFunction;  // VideoTransferFunction
    std::uint32_t sourceOrientation; // SourceVideoOrientation
    std::uint32_t colorOutputMode;   // VRColorOutputMode
    std::uint32_t outputYCbCrMatrix; // VRSourceFrame::YCbCrMatrix: 0 or 2
    float fovRadians;
    float yawRadians;
    float pitchRadians;
    float rollRadians;
    float domemasterThetaRadians;
    float standardDistance;
    std::uint32_t transparentUnmappedAreas; // 1: a place without a source pixel is transparent; 0: opaque black
    std::uint32_t sourceStereoLayout;       // StereoVideoLayout
    std::uint32_t outputStereoLayout;       // StereoVideoLayout
    std::uint32_t monoStereoEye;            // StereoEye
    std::uint32_t outputBitDepth;           // 8 or 10
    std::uint32_t alphaMode;                // AlphaMode
    std::uint32_t compositingBackground;    // VRCompositingBackground
    Float2 fisheyeCenter;                   // of one eye, 0…1
    Float2 fisheyeRadius;                   // of one eye, 0…1
    std::uint32_t sourceEyesSwapped;        // 0 or 1
    std::uint32_t resamplingTaps;           // 2 or 8

    friend bool operator==(const VRProjectionUniforms&, const VRProjectionUniforms&) = default;
};

// For mirrorDomeVertexShader and mirrorDomeFragmentShader. Enumerations as their index unless said otherwise.
struct VRMirrorDomeUniforms {
    float aspectRatio;               // of the mesh
    std::uint32_t sourceFormat;      // kernelFormatCode
    std::uint32_t textureLayout;     // VRSourceFrame::TextureLayout
    std::uint32_t yCbCrMatrix;       // VRSourceFrame::YCbCrMatrix
    std::uint32_t colorPrimaries;    // VideoColorPrimaries
    std::uint32_t transferFunction;  // VideoTransferFunction
    std::uint32_t sourceOrientation; // SourceVideoOrientation
    std::uint32_t colorOutputMode;   // VRColorOutputMode
    float standardDistance;
    std::uint32_t padding[3]; // 0
    float fovRadians;
    float yawRadians;
    float pitchRadians;
    float rollRadians;
    UInt2 sourceSize;                       // pixels of the upright source
    std::uint32_t transparentUnmappedAreas; // 1: a place without a source pixel is transparent; 0: opaque black
    float domemasterThetaRadians;
    std::uint32_t sourceStereoLayout; // StereoVideoLayout
    std::uint32_t monoStereoEye;      // StereoEye
    Float2 fisheyeCenter;             // of one eye, 0…1
    Float2 fisheyeRadius;             // of one eye, 0…1
    std::uint32_t sourceEyesSwapped;  // 0 or 1
    std::uint32_t resamplingTaps;     // 2 or 8

    friend bool operator==(const VRMirrorDomeUniforms&, const VRMirrorDomeUniforms&) = default;
};

// For copyProjectedFrame.
struct VRCopyUniforms {
    std::uint32_t alphaMode;             // AlphaMode
    std::uint32_t compositingBackground; // VRCompositingBackground
};

// For vrConvertFrameToYCbCr.
struct VRYCbCrConvertUniforms {
    std::uint32_t outputBitDepth;    // 8 or 10
    std::uint32_t outputYCbCrMatrix; // VRSourceFrame::YCbCrMatrix: 0 or 2
};

// What one output asks of a projection, besides source and transform.
struct ProjectionPass {
    UInt2 outputSize{}; // pixels; of the luma plane for Y'CbCr
    VRYCbCrOutputBitDepth outputBitDepth = VRYCbCrOutputBitDepth::eight;
    VRColorOutputMode colorOutputMode = VRColorOutputMode::sdr;
    VRResamplingQuality resampling = VRResamplingQuality::final;
    VRCompositingBackground compositingBackground = VRCompositingBackground::none;
    bool transparentUnmappedAreas = false;
};

// The record of one pass. `frame` need not have textures; `sourceSize` is the size of the upright picture. The
// transform counts as it stands: callers normalise it.
VRProjectionUniforms makeProjectionUniforms(const VRSourceFrame& frame, UInt2 sourceSize, const VRTransform& transform,
                                            const ProjectionPass& pass);

VRMirrorDomeUniforms makeMirrorDomeUniforms(const VRSourceFrame& frame, UInt2 sourceSize, const VRTransform& transform,
                                            const ProjectionPass& pass, float meshAspectRatio);

static_assert(sizeof(VRProjectionUniforms) == 128);
static_assert(offsetof(VRProjectionUniforms, outputSize) == 0);
static_assert(offsetof(VRProjectionUniforms, sourceSize) == 8);
static_assert(offsetof(VRProjectionUniforms, sourceFormat) == 16);
static_assert(offsetof(VRProjectionUniforms, outputFormat) == 20);
static_assert(offsetof(VRProjectionUniforms, textureLayout) == 24);
static_assert(offsetof(VRProjectionUniforms, yCbCrMatrix) == 28);
static_assert(offsetof(VRProjectionUniforms, colorPrimaries) == 32);
static_assert(offsetof(VRProjectionUniforms, transferFunction) == 36);
static_assert(offsetof(VRProjectionUniforms, sourceOrientation) == 40);
static_assert(offsetof(VRProjectionUniforms, colorOutputMode) == 44);
static_assert(offsetof(VRProjectionUniforms, outputYCbCrMatrix) == 48);
static_assert(offsetof(VRProjectionUniforms, fovRadians) == 52);
static_assert(offsetof(VRProjectionUniforms, yawRadians) == 56);
static_assert(offsetof(VRProjectionUniforms, pitchRadians) == 60);
static_assert(offsetof(VRProjectionUniforms, rollRadians) == 64);
static_assert(offsetof(VRProjectionUniforms, domemasterThetaRadians) == 68);
static_assert(offsetof(VRProjectionUniforms, standardDistance) == 72);
static_assert(offsetof(VRProjectionUniforms, transparentUnmappedAreas) == 76);
static_assert(offsetof(VRProjectionUniforms, sourceStereoLayout) == 80);
static_assert(offsetof(VRProjectionUniforms, outputStereoLayout) == 84);
static_assert(offsetof(VRProjectionUniforms, monoStereoEye) == 88);
static_assert(offsetof(VRProjectionUniforms, outputBitDepth) == 92);
static_assert(offsetof(VRProjectionUniforms, alphaMode) == 96);
static_assert(offsetof(VRProjectionUniforms, compositingBackground) == 100);
static_assert(offsetof(VRProjectionUniforms, fisheyeCenter) == 104);
static_assert(offsetof(VRProjectionUniforms, fisheyeRadius) == 112);
static_assert(offsetof(VRProjectionUniforms, sourceEyesSwapped) == 120);
static_assert(offsetof(VRProjectionUniforms, resamplingTaps) == 124);

static_assert(sizeof(VRMirrorDomeUniforms) == 112);
static_assert(offsetof(VRMirrorDomeUniforms, aspectRatio) == 0);
static_assert(offsetof(VRMirrorDomeUniforms, sourceFormat) == 4);
static_assert(offsetof(VRMirrorDomeUniforms, textureLayout) == 8);
static_assert(offsetof(VRMirrorDomeUniforms, yCbCrMatrix) == 12);
static_assert(offsetof(VRMirrorDomeUniforms, colorPrimaries) == 16);
static_assert(offsetof(VRMirrorDomeUniforms, transferFunction) == 20);
static_assert(offsetof(VRMirrorDomeUniforms, sourceOrientation) == 24);
static_assert(offsetof(VRMirrorDomeUniforms, colorOutputMode) == 28);
static_assert(offsetof(VRMirrorDomeUniforms, standardDistance) == 32);
static_assert(offsetof(VRMirrorDomeUniforms, padding) == 36);
static_assert(offsetof(VRMirrorDomeUniforms, fovRadians) == 48);
static_assert(offsetof(VRMirrorDomeUniforms, yawRadians) == 52);
static_assert(offsetof(VRMirrorDomeUniforms, pitchRadians) == 56);
static_assert(offsetof(VRMirrorDomeUniforms, rollRadians) == 60);
static_assert(offsetof(VRMirrorDomeUniforms, sourceSize) == 64);
static_assert(offsetof(VRMirrorDomeUniforms, transparentUnmappedAreas) == 72);
static_assert(offsetof(VRMirrorDomeUniforms, domemasterThetaRadians) == 76);
static_assert(offsetof(VRMirrorDomeUniforms, sourceStereoLayout) == 80);
static_assert(offsetof(VRMirrorDomeUniforms, monoStereoEye) == 84);
static_assert(offsetof(VRMirrorDomeUniforms, fisheyeCenter) == 88);
static_assert(offsetof(VRMirrorDomeUniforms, fisheyeRadius) == 96);
static_assert(offsetof(VRMirrorDomeUniforms, sourceEyesSwapped) == 104);
static_assert(offsetof(VRMirrorDomeUniforms, resamplingTaps) == 108);

static_assert(sizeof(VRCopyUniforms) == 8);
static_assert(offsetof(VRCopyUniforms, alphaMode) == 0);
static_assert(offsetof(VRCopyUniforms, compositingBackground) == 4);

static_assert(sizeof(VRYCbCrConvertUniforms) == 8);
static_assert(offsetof(VRYCbCrConvertUniforms, outputBitDepth) == 0);
static_assert(offsetof(VRYCbCrConvertUniforms, outputYCbCrMatrix) == 4);

} // namespace panoveer
