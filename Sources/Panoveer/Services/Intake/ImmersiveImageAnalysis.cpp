#include "Panoveer/Services/Intake/ImmersiveImageAnalysis.h"

#include <algorithm>
#include <cmath>
#include <vector>

namespace panoveer::ImmersiveImageAnalysis {

namespace {

// Sums over pairs of pixels, around the means of both sides.
struct JointDeviation {
    double ab = 0;
    double aa = 0;
    double bb = 0;

    // No value where either side varies no more than so.
    std::optional<double> correlation(double flatness) const {
        if (!(aa > flatness) || !(bb > flatness))
            return std::nullopt;
        return ab / std::sqrt(aa * bb);
    }
};

// The sums of squares of a region that holds nothing but rounding errors.
constexpr double flatRegion = 1e-9;

struct PixelOrigin {
    int left = 0;
    int top = 0;
};

// Two regions of one size, both within their pictures.
JointDeviation jointDeviation(const GrayscaleImage& a, PixelOrigin atA, const GrayscaleImage& b, PixelOrigin atB,
                              int width, int height) {
    const auto forEachPair = [&](auto&& visit) {
        for (int y = 0; y < height; ++y) {
            const auto* rowA = a.row(atA.top + y).data() + atA.left;
            const auto* rowB = b.row(atB.top + y).data() + atB.left;
            for (int x = 0; x < width; ++x)
                visit(double(rowA[x]), double(rowB[x]));
        }
    };
    double meanA = 0, meanB = 0;
    forEachPair([&](double valueA, double valueB) {
        meanA += valueA;
        meanB += valueB;
    });
    const double count = double(width) * height;
    meanA /= count;
    meanB /= count;
    JointDeviation sums;
    forEachPair([&](double valueA, double valueB) {
        sums.ab += (valueA - meanA) * (valueB - meanB);
        sums.aa += (valueA - meanA) * (valueA - meanA);
        sums.bb += (valueB - meanB) * (valueB - meanB);
    });
    return sums;
}

// The rows that give a view of so many columns its own shape, within bounds.
int rowsForShape(const GrayscaleImage& view, int columns, int least, int most) {
    const double aspect = std::max(double(view.width()) / std::max(view.height(), 1), 0.1);
    return std::clamp(int(std::lround(columns / aspect)), least, most);
}

} // namespace

double normalizedCrossCorrelation(const GrayscaleImage& a, const GrayscaleImage& b, int shift) {
    const int begin = std::max(shift, 0);
    const int end = std::min(b.width() + shift, a.width());
    if (end - begin <= a.width() / 2 || a.height() != b.height())
        return -1;
    return jointDeviation(a, {begin, 0}, b, {begin - shift, 0}, end - begin, a.height())
        .correlation(flatRegion)
        .value_or(-1);
}

std::optional<StereoMatch> stereoMatch(const GrayscaleImage& frame, StereoVideoLayout layout) {
    constexpr int columns = 192;
    constexpr int largestShift = 15;
    constexpr double leastDeviation = 0.025;
    const auto views = frame.views(layout);
    if (!views)
        return std::nullopt;
    const int rows = rowsForShape(views->front(), columns, 24, 320);
    const auto first = (*views)[0].resampled(columns, rows);
    const auto second = (*views)[1].resampled(columns, rows);
    if (!(first.meanAndDeviation().deviation > leastDeviation) ||
        !(second.meanAndDeviation().deviation > leastDeviation))
        return std::nullopt;
    StereoMatch best{normalizedCrossCorrelation(first, second, -largestShift), -double(largestShift) / columns};
    for (int shift = -largestShift + 1; shift <= largestShift; ++shift)
        if (const double correlation = normalizedCrossCorrelation(first, second, shift); correlation > best.correlation)
            best = {correlation, double(shift) / columns};
    return best;
}

std::optional<bool> wrapsAround(const GrayscaleImage& view) {
    constexpr int leastSide = 16;
    constexpr double flatPixel = 1e-6;
    constexpr double leastInterior = 0.3;
    constexpr double leastRatioOfSphere = 0.6;
    constexpr double mostRatioOfFlat = 0.25;
    if (view.width() < leastSide || view.height() < leastSide)
        return std::nullopt;
    // The poles of a sphere are the same all the way round.
    const int top = int(0.05 * view.height());
    const int detailCount = int(0.95 * view.height()) - top - 1;
    const auto detail = [&](int column) {
        std::vector<float> differences;
        for (int y = top; y < top + detailCount; ++y)
            differences.push_back(view.row(y + 1)[std::size_t(column)] - view.row(y)[std::size_t(column)]);
        return GrayscaleImage(detailCount, 1, std::move(differences));
    };
    const auto correlation = [&](const GrayscaleImage& a, const GrayscaleImage& b) {
        return jointDeviation(a, {}, b, {}, detailCount, 1).correlation(detailCount * flatPixel);
    };
    const int last = view.width() - 1;
    const auto firstDetail = detail(0), lastDetail = detail(last);
    const auto seam = correlation(lastDetail, firstDetail);
    const auto left = correlation(firstDetail, detail(1));
    const auto right = correlation(lastDetail, detail(last - 1));
    if (!seam || !left || !right)
        return std::nullopt;
    const double interior = (*left + *right) / 2;
    if (!(interior > leastInterior))
        return std::nullopt;
    const double ratio = *seam / interior;
    if (ratio > leastRatioOfSphere)
        return true;
    if (ratio < mostRatioOfFlat)
        return false;
    return std::nullopt;
}

std::optional<bool> firstViewIsLeftEye(const GrayscaleImage& frame, StereoVideoLayout layout) {
    constexpr int columns = 256;
    constexpr int blocksAcross = 4;
    constexpr int blockWidth = columns / blocksAcross;
    constexpr int largestShift = 12;
    constexpr double leastLight = 0.04; // of a block's mean and deviation
    constexpr double leastScore = 0.75;
    constexpr double leastGain = 0.02; // over no shift at all
    constexpr double leastEvidence = 3;
    constexpr double leastShare = 0.75;
    const auto views = frame.views(layout);
    if (!views)
        return std::nullopt;
    const int rows = rowsForShape(views->front(), columns, 32, 512);
    const auto first = (*views)[0].resampled(columns, rows);
    const auto second = (*views)[1].resampled(columns, rows);
    const int blockHeight = rows / blocksAcross;

    double positive = 0, negative = 0;
    for (int block = 0; block < blocksAcross * blocksAcross; ++block) {
        const PixelOrigin reference{block % blocksAcross * blockWidth, block / blocksAcross * blockHeight};
        const auto light = first.meanAndDeviation({reference.left, reference.top, blockWidth, blockHeight});
        if (!(light.mean > leastLight) || !(light.deviation > leastLight))
            continue;
        const auto score = [&](int shift) {
            const int left = reference.left - shift;
            if (left < 0 || left > columns - blockWidth)
                return -1.0;
            return jointDeviation(first, reference, second, {left, reference.top}, blockWidth, blockHeight)
                .correlation(flatRegion)
                .value_or(-1);
        };
        int bestShift = 0;
        double bestScore = -1, scoreWithoutShift = -1;
        for (int shift = -largestShift; shift <= largestShift; ++shift) {
            const double value = score(shift);
            if (shift == 0)
                scoreWithoutShift = value;
            if (value > bestScore) {
                bestScore = value;
                bestShift = shift;
            }
        }
        if (!(bestScore > leastScore) || !(bestScore > scoreWithoutShift + leastGain))
            continue;
        (bestShift > 0 ? positive : negative) += std::abs(bestShift);
    }
    const double total = positive + negative;
    if (total < leastEvidence)
        return std::nullopt;
    if (positive / total >= leastShare)
        return true;
    if (negative / total >= leastShare)
        return false;
    return std::nullopt;
}

} // namespace panoveer::ImmersiveImageAnalysis
