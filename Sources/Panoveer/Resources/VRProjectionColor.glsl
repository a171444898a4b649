// From the colour of the source to that of the output. Part of VRProjectionShaders.glsl.

#if defined(PROJECTS)

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

#endif
