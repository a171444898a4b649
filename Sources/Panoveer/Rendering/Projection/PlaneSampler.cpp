#include "Panoveer/Rendering/Projection/PlaneSampler.h"

#include "Panoveer/Rendering/Projection/TapResolver.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <numbers>

namespace panoveer {

namespace {

using std::numbers::pi;

constexpr double lanczosLobes = 4;
constexpr double widestFootprint = 4;

double sinc(double x) { return std::abs(x) < 1e-9 ? 1 : std::sin(pi * x) / (pi * x); }

void accumulate(Texel& sum, const Texel& value, double weight) {
    for (std::size_t i = 0; i < sum.size(); ++i)
        sum[i] += value[i] * weight;
}

Texel blended(const SourcePlane& plane, const TapSource& tap) {
    Texel sum{};
    for (int j = 0; j < 2; ++j)
        for (int i = 0; i < 2; ++i)
            if (const double weight = (i ? tap.fractionX : 1 - tap.fractionX) * (j ? tap.fractionY : 1 - tap.fractionY))
                accumulate(sum, plane.texel(tap.columns[i], tap.rows[j]), weight);
    return sum;
}

} // namespace

SourcePlane::SourcePlane(const PixelBuffer& buffer, int plane, SourceVideoOrientation orientation, AlphaMode alphaMode)
    : plane_(buffer.plane(plane)),
      geometry_({buffer.width(), buffer.height()}, {plane_.width, plane_.height}, orientation),
      channels_(plane == 1 ? 2 : buffer.layout().samplesPerPixel),
      bytesPerSample_(buffer.layout().bytesPerSample),
      alphaMode_(alphaMode) {}

Texel SourcePlane::texel(int column, int row) const {
    const auto [x, y] = geometry_.stored({column, row});
    const auto* at = plane_.data + std::size_t(y) * plane_.rowBytes + std::size_t(x * channels_ * bytesPerSample_);
    Texel texel{};
    for (int c = 0; c < channels_; ++c) {
        if (bytesPerSample_ == 1) {
            texel[std::size_t(c)] = double(std::to_integer<int>(at[c]));
        } else {
            std::uint16_t word = 0;
            std::memcpy(&word, at + 2 * c, 2);
            texel[std::size_t(c)] = word / 64.0; // ten bits in the high bits of the word
        }
    }
    if (channels_ < 4)
        return texel;
    const double alpha = alphaMode_ == AlphaMode::opaque ? 1 : texel[3] / 255;
    const double scale = (alphaMode_ == AlphaMode::straight ? alpha : 1) / 255;
    return {texel[2] * scale, texel[1] * scale, texel[0] * scale, alpha};
}

ResamplingWeights resamplingWeights(double fraction, int taps, double footprint) {
    ResamplingWeights result;
    if (taps <= 2) {
        result.weight = {1 - fraction, fraction};
        return result;
    }
    result.count = 8;
    result.first = -3;
    const double width = std::clamp(footprint, 1.0, widestFootprint);
    double sum = 0;
    for (int i = 0; i < result.count; ++i) {
        const double x = result.first + i - fraction;
        const double weight = sinc(x / width) * sinc(x / lanczosLobes);
        result.weight[std::size_t(i)] = weight;
        sum += weight;
    }
    for (auto& weight : result.weight)
        weight /= sum;
    return result;
}

Texel sampled(const SourcePlane& plane, const SourceLattice& lattice, const ProjectionMapping::Place& place, int taps) {
    const auto& columns = plane.geometry().columns();
    const auto& rows = plane.geometry().rows();
    const double x = columns.index(place.source.x);
    const double y = rows.index(place.source.y);
    const auto across = resamplingWeights(x - std::floor(x), taps, place.footprint.x / columns.pitch);
    const auto down = resamplingWeights(y - std::floor(y), taps, place.footprint.y / rows.pitch);
    const int column = int(std::floor(x)) + across.first;
    const int row = int(std::floor(y)) + down.first;
    const TapResolver resolver(plane.geometry(), lattice, place.source);
    const bool isInside = resolver.isInside(column, row, column + across.count - 1, row + down.count - 1);
    Texel sum{};
    for (int j = 0; j < down.count; ++j) {
        for (int i = 0; i < across.count; ++i) {
            const double weight = across.weight[std::size_t(i)] * down.weight[std::size_t(j)];
            if (weight != 0)
                accumulate(sum,
                           isInside ? plane.texel(column + i, row + j)
                                    : blended(plane, resolver.resolve(column + i, row + j)),
                           weight);
        }
    }
    return sum;
}

} // namespace panoveer
