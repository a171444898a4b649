// What the source holds at a place. Part of VRProjectionShaders.glsl.

#if defined(PROJECTS)

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

#endif
