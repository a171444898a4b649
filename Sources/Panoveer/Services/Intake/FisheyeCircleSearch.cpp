#include "Panoveer/Services/Intake/ImmersiveImageAnalysis.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <numbers>
#include <vector>

namespace panoveer::ImmersiveImageAnalysis {

namespace {

constexpr std::size_t leastEdgePoints = 45; // a quarter of the rays

// Small enough that its noise is averaged away and 180 rays meet every pixel of an edge.
GrayscaleImage workingImage(const GrayscaleImage& image) {
    constexpr int largestSide = 256;
    constexpr int leastSide = 16;
    const int larger = std::max(image.width(), image.height());
    if (larger <= largestSide)
        return image;
    const auto scaled = [&](int side) { return std::max(int(std::int64_t(side) * largestSide / larger), leastSide); };
    return image.resampled(scaled(image.width()), scaled(image.height()));
}

// The grey that parts a fisheye's circle from the dark around it. None where corners and middle do not differ so.
std::optional<double> edgeThreshold(const GrayscaleImage& image) {
    constexpr double darkest = 0.1;
    constexpr double leastContrast = 0.05;
    const int width = image.width(), height = image.height();
    const double shorter = std::min(width, height);
    const int corner = std::max(int(shorter * 0.06), 2);
    double cornerLevel = 0;
    for (int left : {0, width - corner})
        for (int top : {0, height - corner})
            cornerLevel = std::max(cornerLevel, image.meanAndDeviation({left, top, corner, corner}).mean);
    const int middle = std::max(int(shorter * 0.3), 4);
    const double centerLevel =
        image.meanAndDeviation({(width - middle) / 2, (height - middle) / 2, middle, middle}).mean;
    const double contrast = centerLevel - cornerLevel;
    if (!(cornerLevel < darkest) || !(contrast > leastContrast))
        return std::nullopt;
    return cornerLevel + std::max(contrast * 0.2, 0.03);
}

// Where rays from the middle leave the bright region for good. A region that runs off the frame has no edge there.
std::vector<PixelPoint> edgePoints(const GrayscaleImage& image, double threshold) {
    constexpr int rayCount = 180;
    constexpr double step = 0.5; // pixels
    constexpr int leastDarkRun = 3;
    const double width = image.width(), height = image.height();
    std::vector<PixelPoint> points;
    for (int ray = 0; ray < rayCount; ++ray) {
        const double angle = 2 * std::numbers::pi * ray / rayCount;
        const double cosine = std::cos(angle), sine = std::sin(angle);
        std::optional<double> lastBright;
        int darkRun = 0;
        for (double r = std::min(width, height) * 0.1;; r += step) {
            const double x = width / 2 + r * cosine, y = height / 2 + r * sine;
            if (!(x >= 0.5 && x <= width - 0.5 && y >= 0.5 && y <= height - 0.5))
                break;
            if (image.bilinear(x, y) > threshold) {
                lastBright = r;
                darkRun = 0;
            } else if (lastBright) {
                ++darkRun;
            }
        }
        if (!lastBright || darkRun < leastDarkRun)
            continue;
        const double edge = *lastBright + step / 2;
        points.push_back({width / 2 + edge * cosine, height / 2 + edge * sine});
    }
    return points;
}

std::vector<double> residuals(std::span<const PixelPoint> points, const PixelCircle& circle) {
    std::vector<double> result;
    for (const auto& point : points)
        result.push_back(std::abs(std::hypot(point.x - circle.x, point.y - circle.y) - circle.radius));
    return result;
}

// Without the points that lie far from the circle: lamps beyond its edge, dark things within it.
std::vector<PixelPoint> withoutOutliers(std::span<const PixelPoint> points, const PixelCircle& circle) {
    const auto distances = residuals(points, circle);
    auto sorted = distances;
    std::ranges::sort(sorted);
    const double limit = std::max(3 * sorted[sorted.size() / 2], 1.0);
    std::vector<PixelPoint> kept;
    for (std::size_t i = 0; i < points.size(); ++i)
        if (distances[i] <= limit)
            kept.push_back(points[i]);
    return kept;
}

double rootMeanSquare(std::span<const double> values) {
    double sum = 0;
    for (double value : values)
        sum += value * value;
    return std::sqrt(sum / double(values.size()));
}

// Into the ranges that a circle may have.
FisheyeCircle limited(double centerX, double centerY, double radius) {
    return {std::clamp(centerX, 0.0, 1.0), std::clamp(centerY, 0.0, 1.0), std::clamp(radius, 0.05, 1.0)};
}

} // namespace

// x^2 + y^2 + a x + b y + k = 0, by the normal equations of its squared left side (Kasa, "A circle fitting procedure
// and its error analysis", 1976), solved by Cramer's rule.
std::optional<PixelCircle> fitCircle(std::span<const PixelPoint> points) {
    if (points.size() < 3)
        return std::nullopt;
    double sx = 0, sy = 0, sxx = 0, sxy = 0, syy = 0, sxz = 0, syz = 0, sz = 0;
    for (const auto& [x, y] : points) {
        const double z = x * x + y * y;
        sx += x;
        sy += y;
        sxx += x * x;
        sxy += x * y;
        syy += y * y;
        sxz += x * z;
        syz += y * z;
        sz += z;
    }
    using Column = std::array<double, 3>;
    const auto determinant = [](const Column& p, const Column& q, const Column& r) {
        return p[0] * (q[1] * r[2] - q[2] * r[1]) - q[0] * (p[1] * r[2] - p[2] * r[1]) +
               r[0] * (p[1] * q[2] - p[2] * q[1]);
    };
    const Column ofA{sxx, sxy, sx}, ofB{sxy, syy, sy}, ofK{sx, sy, double(points.size())}, right{-sxz, -syz, -sz};
    const double whole = determinant(ofA, ofB, ofK);
    if (!(std::abs(whole) > 1e-9))
        return std::nullopt;
    const double a = determinant(right, ofB, ofK) / whole;
    const double b = determinant(ofA, right, ofK) / whole;
    const double k = determinant(ofA, ofB, right) / whole;
    const double squaredRadius = (a * a + b * b) / 4 - k;
    if (!(squaredRadius > 0))
        return std::nullopt;
    return PixelCircle{-a / 2, -b / 2, std::sqrt(squaredRadius)};
}

std::optional<FisheyeCircle> fisheyeCircle(const GrayscaleImage& image) {
    const auto working = workingImage(image);
    const auto threshold = edgeThreshold(working);
    if (!threshold)
        return std::nullopt;
    const auto points = edgePoints(working, *threshold);
    if (points.size() < leastEdgePoints)
        return std::nullopt;
    auto circle = fitCircle(points);
    if (!circle)
        return std::nullopt;
    const auto kept = withoutOutliers(points, *circle);
    if (kept.size() >= leastEdgePoints)
        if (const auto better = fitCircle(kept))
            circle = better;
    const double shorter = std::min(working.width(), working.height());
    const double error = rootMeanSquare(residuals(kept, *circle));
    if (!(circle->radius > shorter * 0.2) || !(error < std::max(circle->radius * 0.02, 1.5)))
        return std::nullopt;
    return limited(circle->x / working.width(), circle->y / working.height(), circle->radius / shorter);
}

std::optional<FisheyeCircle> averageCircle(std::span<const FisheyeCircle> circles) {
    if (circles.empty())
        return std::nullopt;
    FisheyeCircle sum{0, 0, 0};
    for (const auto& circle : circles) {
        sum.centerX += circle.centerX;
        sum.centerY += circle.centerY;
        sum.radius += circle.radius;
    }
    const double count = double(circles.size());
    return limited(sum.centerX / count, sum.centerY / count, sum.radius / count);
}

} // namespace panoveer::ImmersiveImageAnalysis
