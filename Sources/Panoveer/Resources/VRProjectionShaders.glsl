#version 450
#extension GL_EXT_samplerless_texture_functions : require
#extension GL_EXT_control_flow_attributes : require
#extension GL_GOOGLE_cpp_style_line_directive : require

// The kernels that move pixels, and the two functions that draw a mirror dome's mesh. One text, compiled once for each
// with KERNEL_<name> defined. This file has the functions and what they are given; its parts, in the order in which they
// are joined, say where a pixel looks (VRProjectionGeometry), what the source holds there (VRProjectionSampling) and what
// becomes of the colour (VRProjectionColor).
//
// The arithmetic is that of VRProjectionMath, SourceLattice, ProjectionMapping, PlaneSampler and VideoColorMath, which
// say why it is as it is; functions have the same names here. What differs is what single precision asks for: angles
// come from atan alone (acos and asin lose half their digits near their ends, and devices may be coarse in both), sines
// from a polynomial (devices may be off by 2^-11), and places are reckoned from the middle of an image.

#if defined(KERNEL_mirrorDomeVertexShader) || defined(KERNEL_mirrorDomeFragmentShader)
#define DRAWS_MESH
#else
layout(local_size_x = 8, local_size_y = 8) in;
#endif

#if defined(KERNEL_vrProjectFrame) || defined(KERNEL_vrProjectFrameYCbCr) || defined(KERNEL_mirrorDomeFragmentShader)
#define PROJECTS
#endif

#if defined(KERNEL_vrProjectFrame) || defined(KERNEL_vrProjectFrameYCbCr)

layout(push_constant) uniform VRProjectionUniforms {
    uvec2 outputSize;
    uvec2 sourceSize;
    uint sourceFormat;
    uint outputFormat;
    uint textureLayout;
    uint yCbCrMatrix;
    uint colorPrimaries;
    uint transferFunction;
    uint sourceOrientation;
    uint colorOutputMode;
    uint outputYCbCrMatrix;
    float fovRadians;
    float yawRadians;
    float pitchRadians;
    float rollRadians;
    float domemasterThetaRadians;
    float standardDistance;
    uint transparentUnmappedAreas;
    uint sourceStereoLayout;
    uint outputStereoLayout;
    uint monoStereoEye;
    uint outputBitDepth;
    uint alphaMode;
    uint compositingBackground;
    vec2 fisheyeCenter;
    vec2 fisheyeRadius;
    uint sourceEyesSwapped;
    uint resamplingTaps;
};

#elif defined(DRAWS_MESH)

layout(push_constant) uniform MirrorDomeConstants {
    // VRMirrorDomeUniforms
    float aspectRatio;
    uint sourceFormat;
    uint textureLayout;
    uint yCbCrMatrix;
    uint colorPrimaries;
    uint transferFunction;
    uint sourceOrientation;
    uint colorOutputMode;
    float standardDistance;
    layout(offset = 48) float fovRadians;
    float yawRadians;
    float pitchRadians;
    float rollRadians;
    uvec2 sourceSize;
    uint transparentUnmappedAreas;
    float domemasterThetaRadians;
    uint sourceStereoLayout;
    uint monoStereoEye;
    vec2 fisheyeCenter;
    vec2 fisheyeRadius;
    uint sourceEyesSwapped;
    uint resamplingTaps;
    // What the record does not say.
    uvec2 outputSize;
    uint alphaMode;
    uint outputAlphaMode;
};

#endif

#if defined(KERNEL_vrProjectFrame)
layout(set = 0, binding = 0) uniform texture2D sourcePrimary;
layout(set = 0, binding = 1) uniform writeonly image2D outputPicture;
layout(set = 0, binding = 2) uniform texture2D sourceChroma;
#elif defined(KERNEL_vrProjectFrameYCbCr)
layout(set = 0, binding = 0) uniform texture2D sourcePrimary;
layout(set = 0, binding = 1) uniform writeonly image2D outputLuma;
layout(set = 0, binding = 2) uniform writeonly image2D outputChroma;
layout(set = 0, binding = 3) uniform texture2D sourceChroma;
#elif defined(KERNEL_vrConvertFrameToYCbCr)
layout(push_constant) uniform VRYCbCrConvertUniforms {
    uint outputBitDepth;
    uint outputYCbCrMatrix;
};
layout(set = 0, binding = 0) uniform texture2D inputPicture;
layout(set = 0, binding = 1) uniform writeonly image2D outputLuma;
layout(set = 0, binding = 2) uniform writeonly image2D outputChroma;
#elif defined(KERNEL_copyProjectedFrame)
layout(push_constant) uniform VRCopyUniforms {
    uint alphaMode;
    uint compositingBackground;
};
layout(set = 0, binding = 0) uniform texture2D inputPicture;
layout(set = 0, binding = 1) uniform writeonly image2D outputPicture;
#elif defined(KERNEL_mirrorDomeFragmentShader)
layout(set = 0, binding = 0) uniform texture2D sourcePrimary;
layout(set = 0, binding = 1) uniform texture2D sourceChroma;
#endif

const uint alphaOpaque = 0;
const uint alphaStraight = 1;
const uint alphaPremultiplied = 2;

const uint matrixBT709 = 0;
const uint matrixBT601 = 1;
const uint matrixBT2020 = 2;

// --- Y'CbCr output -----------------------------------------------------------------------------------------------

#if !defined(KERNEL_copyProjectedFrame) && !defined(KERNEL_mirrorDomeVertexShader)

// The weights of red and blue in luma: ITU-R BT.709-6 3.2, BT.601-7 2.5.1, BT.2020-2 table 4.
vec2 lumaWeights(uint matrix) {
    if (matrix == matrixBT601)
        return vec2(0.299, 0.114);
    return matrix == matrixBT2020 ? vec2(0.2627, 0.0593) : vec2(0.2126, 0.0722);
}

vec3 yCbCrFromRGB(vec3 rgb, uint matrix) {
    vec2 w = lumaWeights(matrix);
    float y = w.x * rgb.r + (1 - w.x - w.y) * rgb.g + w.y * rgb.b;
    return vec3(y, (rgb.b - y) / (2 * (1 - w.y)), (rgb.r - y) / (2 * (1 - w.x)));
}

#endif

#if defined(KERNEL_vrProjectFrameYCbCr) || defined(KERNEL_vrConvertFrameToYCbCr)

// VideoColorMath::ditherOffset().
float ditherOffset(int column, int row) {
    int rank = 0;
    for (int bit = 0; bit < 3; ++bit)
        rank = rank << 2 | ((column ^ row) >> bit & 1) << 1 | (row >> bit & 1);
    return (rank + 0.5) / 64 - 0.5;
}

bool dithers() {
#if defined(KERNEL_vrProjectFrameYCbCr)
    return outputBitDepth == 8 && textureLayout >= 3;
#else
    return false; // what the picture was made from is not known here
#endif
}

// A code in video range to what the texture is given, so that exactly this code is stored; ten bits lie in the high bits
// of sixteen.
vec2 storedCode(vec2 code, ivec2 at) {
    float unit = outputBitDepth == 10 ? 4 : 1;
    if (dithers())
        code += vec2(ditherOffset(at.x, at.y), ditherOffset(at.x + 1, at.y));
    vec2 whole = floor(clamp(code * unit, unit, 255 * unit - 1) + 0.5);
    return outputBitDepth == 10 ? whole * (64.0 / 65535.0) : whole / 255;
}

void storeLuma(ivec2 at, float luma) { imageStore(outputLuma, at, vec4(storedCode(vec2(16 + 219 * luma), at), 0, 1)); }

void storeChroma(ivec2 at, vec2 cbCr) { imageStore(outputChroma, at, vec4(storedCode(128 + 224 * cbCr, at), 0, 1)); }

#endif

#if !defined(KERNEL_vrConvertFrameToYCbCr) && !defined(DRAWS_MESH)

// What shows behind transparent places, in squares of 16 pixels.
float checkerboardGrey(ivec2 at) { return ((at.x / 16 + at.y / 16) & 1) == 1 ? 0.3 : 0.2; }

#endif

#include "VRProjectionGeometry.glsl"
#include "VRProjectionSampling.glsl"
#include "VRProjectionColor.glsl"

#if defined(PROJECTS)

// --- One output sample -------------------------------------------------------------------------------------------

// What the planes hold for one output sample; only what is asked for is read.
struct SourceValue {
    bool isMapped;
    vec4 primary;
    vec2 chroma;
};

// A pixel that covers more than two samples is divided (see ProjectionMapping::places()): the first turn looks at it as
// a whole, the others at its parts.
SourceValue readSource(Scene scene, vec2 at, vec2 pixelSize, bool readsPrimary, bool readsChroma) {
    SourceValue value = SourceValue(false, vec4(0), vec2(0));
    int division = 1;
    Place middle;
    for (int i = -1; i < division * division; ++i) {
        vec2 part = i < 0 ? vec2(0) : (vec2(i % division, i / division) + 0.5) / division - 0.5;
        Place place;
        bool isMapped = findPlace(scene, at + part * pixelSize, pixelSize / (i < 0 ? 1 : division), place);
        if (i < 0 && !isMapped)
            return value;
        if (!isMapped) {
            place = middle;
            place.footprint /= division;
        }
        Plane primary = makePlane(scene, false, place.half_);
        Plane chroma = makePlane(scene, true, place.half_);
        if (i < 0) {
            vec2 covered = place.footprint / (readsPrimary ? vec2(1) : chroma.pitch);
            division = int(clamp(ceil(min(covered.x, covered.y) / 2.1), 1, 8));
            middle = place;
            if (division > 1)
                continue;
        }
        if (readsPrimary)
            value.primary += sampled(scene, primary, place);
        if (readsChroma)
            value.chroma += sampled(scene, chroma, place).rg;
        if (division == 1)
            break;
    }
    value.isMapped = true;
    float count = division * division;
    value.primary /= count;
    value.chroma /= count;
    return value;
}

bool hasChroma() { return textureLayout != 0; }

// The colour as the output holds it, straight and with alpha.
vec4 finishedColor(SourceValue value) {
    vec4 color = vec4(0, 0, 0, transparentUnmappedAreas != 0 ? 0 : 1);
    if (value.isMapped && hasChroma()) {
        color = vec4(outputColor(rgbFromYCbCr(yCbCrFromSamples(value.primary.r, value.chroma), yCbCrMatrix)), 1);
    } else if (value.isMapped) {
        float alpha = value.primary.a;
        color = alpha > 0 ? vec4(outputColor(clamp(value.primary.rgb / alpha, 0, 1)), min(alpha, 1)) : vec4(0);
    }
    return clamp(color, 0, 1);
}

#if !defined(DRAWS_MESH)

// The same over what lies behind it.
vec4 compositedColor(SourceValue value, ivec2 pixel) {
    vec4 color = finishedColor(value);
    if (compositingBackground != 0)
        color = vec4(mix(vec3(checkerboardGrey(pixel)), color.rgb, color.a), 1);
    return color;
}

#endif

#endif

#if defined(KERNEL_vrProjectFrame)

void main() {
    ivec2 pixel = ivec2(gl_GlobalInvocationID.xy);
    if (any(greaterThanEqual(pixel, ivec2(outputSize))))
        return;
    SourceValue value = readSource(makeScene(), vec2(pixel) + 0.5, vec2(1), true, hasChroma());
    vec4 color = compositedColor(value, pixel);
    if (alphaMode == alphaPremultiplied)
        color.rgb *= color.a;
    imageStore(outputPicture, pixel, color);
}

#endif

#if defined(KERNEL_vrProjectFrameYCbCr)

// One chroma sample and the luma samples that it belongs to: the luma first, each in the middle of its pixel, then the
// chroma where it is sited.
void main() {
    ivec2 chromaSize = imageSize(outputChroma);
    ivec2 column = ivec2(gl_GlobalInvocationID.xy);
    if (any(greaterThanEqual(column, chromaSize)))
        return;
    ivec2 size = ivec2(outputSize);
    ivec2 block = (size + chromaSize - 1) / chromaSize;
    ivec2 corner = column * block;
    int lumaCount = block.x * block.y;
    bool keepsYCbCr = hasChroma() && keepsRGB() && yCbCrMatrix == outputYCbCrMatrix;
    Scene scene = makeScene();
    for (int i = 0; i <= lumaCount; ++i) {
        bool isLuma = i < lumaCount;
        ivec2 pixel = isLuma ? corner + ivec2(i % block.x, i / block.x) : corner;
        if (any(greaterThanEqual(pixel, size)))
            continue;
        vec2 at = isLuma ? vec2(pixel) + 0.5 : vec2(corner) + vec2(0.5, 0.5 * block.y);
        SourceValue value = readSource(scene, at, isLuma ? vec2(1) : vec2(block), isLuma || !keepsYCbCr,
                                       hasChroma() && (!isLuma || !keepsYCbCr));
        vec3 yCbCr;
        if (keepsYCbCr && value.isMapped) {
            yCbCr = yCbCrFromSamples(value.primary.r, value.chroma);
        } else {
            vec4 color = compositedColor(value, pixel);
            yCbCr = yCbCrFromRGB(color.rgb * color.a, outputYCbCrMatrix);
        }
        if (isLuma)
            storeLuma(pixel, yCbCr.x);
        else
            storeChroma(column, yCbCr.yz);
    }
}

#endif

#if defined(KERNEL_vrConvertFrameToYCbCr)

vec3 inputColor(ivec2 at, ivec2 size) { return texelFetch(inputPicture, clamp(at, ivec2(0), size - 1), 0).rgb; }

// One chroma sample and the luma samples that it belongs to. Chroma is the mean of what it covers, weighted 1 2 1 around
// the column that it is sited on.
void main() {
    ivec2 chromaSize = imageSize(outputChroma);
    ivec2 column = ivec2(gl_GlobalInvocationID.xy);
    if (any(greaterThanEqual(column, chromaSize)))
        return;
    ivec2 size = imageSize(outputLuma);
    ivec2 block = (size + chromaSize - 1) / chromaSize;
    ivec2 corner = column * block;
    vec3 sum = vec3(0);
    float total = 0;
    for (int j = 0; j < block.y; ++j) {
        for (int i = 1 - block.x; i < block.x; ++i) {
            ivec2 pixel = corner + ivec2(i, j);
            vec3 color = inputColor(pixel, size);
            if (i >= 0 && all(lessThan(pixel, size)))
                storeLuma(pixel, yCbCrFromRGB(color, outputYCbCrMatrix).x);
            float weight = i == 0 ? 2 : 1;
            sum += weight * color;
            total += weight;
        }
    }
    storeChroma(column, yCbCrFromRGB(sum / total, outputYCbCrMatrix).yz);
}

#endif

#if defined(KERNEL_copyProjectedFrame)

void main() {
    ivec2 pixel = ivec2(gl_GlobalInvocationID.xy);
    if (any(greaterThanEqual(pixel, imageSize(outputPicture))))
        return;
    vec4 color = texelFetch(inputPicture, pixel, 0);
    if (compositingBackground != 0) {
        // What an opaque source leaves empty is transparent black, premultiplied and straight alike.
        vec3 front = alphaMode == alphaStraight ? color.rgb * color.a : color.rgb;
        color = vec4(front + checkerboardGrey(pixel) * (1 - color.a), 1);
    }
    imageStore(outputPicture, pixel, color);
}

#endif

#if defined(KERNEL_mirrorDomeVertexShader)

layout(location = 0) in vec2 position;
layout(location = 1) in vec2 texCoords;
layout(location = 2) in float intensity;
layout(location = 0) noperspective out vec2 fisheyeCoordinate;
layout(location = 1) noperspective out float shade;

// The mesh's x runs to the left, its y upward; the picture's rows run downward.
void main() {
    gl_Position = vec4(-position.x / aspectRatio, -position.y, 0, 1);
    fisheyeCoordinate = texCoords;
    shade = intensity;
}

#endif

#if defined(KERNEL_mirrorDomeFragmentShader)

layout(location = 0) noperspective in vec2 fisheyeCoordinate;
layout(location = 1) noperspective in float shade;
layout(location = 0) out vec4 drawnColor;

// No sampler takes part: taps are fetched and weighted as in the kernels, which go round in an equirectangular picture
// and over its poles, keep the eyes of a stereo picture apart, and leave nothing dark at the edges.
void main() {
    fisheyeMiddle = fisheyeCoordinate;
    fisheyeAcross = dFdx(fisheyeCoordinate);
    fisheyeDown = dFdy(fisheyeCoordinate);
    vec4 color = finishedColor(readSource(makeScene(), vec2(0), vec2(1), true, hasChroma()));
    color.rgb = min(color.rgb * shade, vec3(1));
    drawnColor = outputAlphaMode == alphaPremultiplied ? vec4(color.rgb * color.a, color.a) : color;
}

#endif
