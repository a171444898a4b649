#include "Panoveer/Rendering/Projection/ColorCurves.h"

#include <algorithm>
#include <cmath>

namespace panoveer {

using namespace VideoColorMath;

namespace {

double fourthPower(double x) { return x * x * x * x; }

// Of a channel, in units of SDR white, but for HLG: there the scene's light, 0…1.
double lightOfSignal(double signal, VideoTransferFunction transfer) {
    switch (transfer) {
    case VideoTransferFunction::bt709: return bt1886EOTF(signal);
    case VideoTransferFunction::sRGB: return sRGBToLinear(signal);
    case VideoTransferFunction::linear: return signal;
    case VideoTransferFunction::pq: return pqEOTF(signal) / referenceWhite;
    case VideoTransferFunction::hlg: return hlgInverseOETF(signal);
    }
    return signal;
}

} // namespace

Curve::Curve(const std::function<double(double)>& function) {
    for (int i = 0; i <= steps; ++i)
        values_.push_back(float(function(double(i) / steps)));
    values_.push_back(values_.back());
}

ColorCurves::ColorCurves(const ColorConversion& conversion) {
    const auto mode = conversion.outputMode();
    const auto transfer = conversion.transferFunction();
    const bool isHDRSource = transfer == VideoTransferFunction::pq || transfer == VideoTransferFunction::hlg;

    toLight = Curve([&](double signal) { return lightOfSignal(signal, transfer); });
    if (transfer == VideoTransferFunction::hlg)
        sourceGain = Curve([](double root) {
            return std::pow(fourthPower(root), hlgDisplayGamma - 1) * nominalPeak / referenceWhite;
        });
    sourceLuminance = luminanceWeights(conversion.primaries());

    changesPrimaries = conversion.primaries() != outputPrimaries(mode);
    matrix = conversion.toOutputPrimaries();
    outputLuminance = luminanceWeights(outputPrimaries(mode));

    toneUnit = pqPeak / referenceWhite;
    switch (mode) {
    case VRColorOutputMode::sdr:
        if (isHDRSource)
            toneGain = Curve([](double root) {
                const double nits = std::max(fourthPower(root) * pqPeak, 1e-6);
                return bt2390ToneMapped(nits, nominalPeak, referenceWhite) / nits;
            });
        toSignal = Curve([](double root) { return bt1886InverseEOTF(fourthPower(root)); });
        break;
    case VRColorOutputMode::preserveHDR:
        toSignal = Curve([](double root) { return pqInverseEOTF(fourthPower(root) * pqPeak); });
        signalUnit = pqPeak / referenceWhite;
        break;
    case VRColorOutputMode::hdrHLG:
        toneGain = Curve([](double root) {
            const double nits = std::max(fourthPower(root) * pqPeak, 1e-6);
            return std::min(nominalPeak / nits, 1.0);
        });
        outputLight = Curve([](double root) { return std::pow(fourthPower(root), 1 / hlgDisplayGamma); });
        toSignal = Curve([](double root) { return hlgOETF(fourthPower(root)); });
        signalUnit = nominalPeak / referenceWhite;
        break;
    }
}

} // namespace panoveer
