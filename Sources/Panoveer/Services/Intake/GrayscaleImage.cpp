#include "Panoveer/Services/Intake/GrayscaleImage.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <utility>

namespace panoveer {

namespace {

std::size_t area(int width, int height) { return std::size_t(width) * std::size_t(height); }

// The first and the last but one source pixel of each new one along one side.
std::vector<std::pair<int, int>> boxes(int sourceSize, int size) {
    std::vector<std::pair<int, int>> result;
    for (std::int64_t i = 0; i < size; ++i) {
        const int begin = int(i * sourceSize / size);
        result.emplace_back(begin, std::max(int((i + 1) * sourceSize / size), begin + 1));
    }
    return result;
}

} // namespace

GrayscaleImage::GrayscaleImage(int width, int height, std::vector<float> pixels) {
    if (width < 1 || height < 1)
        return;
    width_ = width;
    height_ = height;
    pixels_ = std::move(pixels);
    pixels_.resize(area(width, height));
}

std::span<const float> GrayscaleImage::row(int y) const {
    return std::span(pixels_).subspan(area(width_, y), std::size_t(width_));
}

double GrayscaleImage::bilinear(double x, double y) const {
    if (isEmpty())
        return 0;
    // fmax gives a number for every input, so that no NaN reaches an index.
    const double column = std::fmin(std::fmax(x - 0.5, 0.0), width_ - 1.0);
    const double line = std::fmin(std::fmax(y - 0.5, 0.0), height_ - 1.0);
    const int left = int(column), top = int(line);
    const int right = std::min(left + 1, width_ - 1), bottom = std::min(top + 1, height_ - 1);
    const auto at = [this](int i, int j) { return double(pixels_[area(width_, j) + std::size_t(i)]); };
    const double upper = std::lerp(at(left, top), at(right, top), column - left);
    const double lower = std::lerp(at(left, bottom), at(right, bottom), column - left);
    return std::lerp(upper, lower, line - top);
}

GrayscaleImage GrayscaleImage::resampled(int width, int height) const {
    if (isEmpty() || width < 1 || height < 1)
        return {};
    const auto columns = boxes(width_, width);
    std::vector<float> result;
    result.reserve(area(width, height));
    for (const auto& [top, bottom] : boxes(height_, height))
        for (const auto& [left, right] : columns) {
            double sum = 0;
            for (int y = top; y < bottom; ++y)
                for (float value : row(y).subspan(std::size_t(left), std::size_t(right - left)))
                    sum += value;
            result.push_back(float(sum / double(area(right - left, bottom - top))));
        }
    return GrayscaleImage(width, height, std::move(result));
}

GrayscaleImage GrayscaleImage::cropped(const PixelRegion& region) const {
    std::vector<float> result;
    result.reserve(area(region.width, region.height));
    for (int y = region.top; y < region.top + region.height; ++y) {
        const auto part = row(y).subspan(std::size_t(region.left), std::size_t(region.width));
        result.insert(result.end(), part.begin(), part.end());
    }
    return GrayscaleImage(region.width, region.height, std::move(result));
}

std::optional<GrayscaleImage::Views> GrayscaleImage::views(StereoVideoLayout layout) const {
    const int halfWidth = width_ / 2, halfHeight = height_ / 2;
    switch (layout) {
    case StereoVideoLayout::sideBySide:
        if (halfWidth < 1)
            return std::nullopt;
        return Views{cropped({0, 0, halfWidth, height_}), cropped({halfWidth, 0, halfWidth, height_})};
    case StereoVideoLayout::overUnder:
        if (halfHeight < 1)
            return std::nullopt;
        return Views{cropped({0, 0, width_, halfHeight}), cropped({0, halfHeight, width_, halfHeight})};
    case StereoVideoLayout::mono: break;
    }
    return std::nullopt;
}

MeanAndDeviation GrayscaleImage::meanAndDeviation() const { return meanAndDeviation({0, 0, width_, height_}); }

MeanAndDeviation GrayscaleImage::meanAndDeviation(const PixelRegion& region) const {
    const int left = std::max(region.left, 0), right = std::min(region.left + region.width, width_);
    const int top = std::max(region.top, 0), bottom = std::min(region.top + region.height, height_);
    if (left >= right || top >= bottom)
        return {};
    const auto forEachPixel = [&](auto&& visit) {
        for (int y = top; y < bottom; ++y)
            for (float value : row(y).subspan(std::size_t(left), std::size_t(right - left)))
                visit(value);
    };
    const double count = double(area(right - left, bottom - top));
    double sum = 0, squares = 0;
    forEachPixel([&](double value) { sum += value; });
    const double mean = sum / count;
    forEachPixel([&](double value) { squares += (value - mean) * (value - mean); });
    return {mean, std::sqrt(squares / count)};
}

} // namespace panoveer
