#include "Panoveer/Services/Export/ExportFrameClock.h"

#include <algorithm>
#include <cmath>
#include <numeric>

namespace panoveer {

namespace {

constexpr double fallbackRate = 30;
// Timescales of movie files have 32 bits; up to this rate every clock fits.
constexpr double largestRate = 1e6;

// Traditional movie time: 600 divides by 24, 25, 30 and 60.
constexpr std::int64_t movieTimescale = 600;

// How far two notations of one rate lie apart, as a fraction of it. 30000/1001 and 30 differ by 0.001.
constexpr double ntscTolerance = 0.0003;
constexpr double integerTolerance = 0.0006;

// The nominal rate whose 1000/1001 this is (30 for 29.97); 0 for none.
std::int64_t ntscNominalRate(double rate) {
    const double nominal = std::round(rate * 1.001);
    if (nominal < 1 || nominal > 2000)
        return 0;
    const double ntsc = nominal * 1000 / 1001;
    const bool isNTSC = std::abs(rate - ntsc) / ntsc < ntscTolerance;
    const bool isInteger = std::abs(rate - nominal) / nominal <= integerTolerance;
    return isNTSC && !isInteger ? std::int64_t(nominal) : 0;
}

} // namespace

ExportFrameClock::ExportFrameClock(double framesPerSecond) {
    double rate = framesPerSecond > 0 && framesPerSecond <= largestRate ? framesPerSecond : fallbackRate;
    if (const auto nominal = ntscNominalRate(rate)) {
        timescale = std::int32_t(nominal * 1000);
        frameDuration = 1001;
        return;
    }
    if (const double rounded = std::round(rate); rounded >= 1 && std::abs(rate - rounded) / rounded < integerTolerance)
        rate = rounded;
    // The rate is p / q frames per second. The timescale is the least multiple of 600 in which a frame is a whole
    // number of units.
    const auto thousandths = std::max<std::int64_t>(std::llround(rate * 1000), 1);
    const auto divisor = std::gcd(thousandths, std::int64_t(1000));
    const auto p = thousandths / divisor;
    const auto q = 1000 / divisor;
    const auto scale = p / std::gcd(p, movieTimescale) * movieTimescale;
    timescale = std::int32_t(scale);
    frameDuration = scale / p * q;
}

std::int64_t ExportFrameClock::frameIndex(double atSeconds) const {
    return std::llround(atSeconds * double(timescale) / double(frameDuration));
}

} // namespace panoveer
