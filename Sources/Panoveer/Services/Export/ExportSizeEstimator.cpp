#include "Panoveer/Services/Export/ExportSizeEstimator.h"

#include "Panoveer/Model/Records/ExportFrameRateSummary.h"
#include "Panoveer/Services/Export/MarkedRangeTrimmer.h"
#include "Panoveer/Services/Export/SegmentDuration.h"

#include <algorithm>
#include <format>

namespace panoveer {

namespace {

// ProRes has target rates for this picture and scales with pixels and frames (ProRes White Paper, target data rates).
constexpr double referencePixels = 1920.0 * 1080.0;
constexpr double referenceFrameRate = 29.97;

double bytesOf(double duration, double mbps) { return duration * mbps * 1000000 * 0.125; }

} // namespace

double ExportSizeEstimator::estimatedBytes(const ExportSettings& settings, double duration, double frameRate) {
    if (!(duration > 0))
        return 0;
    if (const auto mbps = settings.bitrateMbps(frameRate))
        return bytesOf(duration, *mbps);
    const auto size = settings.validatedResolution();
    const double pixels = double(size.width) * double(size.height);
    const double frames = std::max(1.0, frameRate) / referenceFrameRate;
    const double referenceMbps = properties(settings.codec).referenceMbps.value_or(0);
    return bytesOf(duration * frames * (pixels / referencePixels), referenceMbps);
}

double ExportSizeEstimator::estimatedBytes(const ExportSettings& settings, std::span<const VRClipSegment> segments,
                                           const SourceFrameRates& sourceFrameRates) {
    const auto trimmed = MarkedRangeTrimmer::trimmedSegments(segments);
    if (settings.mode == ExportMode::singleMovie) {
        const auto rates = frameRatesOf(trimmed, sourceFrameRates);
        auto rate = settings.singleMovieTargetFrameRate(rates);
        if (!rate)
            rate = ExportFrameRateSummary(rates).highestFrameRate();
        return estimatedBytes(settings, totalDuration(trimmed), rate.value_or(unknownSourceFrameRate));
    }
    double bytes = 0;
    for (const auto& segment : trimmed)
        bytes += estimatedBytes(settings, segmentDuration(segment),
                                frameRateOf(segment.sourceURL, sourceFrameRates).value_or(unknownSourceFrameRate));
    return bytes;
}

std::string ExportSizeEstimator::formattedDecimalSize(double bytes) {
    return bytes >= 1e9 ? std::format("{:.1f} GB", bytes / 1e9) : std::format("{:.0f} MB", bytes / 1e6);
}

} // namespace panoveer
