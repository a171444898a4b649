#pragma once

#include "Panoveer/Rendering/Projection/VideoColorMath.h"

#include <functional>
#include <vector>

namespace panoveer {

// A function over 0…1 by its values at even distances, to be interpolated linearly.
class Curve {
public:
    static constexpr int steps = 4096;

    Curve() = default;
    explicit Curve(const std::function<double(double)>& function);

    bool isEmpty() const { return values_.empty(); }
    // steps + 2 values, so that the place of 1 has a next one too.
    const float* values() const { return values_.data(); }

private:
    std::vector<float> values_;
};

// A ColorConversion as curves of one variable, for engines that cannot work out light for every pixel. Between the
// curves there are only products and a matrix:
//
//   signal --toLight--> light --by sourceGain of its luminance--> display light --matrix--> in the output's primaries
//          --by toneGain of the strongest channel--> --by outputLight of its luminance--> --toSignal--> signal
//
// Curves over light take its fourth root, since most of what the eye tells apart is near black. Immutable, safe from
// any thread.
struct ColorCurves {
    explicit ColorCurves(const ColorConversion& conversion);

    Curve toLight;

    Curve sourceGain; // empty unless the source is HLG, whose light is the scene's: the display's gamma as a factor
    RGB sourceLuminance;

    Matrix3 matrix{};
    bool changesPrimaries = false;

    Curve toneGain;      // empty unless highlights are brought into a smaller range
    double toneUnit = 1; // what 1 of toneGain stands for, in units of SDR white

    Curve outputLight; // empty unless the output is HLG: the scene's luminance from the display's
    RGB outputLuminance;

    Curve toSignal;
    double signalUnit = 1; // what 1 of outputLight and of toSignal stands for, in units of SDR white
};

} // namespace panoveer
