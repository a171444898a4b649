#include "Panoveer/Rendering/Projection/SmoothPatch.h"

#include <cmath>
#include <utility>
#include <vector>

namespace panoveer {

namespace {

using Place = ProjectionMapping::Place;
using Four = std::array<double, 4>;

constexpr double footprintLikeness = 1.1;       // what lies between is linear to a thousandth
constexpr double largestThirdDifference = 0.02; // pixels; more than that is an edge or a pole

bool areAlike(const std::optional<Place>& a, const std::optional<Place>& b) {
    const auto isClose = [](double x, double y) { return x <= y * footprintLikeness && y <= x * footprintLikeness; };
    return a && b && a->source.half == b->source.half && a->source.face == b->source.face &&
           isClose(a->footprint.x, b->footprint.x) && isClose(a->footprint.y, b->footprint.y);
}

bool isEven(const Four& p) { return std::abs(p[3] - p[0] + 3 * (p[1] - p[2])) < largestThirdDifference; }

// Lagrange's cubic through four equidistant values, at a share 0…1 of the way between the two in the middle.
Four cubicWeights(double t) {
    return {-t * (t - 1) * (t - 2) / 6, (t + 1) * (t - 1) * (t - 2) / 2, -(t + 1) * t * (t - 2) / 2,
            (t + 1) * t * (t - 1) / 6};
}

double weighted(const Four& weights, const Four& values) {
    return weights[0] * values[0] + weights[1] * values[1] + weights[2] * values[2] + weights[3] * values[3];
}

// Of every part of a patch's samples along one axis: the middle of a sample is the middle of its parts.
std::span<const Four> weightsOfParts(int parts) {
    static const auto tables = [] {
        std::array<std::vector<Four>, SmoothPatch::finestParts + 1> made;
        for (int count = 1; count <= SmoothPatch::finestParts; ++count)
            for (int i = 0; i < SmoothPatch::side * count; ++i)
                made[std::size_t(count)].push_back(cubicWeights(((i + 0.5) / count - 0.5) / SmoothPatch::side));
        return made;
    }();
    return tables[std::size_t(parts)];
}

} // namespace

std::optional<SmoothPatch> SmoothPatch::make(const Anchors& anchors) {
    SmoothPatch patch;
    for (std::size_t i = 0; i < 4; ++i)
        for (std::size_t j = 0; j < 4; ++j) {
            const auto& anchor = anchors[i][j];
            if (!areAlike(anchor, anchors[i][j > 0 ? j - 1 : j]) || !areAlike(anchor, anchors[i > 0 ? i - 1 : i][j]))
                return std::nullopt;
            patch.x_[i][j] = anchor->source.x;
            patch.y_[i][j] = anchor->source.y;
        }
    for (std::size_t i = 0; i < 4; ++i) {
        const auto column = [&](const auto& values) {
            return Four{values[0][i], values[1][i], values[2][i], values[3][i]};
        };
        if (!isEven(patch.x_[i]) || !isEven(patch.y_[i]) || !isEven(column(patch.x_)) || !isEven(column(patch.y_)))
            return std::nullopt;
    }
    patch.half_ = anchors[1][1]->source.half;
    patch.face_ = anchors[1][1]->source.face;
    for (std::size_t i = 0; i < 2; ++i)
        for (std::size_t j = 0; j < 2; ++j)
            patch.footprints_[i][j] = anchors[i + 1][j + 1]->footprint;
    return patch;
}

void SmoothPatch::convertToStoredSamples(const PlaneGeometry& plane) {
    const auto convert = [](auto& places, const SampleAxis& axis, bool isReversed) {
        for (auto& row : places)
            for (auto& place : row)
                place = isReversed ? axis.count - 1 - axis.index(place) : axis.index(place);
    };
    convert(x_, plane.columns(), plane.reversesColumns());
    convert(y_, plane.rows(), plane.reversesRows());
    for (auto& row : footprints_)
        for (auto& footprint : row)
            footprint = {footprint.x / plane.columns().pitch, footprint.y / plane.rows().pitch};
    if (!plane.swapsAxes())
        return;
    std::swap(x_, y_);
    for (auto& row : footprints_)
        for (auto& footprint : row)
            std::swap(footprint.x, footprint.y);
}

Footprint SmoothPatch::footprint(int column, int row) const {
    const double across = double(column) / side, down = double(row) / side;
    const auto blended = [&](double Footprint::* axis) {
        const auto inRow = [&](std::size_t i) {
            return std::lerp(footprints_[i][0].*axis, footprints_[i][1].*axis, across);
        };
        return std::lerp(inRow(0), inRow(1), down);
    };
    return {blended(&Footprint::x), blended(&Footprint::y)};
}

void SmoothPatch::row(int index, int parts, std::span<double> x, std::span<double> y) const {
    const auto weights = weightsOfParts(parts);
    const auto& down = weights[std::size_t(index)];
    Four rowX{}, rowY{};
    for (std::size_t j = 0; j < 4; ++j) {
        rowX[j] = weighted(down, {x_[0][j], x_[1][j], x_[2][j], x_[3][j]});
        rowY[j] = weighted(down, {y_[0][j], y_[1][j], y_[2][j], y_[3][j]});
    }
    for (std::size_t i = 0; i < weights.size(); ++i) {
        x[i] = weighted(weights[i], rowX);
        y[i] = weighted(weights[i], rowY);
    }
}

} // namespace panoveer
