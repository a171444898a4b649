#version 450
#extension GL_EXT_samplerless_texture_functions : require
#extension GL_EXT_control_flow_attributes : require

// The kernels that move pixels, and the two functions that draw a mirror dome's mesh. One text, compiled once for each
// with KERNEL_<name> defined.
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

#if defined(PROJECTS)

// --- Numbers -----------------------------------------------------------------------------------------------------

const float pi = 3.14159265358979;
const float nothing = 1e-30;

// Sine and cosine to one unit in the last place for a few turns (Cephes, sinf and cosf).
vec2 sinCos(float angle) {
    float quarter = round(angle * (2 / pi));
    float x = fma(-quarter, 1.5707855224609375, angle);
    x = fma(-quarter, 1.0804334124e-5, x);
    float z = x * x;
    float s = ((-1.9515295891e-4 * z + 8.3321608736e-3) * z - 1.6666654611e-1) * z * x + x;
    float c = ((2.443315711809948e-5 * z - 1.388731625493765e-3) * z + 4.166664568298827e-2) * z * z - 0.5 * z + 1;
    int q = int(quarter) & 3;
    vec2 turned = (q & 1) == 0 ? vec2(s, c) : vec2(c, s);
    return vec2((q & 2) == 0 ? turned.x : -turned.x, q == 0 || q == 3 ? turned.y : -turned.y);
}

// The angle of (x, y) from the x axis to two units in the last place (Cephes, atanf).
float arcTangent(float y, float x) {
    float ax = abs(x);
    float ay = abs(y);
    float a = min(ax, ay) / max(max(ax, ay), nothing);
    bool isSteep = a > 0.41421356;
    float t = isSteep ? (a - 1) / (a + 1) : a;
    float z = t * t;
    float r = (((8.05374449538e-2 * z - 1.38776856032e-1) * z + 1.99777106478e-1) * z - 3.33329491539e-1) * z * t + t;
    r += isSteep ? pi / 4 : 0;
    r = ay > ax ? pi / 2 - r : r;
    r = x < 0 ? pi - r : r;
    return y < 0 ? -r : r;
}

float tangent(float angle) {
    vec2 sc = sinCos(angle);
    return sc.x / sc.y;
}

// --- Formats -----------------------------------------------------------------------------------------------------

const uint formatStandard = 0;
const uint formatEquirectangular = 1;
const uint formatDomemaster = 2;
const uint formatCubemap = 3;
const uint formatMirrorDome = 4;
const uint formatEAC = 5;
const uint formatHalfEquirectangular = 6;

const uint stereoSideBySide = 1;
const uint stereoOverUnder = 2;

const float tangentOf30Degrees = 0.57735026919;
const float seamMargin = 2; // pixels around each row of an equi-angular cube map
const float steepestFaceAngle = 1.48352986;

struct CubeFace {
    vec3 forward;
    vec3 right;
    vec3 down;
};

// cubemapFaces, then equiAngularCubemapFaces. A face's column is its number mod 3, its row the number / 3.
const CubeFace cubeFaces[12] = CubeFace[](
    CubeFace(vec3(1, 0, 0), vec3(0, 0, -1), vec3(0, -1, 0)), CubeFace(vec3(-1, 0, 0), vec3(0, 0, 1), vec3(0, -1, 0)),
    CubeFace(vec3(0, 1, 0), vec3(1, 0, 0), vec3(0, 0, -1)), CubeFace(vec3(0, -1, 0), vec3(1, 0, 0), vec3(0, 0, 1)),
    CubeFace(vec3(0, 0, 1), vec3(1, 0, 0), vec3(0, -1, 0)), CubeFace(vec3(0, 0, -1), vec3(-1, 0, 0), vec3(0, -1, 0)),
    CubeFace(vec3(-1, 0, 0), vec3(0, 0, 1), vec3(0, -1, 0)), CubeFace(vec3(0, 0, 1), vec3(1, 0, 0), vec3(0, -1, 0)),
    CubeFace(vec3(1, 0, 0), vec3(0, 0, -1), vec3(0, -1, 0)), CubeFace(vec3(0, -1, 0), vec3(0, 0, -1), vec3(-1, 0, 0)),
    CubeFace(vec3(0, 0, -1), vec3(0, 1, 0), vec3(-1, 0, 0)), CubeFace(vec3(0, 1, 0), vec3(0, 0, 1), vec3(-1, 0, 0)));

// The faces of an equi-angular cube map towards +x, -x, +y, -y, +z, -z.
const int equiAngularOrder[6] = int[](2, 0, 5, 3, 1, 4);

#if defined(DRAWS_MESH)
const uint outputFormat = formatMirrorDome;
const uint outputStereoLayout = 0;

// The pixel in the making, as FisheyePixel has it. Positions on the output are measured from its middle.
vec2 fisheyeMiddle;
vec2 fisheyeAcross;
vec2 fisheyeDown;
#endif

bool isCube(uint format) { return format == formatCubemap || format == formatEAC; }
bool isFlat(uint format) { return format == formatStandard || format == formatMirrorDome; }

CubeFace cubeFace(uint format, int face) { return cubeFaces[format == formatEAC ? face + 6 : face]; }

int faceTowards(uint format, vec3 d) {
    vec3 m = abs(d);
    int side = m.y <= m.x && m.z <= m.x ? (d.x >= 0 ? 0 : 1)
               : m.x <= m.y && m.z <= m.y ? (d.y >= 0 ? 2 : 3)
                                          : (d.z >= 0 ? 4 : 5);
    return format == formatEAC ? equiAngularOrder[side] : side;
}

// Where a face lies in an image of this size: the middle, and half the width and height, in pixels.
struct FaceFrame {
    vec2 middle;
    vec2 half_;
};

FaceFrame faceFrame(uint format, vec2 size, int face) {
    float margin = format == formatEAC ? seamMargin : 0;
    vec2 half_ = max(vec2((size.x - 2 * margin) / 6, size.y * 0.25 - margin), vec2(5e-4));
    float column = float(face % 3) - 1;
    float row = float(face / 3) - 0.5;
    return FaceFrame(vec2(size.x * 0.5 + column * 2 * half_.x, size.y * 0.5 + row * size.y * 0.5), half_);
}

// -1…1 across a face to the direction that is seen there.
vec3 directionOnFace(uint format, int face, vec2 across) {
    if (format == formatEAC) {
        vec2 angle = clamp(across * (pi / 4), -steepestFaceAngle, steepestFaceAngle);
        across = vec2(tangent(angle.x), tangent(angle.y));
    }
    CubeFace f = cubeFace(format, face);
    return normalize(f.forward + f.right * across.x + f.down * across.y);
}

// --- From the output to directions -------------------------------------------------------------------------------

// The cell of one eye in the output.
struct Cell {
    uint eye;
    vec2 origin;
    vec2 size;
};

// What is the same for all pixels of a picture.
struct Scene {
    mat3 rotation; // from the output to the source
    float aspect;  // of one output eye
    // The screen of a flat source.
    vec3 forward;
    vec3 right;
    vec3 up;
    vec2 tangents;
    float distance_;
    ivec2 eyeSize; // of the source
};

Cell cellAt(vec2 at) {
    vec2 size = vec2(outputSize);
    if (outputStereoLayout == stereoSideBySide) {
        size.x *= 0.5;
        return Cell(at.x < size.x ? 0 : 1, vec2(at.x < size.x ? 0 : size.x, 0), size);
    }
    if (outputStereoLayout == stereoOverUnder) {
        size.y *= 0.5;
        return Cell(at.y < size.y ? 0 : 1, vec2(0, at.y < size.y ? 0 : size.y), size);
    }
    return Cell(monoStereoEye, vec2(0), size);
}

ivec2 eyeSizeOf(uvec2 size, uint layout_) {
    return ivec2(max(uvec2(layout_ == stereoSideBySide ? size.x / 2 : size.x,
                           layout_ == stereoOverUnder ? size.y / 2 : size.y),
                     uvec2(1)));
}

Scene makeScene() {
    Scene scene;
    ivec2 outputEye = eyeSizeOf(outputSize, outputStereoLayout);
    scene.aspect = float(outputEye.x) / float(outputEye.y);
    scene.eyeSize = eyeSizeOf(sourceSize, sourceStereoLayout);
    vec2 yaw = sinCos(yawRadians);
    vec2 roll = sinCos(rollRadians);
    if (!isFlat(sourceFormat)) {
        vec2 pitch = sinCos(pitchRadians);
        scene.rotation = mat3(yaw.y, 0, -yaw.x, 0, 1, 0, yaw.x, 0, yaw.y) *
                         mat3(1, 0, 0, 0, pitch.y, pitch.x, 0, -pitch.x, pitch.y) *
                         mat3(roll.y, roll.x, 0, -roll.x, roll.y, 0, 0, 0, 1);
        return scene;
    }
    float lift = outputFormat == formatStandard ? 0 : pi / 18;
    vec2 elevation = sinCos(clamp(pitchRadians + lift, -1.4486232791552935, 1.4486232791552935));
    scene.forward = vec3(yaw.x * elevation.y, elevation.x, yaw.y * elevation.y);
    vec3 right = normalize(vec3(scene.forward.z, 0, -scene.forward.x));
    vec3 up = cross(scene.forward, right);
    scene.right = right * roll.y + up * roll.x;
    scene.up = up * roll.y - right * roll.x;
    scene.tangents.x = tangent(clamp(fovRadians, pi / 180, 178 * pi / 180) * 0.5);
    scene.tangents.y = scene.tangents.x / max(scene.aspect, 0.05);
    scene.distance_ = clamp(standardDistance, 0.25, 4);
    return scene;
}

// A circular picture around the place `n`, measured in diameters from the middle: the angle from the axis and its sine
// over the distance.
vec2 domeAngle(vec2 n, float theta) {
    float r = length(n);
    vec2 sc = sinCos(min(r, 1) * theta);
    return vec2(r > 1e-6 ? sc.x / r : theta, sc.y);
}

// From the middle of a cell, in pixels of the output; for a mesh, of the fisheye picture and in its size.
vec2 fromMiddleOf(Cell cell, vec2 at) {
#if defined(DRAWS_MESH)
    return fisheyeMiddle - 0.5 + fisheyeAcross * at.x + fisheyeDown * at.y;
#else
    return (at - cell.origin) - cell.size * 0.5;
#endif
}

// The direction of the source's scene at a place of a cell. Defined beyond a dome's circle too.
vec3 directionInCell(Scene scene, Cell cell, vec2 at) {
    bool isFlatSource = isFlat(sourceFormat);
    vec2 fromMiddle = fromMiddleOf(cell, at);
    vec2 n = fromMiddle / cell.size;
    vec3 d;
    if (outputFormat == formatEquirectangular || outputFormat == formatHalfEquirectangular) {
        vec2 lon = sinCos(n.x * (outputFormat == formatEquirectangular ? 2 * pi : pi));
        vec2 lat = sinCos(-n.y * pi);
        d = vec3(lon.x * lat.y, lat.x, lon.y * lat.y);
    } else if (outputFormat == formatDomemaster || outputFormat == formatMirrorDome) {
        // Forward is laid into the zenith: what a domemaster shows, turned by half.
        if (outputFormat == formatMirrorDome)
            n = isFlatSource ? fromMiddle : -fromMiddle;
        vec2 dome = domeAngle(n, isFlatSource ? domemasterThetaRadians : fovRadians);
        d = isFlatSource ? vec3(n.x * dome.x, dome.y, n.y * dome.x) : vec3(n.x * dome.x, -n.y * dome.x, dome.y);
    } else if (isCube(outputFormat)) {
        float margin = outputFormat == formatEAC ? seamMargin : 0;
        float column = clamp(floor((at.x - cell.origin.x - margin) * 3 / (cell.size.x - 2 * margin)), 0, 2);
        int face = int(column) + (fromMiddle.y < 0 ? 0 : 3);
        FaceFrame frame = faceFrame(outputFormat, cell.size, face);
        d = directionOnFace(outputFormat, face, (fromMiddle + cell.size * 0.5 - frame.middle) / frame.half_);
    } else {
        vec2 t;
        if (isFlatSource) {
            t = vec2(tangentOf30Degrees, scene.aspect > 0.05 ? tangentOf30Degrees / scene.aspect : 11.547005383792511);
        } else {
            float half_ = fovRadians <= pi / 180 ? pi / 360 : min(fovRadians, 178 * pi / 180) * 0.5;
            t.y = tangent(half_);
            t.x = scene.aspect * t.y;
        }
        d = normalize(vec3(2 * n.x * t.x, -2 * n.y * t.y, 1));
    }
    return isFlatSource ? d : scene.rotation * d;
}

bool isWithinOutput(Cell cell, vec2 at) {
#if defined(DRAWS_MESH)
    vec2 n = fromMiddleOf(cell, at);
#else
    if (outputFormat != formatDomemaster)
        return true;
    vec2 n = (at - cell.origin) / cell.size - 0.5;
#endif
    return dot(n, n) * 4 <= 1;
}

// --- From directions to the source -------------------------------------------------------------------------------

// Places are in pixels of one eye's image.
vec2 unlimitedPlace(Scene scene, vec3 d, int face) {
    vec2 size = vec2(scene.eyeSize);
    vec2 middle = size * 0.5;
    if (sourceFormat == formatEquirectangular || sourceFormat == formatHalfEquirectangular) {
        float turns = arcTangent(d.x, d.z) / (sourceFormat == formatEquirectangular ? 2 * pi : pi);
        return middle + vec2(turns, -arcTangent(d.y, length(d.xz)) / pi) * size;
    }
    if (sourceFormat == formatDomemaster) {
        float across = length(d.xy);
        float r = arcTangent(across, d.z) / min(domemasterThetaRadians * 0.5, pi);
        vec2 towards = across > 0 ? d.xy / across : vec2(0, 1);
        return (fisheyeCenter + fisheyeRadius * vec2(towards.x, -towards.y) * r) * size;
    }
    if (isCube(sourceFormat)) {
        CubeFace f = cubeFace(sourceFormat, face);
        float depth = dot(d, f.forward);
        vec2 across = vec2(dot(d, f.right), dot(d, f.down));
        across = sourceFormat == formatEAC ? vec2(arcTangent(across.x, depth), arcTangent(across.y, depth)) * (4 / pi)
                                           : across / depth;
        FaceFrame frame = faceFrame(sourceFormat, size, face);
        return frame.middle + across * frame.half_;
    }
    float depth = dot(d, scene.forward);
    if (depth <= 0)
        return -size;
    vec2 onScreen = vec2(dot(d, scene.right), -dot(d, scene.up)) * (scene.distance_ / depth) / scene.tangents;
    return middle + onScreen * middle;
}

struct Place {
    vec2 at;
    vec2 footprint;
    int half_;
    int face;
};

bool isWithinSource(Scene scene, vec3 d, vec2 at) {
    if (sourceFormat == formatEquirectangular || isCube(sourceFormat))
        return true;
    if (sourceFormat == formatHalfEquirectangular)
        return d.z >= 0;
    if (sourceFormat == formatDomemaster && arcTangent(length(d.xy), d.z) > min(domemasterThetaRadians * 0.5, pi))
        return false;
    return all(greaterThanEqual(at, vec2(0))) && all(lessThanEqual(at, vec2(scene.eyeSize)));
}

// The place of the source that an output position shows, and the footprint there of a pixel of this size; false where
// there is none. The footprint is measured by two small steps on the output.
bool findPlace(Scene scene, vec2 at, vec2 pixelSize, out Place place) {
    Cell cell = cellAt(at);
    place.half_ = sourceStereoLayout != 0 && (cell.eye == 1) != (sourceEyesSwapped != 0) ? 1 : 0;
    place.face = 0;
    place.footprint = vec2(0);
    bool isMapped = isWithinOutput(cell, at);
    [[dont_unroll]] for (int i = 0; i < 3; ++i) {
        vec3 d = directionInCell(scene, cell, at + vec2(i == 1, i == 2) * 0.25);
        if (i == 0 && isCube(sourceFormat))
            place.face = faceTowards(sourceFormat, d);
        vec2 found = unlimitedPlace(scene, d, place.face);
        if (i == 0) {
            place.at = found;
            isMapped = isMapped && isWithinSource(scene, d, found);
            continue;
        }
        vec2 step_ = found - place.at;
        if (sourceFormat == formatEquirectangular)
            step_.x -= scene.eyeSize.x * round(step_.x / scene.eyeSize.x);
        step_ *= 4 * (i == 1 ? pixelSize.x : pixelSize.y);
        place.footprint += step_ * step_;
    }
    place.footprint = sqrt(place.footprint);
    return isMapped;
}

// --- Samples of the source ---------------------------------------------------------------------------------------

// A plane seen upright, within one eye's image: sample i of an axis lies at origin + i * pitch, in pixels of the image;
// it is stored at storedOrigin + column * storedColumn + row * storedRow.
struct Plane {
    bool isChroma;
    vec2 origin;
    vec2 pitch;
    ivec2 storedOrigin;
    ivec2 storedColumn;
    ivec2 storedRow;
    ivec2 count;
};

Plane makePlane(Scene scene, bool isChroma, int half_) {
    ivec2 lumaSize = textureSize(sourcePrimary, 0);
    ivec2 size = isChroma ? textureSize(sourceChroma, 0) : lumaSize;
    // Chroma is sited in the left of its luma columns and between its rows.
    vec2 pitch = vec2(size.x == lumaSize.x ? 1 : 2, size.y == lumaSize.y ? 1 : 2);
    vec2 origin = vec2(0.5, pitch.y * 0.5);
    vec2 reversed = vec2(lumaSize) - (origin + vec2(size - 1) * pitch);
    Plane plane;
    plane.isChroma = isChroma;
    if (sourceOrientation == 0) {
        plane = Plane(isChroma, origin, pitch, ivec2(0), ivec2(1, 0), ivec2(0, 1), size);
    } else if (sourceOrientation == 1) {
        plane = Plane(isChroma, vec2(reversed.y, origin.x), pitch.yx, ivec2(0, size.y - 1), ivec2(0, -1), ivec2(1, 0),
                      size.yx);
    } else if (sourceOrientation == 2) {
        plane = Plane(isChroma, reversed, pitch, size - 1, ivec2(-1, 0), ivec2(0, -1), size);
    } else {
        plane = Plane(isChroma, vec2(origin.y, reversed.x), pitch.yx, ivec2(size.x - 1, 0), ivec2(0, 1), ivec2(-1, 0),
                      size.yx);
    }
    if (half_ == 1)
        plane.origin -= vec2(ivec2(sourceStereoLayout == stereoSideBySide ? sourceSize.x - scene.eyeSize.x : 0,
                                   sourceStereoLayout == stereoOverUnder ? sourceSize.y - scene.eyeSize.y : 0));
    return plane;
}

vec4 texel(Plane plane, ivec2 at) {
    ivec2 stored = plane.storedOrigin + at.x * plane.storedColumn + at.y * plane.storedRow;
    if (plane.isChroma)
        return texelFetch(sourceChroma, stored, 0);
    vec4 value = texelFetch(sourcePrimary, stored, 0);
    if (alphaMode == alphaStraight)
        value.rgb *= value.a;
    if (alphaMode == alphaOpaque)
        value.a = 1;
    return value;
}

// Samples that may be blended directly: those of the image, or of one face.
struct Window {
    ivec2 first;
    ivec2 last;
};

Window windowAround(Scene scene, Plane plane, int face) {
    vec2 low = vec2(0);
    vec2 high = vec2(scene.eyeSize);
    if (isCube(sourceFormat)) {
        FaceFrame frame = faceFrame(sourceFormat, high, face);
        low = frame.middle - frame.half_;
        high = frame.middle + frame.half_;
    }
    ivec2 first = clamp(ivec2(ceil((low - plane.origin) / plane.pitch)), ivec2(0), plane.count - 1);
    return Window(first, clamp(ivec2(ceil((high - plane.origin) / plane.pitch)) - 1, first, plane.count - 1));
}

// In radii of a fisheye's circle from its centre.
vec2 fromFisheyeCenter(Scene scene, vec2 at) { return (at / vec2(scene.eyeSize) - fisheyeCenter) / fisheyeRadius; }

bool isWithinCircle(Scene scene, Plane plane, ivec2 tap) {
    vec2 from = fromFisheyeCenter(scene, plane.origin + vec2(tap) * plane.pitch);
    return dot(from, from) <= 1;
}

// Whether all samples between two corners may be blended directly.
bool isInside(Scene scene, Plane plane, Window window, ivec2 from, ivec2 to) {
    if (any(lessThan(from, window.first)) || any(greaterThan(to, window.last)))
        return false;
    return sourceFormat != formatDomemaster ||
           (isWithinCircle(scene, plane, from) && isWithinCircle(scene, plane, ivec2(to.x, from.y)) &&
            isWithinCircle(scene, plane, ivec2(from.x, to.y)) && isWithinCircle(scene, plane, to));
}

vec4 interpolated(Scene scene, Plane plane, vec2 at, int face) {
    Window window = windowAround(scene, plane, face);
    vec2 index = (at - plane.origin) / plane.pitch;
    vec2 base = floor(index);
    vec2 f = index - base;
    ivec2 low = ivec2(base);
    ivec2 high = low + 1;
    if (sourceFormat == formatEquirectangular) {
        int around = window.last.x - window.first.x + 1;
        low.x = window.first.x + (low.x - window.first.x + around) % around;
        high.x = window.first.x + (high.x - window.first.x + around) % around;
    }
    low = clamp(low, window.first, window.last);
    high = clamp(high, window.first, window.last);
    return mix(mix(texel(plane, low), texel(plane, ivec2(high.x, low.y)), f.x),
               mix(texel(plane, ivec2(low.x, high.y)), texel(plane, high), f.x), f.y);
}

vec4 tapBeyondWindow(Scene scene, Plane plane, Window window, int face, ivec2 tap) {
    vec2 at = plane.origin + vec2(tap) * plane.pitch;
    vec2 size = vec2(scene.eyeSize);
    if (isCube(sourceFormat)) {
        FaceFrame frame = faceFrame(sourceFormat, size, face);
        vec3 d = directionOnFace(sourceFormat, face, (at - frame.middle) / frame.half_);
        int other = faceTowards(sourceFormat, d);
        return interpolated(scene, plane, unlimitedPlace(scene, d, other), other);
    }
    if (sourceFormat == formatDomemaster) {
        vec2 from = fromFisheyeCenter(scene, at);
        float radius = max(1 - plane.pitch.x / (fisheyeRadius.x * size.x), 0);
        at = (fisheyeCenter + fisheyeRadius * from * min(radius / length(from), 1)) * size;
        tap = ivec2(round((at - plane.origin) / plane.pitch));
    }
    if (sourceFormat != formatEquirectangular)
        return texel(plane, clamp(tap, window.first, window.last));
    if (at.y < 0 || at.y > size.y) {
        at.y = clamp(at.y < 0 ? -at.y : 2 * size.y - at.y, 0, size.y);
        at.x += size.x * 0.5;
    }
    at.x -= size.x * floor(at.x / size.x);
    return interpolated(scene, plane, at, face);
}

// resamplingWeights() for eight taps. The sines of the sinc and of its window go on by a fixed angle from tap to tap.
void windowedSinc(float fraction, float footprint, out float weights[8]) {
    float width = clamp(footprint, 1, 4);
    float x = -3 - fraction;
    vec2 a = sinCos(x * pi / width);
    vec2 b = sinCos(x * pi / 4);
    vec2 turnA = sinCos(pi / width);
    float sum = 0;
    [[unroll]] for (int i = 0; i < 8; ++i) {
        float weight = abs(x) < 1e-3 ? 1 : a.x * b.x * (4 * width / (pi * pi)) / (x * x);
        weights[i] = weight;
        sum += weight;
        a = vec2(a.x * turnA.y + a.y * turnA.x, a.y * turnA.y - a.x * turnA.x);
        b = vec2(b.x + b.y, b.y - b.x) * 0.70710678;
        x += 1;
    }
    [[unroll]] for (int i = 0; i < 8; ++i)
        weights[i] /= sum;
}

vec4 sampled(Scene scene, Plane plane, Place place) {
    Window window = windowAround(scene, plane, place.face);
    vec2 index = (place.at - plane.origin) / plane.pitch;
    vec2 base = floor(index);
    vec2 f = index - base;
    bool isLinear = resamplingTaps <= 2;
    int count = isLinear ? 2 : 8;
    ivec2 first = ivec2(base) - (isLinear ? 0 : 3);
    bool isDirect = isInside(scene, plane, window, first, first + count - 1);
    if (isLinear && isDirect)
        return mix(mix(texel(plane, first), texel(plane, first + ivec2(1, 0)), f.x),
                   mix(texel(plane, first + ivec2(0, 1)), texel(plane, first + 1), f.x), f.y);
    float across[8] = float[](1 - f.x, f.x, 0, 0, 0, 0, 0, 0);
    float down[8] = float[](1 - f.y, f.y, 0, 0, 0, 0, 0, 0);
    if (!isLinear) {
        windowedSinc(f.x, place.footprint.x / plane.pitch.x, across);
        windowedSinc(f.y, place.footprint.y / plane.pitch.y, down);
    }
    vec4 sum = vec4(0);
    if (isDirect) {
        for (int j = 0; j < 8; ++j) {
            vec4 row = vec4(0);
            [[unroll]] for (int i = 0; i < 8; ++i)
                row += across[i] * texel(plane, first + ivec2(i, j));
            sum += down[j] * row;
        }
        return sum;
    }
    for (int j = 0; j < count; ++j) {
        for (int i = 0; i < count; ++i) {
            ivec2 tap = first + ivec2(i, j);
            sum += across[i] * down[j] *
                   (isInside(scene, plane, window, tap, tap) ? texel(plane, tap)
                                                             : tapBeyondWindow(scene, plane, window, place.face, tap));
        }
    }
    return sum;
}

// --- Colour ------------------------------------------------------------------------------------------------------

const uint primariesBT709 = 0;
const uint primariesBT2020 = 1;
const uint primariesP3 = 2;

const uint transferBT709 = 0;
const uint transferPQ = 1;
const uint transferHLG = 2;
const uint transferSRGB = 3;
const uint transferLinear = 4;

const uint modeSDR = 0;
const uint modePQ = 1;
const uint modeHLG = 2;

const float referenceWhite = 203; // cd/m2
const float nominalPeak = 1000;   // cd/m2

vec3 rgbFromYCbCr(vec3 c, uint matrix) {
    vec2 w = lumaWeights(matrix);
    float r = c.x + 2 * (1 - w.x) * c.z;
    float b = c.x + 2 * (1 - w.y) * c.y;
    return vec3(r, (c.x - w.x * r - w.y * b) / (1 - w.x - w.y), b);
}

// Normalised Y', Cb, Cr from what the textures hold.
vec3 yCbCrFromSamples(float luma, vec2 chroma) {
    bool isTenBit = textureLayout >= 3;
    bool isFullRange = textureLayout == 2 || textureLayout == 4;
    float codes = isTenBit ? 65535.0 / 64 : 255.0;
    float unit = isTenBit ? 4 : 1;
    float highest = 256 * unit - 1;
    float y = isFullRange ? luma * codes / highest : (luma * codes - 16 * unit) / (219 * unit);
    return vec3(y, (chroma * codes - 128 * unit) / (isFullRange ? highest : 224 * unit));
}

// SMPTE ST 2084:2014, 5.2 and 5.3, in cd/m2.
vec3 pqEOTF(vec3 signal) {
    vec3 p = pow(max(signal, vec3(0)), vec3(1 / 78.84375));
    return 10000 * pow(max(p - 0.8359375, vec3(0)) / (18.8515625 - 18.6875 * p), vec3(1 / 0.1593017578125));
}

vec3 pqInverseEOTF(vec3 nits) {
    vec3 p = pow(max(nits, vec3(0)) / 10000, vec3(0.1593017578125));
    return pow((0.8359375 + 18.8515625 * p) / (1 + 18.6875 * p), vec3(78.84375));
}

// ITU-R BT.2100-2, table 5.
const float hlgA = 0.17883277;
const float hlgB = 0.28466892;
const float hlgC = 0.55991073;

vec3 hlgOETF(vec3 light) {
    light = max(light, vec3(0));
    return mix(hlgA * log(max(12 * light - hlgB, vec3(nothing))) + hlgC, sqrt(3 * light),
               lessThanEqual(light, vec3(1.0 / 12)));
}

vec3 hlgInverseOETF(vec3 signal) {
    signal = max(signal, vec3(0));
    return mix((exp((signal - hlgC) / hlgA) + hlgB) / 12, signal * signal / 3, lessThanEqual(signal, vec3(0.5)));
}

// IEC 61966-2-1:1999, 5.2.
vec3 sRGBToLinear(vec3 signal) {
    return mix(pow((max(signal, vec3(0)) + 0.055) / 1.055, vec3(2.4)), signal / 12.92,
               lessThanEqual(signal, vec3(0.04045)));
}

float luminance(vec3 light, uint primaries) {
    vec3 weights = primaries == primariesBT709    ? vec3(0.212639006, 0.715168679, 0.072192315)
                   : primaries == primariesBT2020 ? vec3(0.262700212, 0.677998072, 0.059301716)
                                                  : vec3(0.228974564, 0.691738522, 0.079286914);
    return dot(weights, light);
}

// Display light in units of SDR white.
vec3 displayLight(vec3 signal) {
    if (transferFunction == transferPQ)
        return pqEOTF(signal) / referenceWhite;
    if (transferFunction == transferHLG) {
        vec3 scene = hlgInverseOETF(signal);
        return scene * (pow(luminance(scene, colorPrimaries), 0.2) * nominalPeak / referenceWhite);
    }
    if (transferFunction == transferSRGB)
        return sRGBToLinear(signal);
    return transferFunction == transferLinear ? signal : pow(max(signal, vec3(0)), vec3(2.4));
}

vec3 signalForDisplayLight(vec3 light) {
    if (colorOutputMode == modePQ)
        return pqInverseEOTF(light * referenceWhite);
    if (colorOutputMode == modeHLG) {
        vec3 display = light * (referenceWhite / nominalPeak);
        float y = luminance(display, primariesBT2020);
        return hlgOETF(y > 0 ? display * pow(y, 1 / 1.2 - 1) : vec3(0));
    }
    return pow(light, vec3(1 / 2.4));
}

uint outputPrimaries() { return colorOutputMode == modeSDR ? primariesBT709 : primariesBT2020; }

vec3 inOutputPrimaries(vec3 light) {
    if (colorPrimaries == outputPrimaries())
        return light;
    if (colorOutputMode == modeSDR)
        return (colorPrimaries == primariesBT2020
                    ? mat3(1.660491002, -0.124550475, -0.018150763, -0.587641139, 1.132899897, -0.100578898,
                           -0.072849863, -0.008349423, 1.118729661)
                    : mat3(1.224940176, -0.042056955, -0.019637555, -0.224940176, 1.042056955, -0.078636046, 0, 0,
                           1.098273600)) *
               light;
    return (colorPrimaries == primariesBT709
                ? mat3(0.627403896, 0.069097289, 0.016391439, 0.329283038, 0.919540395, 0.088013308, 0.043313066,
                       0.011362316, 0.895595253)
                : mat3(0.753833034, 0.045743849, -0.001210340, 0.198597369, 0.941777220, 0.017601717, 0.047569597,
                       0.012478931, 0.983608623)) *
           light;
}

// ITU-R BT.2390-11, 5.4.1 with both blacks at zero, from the nominal peak to SDR white; in cd/m2.
float toneMappedToSDR(float nits) {
    float sourceMaximum = 0.7518271;                   // the PQ signal of the nominal peak
    float targetMaximum = 0.5806889 / sourceMaximum;   // of reference white
    float kneeStart = 1.5 * targetMaximum - 0.5;
    float e = min(pqInverseEOTF(vec3(nits)).x / sourceMaximum, 1);
    if (e < kneeStart)
        return nits;
    float t = (e - kneeStart) / (1 - kneeStart);
    float t2 = t * t;
    float t3 = t2 * t;
    e = (2 * t3 - 3 * t2 + 1) * kneeStart + (t3 - 2 * t2 + t) * (1 - kneeStart) + (3 * t2 - 2 * t3) * targetMaximum;
    return pqEOTF(vec3(e * sourceMaximum)).x;
}

bool keepsRGB() {
    uint transfer = colorOutputMode == modeSDR ? transferBT709 : colorOutputMode == modePQ ? transferPQ : transferHLG;
    return colorPrimaries == outputPrimaries() && transferFunction == transfer;
}

vec3 outputColor(vec3 signal) {
    if (keepsRGB())
        return signal;
    vec3 light = max(inOutputPrimaries(displayLight(clamp(signal, 0, 1))), vec3(0));
    float strongest = max(max(light.r, light.g), light.b) * referenceWhite;
    if (colorOutputMode == modeSDR && (transferFunction == transferPQ || transferFunction == transferHLG)) {
        if (strongest > 0)
            light *= toneMappedToSDR(strongest) / strongest;
    } else if (colorOutputMode == modeHLG && strongest > nominalPeak) {
        light *= nominalPeak / strongest;
    }
    return clamp(signalForDisplayLight(light), 0, 1);
}

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
