// Where on the source an output position looks. Part of VRProjectionShaders.glsl.

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

#endif
