#pragma once

#include "Panoveer/Model/Records/ProjectionFormat.h"

#include <array>
#include <cstddef>
#include <optional>
#include <span>
#include <vector>

namespace panoveer {

// Whole pixels of a picture; the parts beyond the picture's edges count for nothing.
struct PixelRegion {
    int left = 0;
    int top = 0;
    int width = 0;
    int height = 0;
};

struct MeanAndDeviation {
    double mean = 0;
    double deviation = 0; // standard deviation of the population
};

// A small grey picture for analysis: rows from the top, black 0 to white 1. A value whose pixels always fill its size;
// an empty picture is one of 0 by 0. No function here fails or throws but for want of memory.
class GrayscaleImage {
public:
    using Views = std::array<GrayscaleImage, 2>;

    GrayscaleImage() = default;
    // Without a width and a height of at least 1 it is empty. Missing pixels are black, superfluous ones dropped.
    GrayscaleImage(int width, int height, std::vector<float> pixels);

    int width() const { return width_; }
    int height() const { return height_; }
    bool isEmpty() const { return pixels_.empty(); }
    std::span<const float> pixels() const { return pixels_; }
    // Of a row that exists.
    std::span<const float> row(int y) const;

    // Between the four nearest pixels; the middle of the first one is (0.5, 0.5). Beyond the edges the nearest pixels
    // go on. 0 for an empty picture.
    double bilinear(double x, double y) const;

    // The mean of the pixels under each new one, in whole pixels and at least one.
    GrayscaleImage resampled(int width, int height) const;

    // The images of both eyes, in the order left to right or top to bottom: halves, an odd pixel left out. None for
    // mono, nor for a picture that cannot be halved.
    std::optional<Views> views(StereoVideoLayout layout) const;

    // Of all pixels, or of a region; both 0 where there are none.
    MeanAndDeviation meanAndDeviation() const;
    MeanAndDeviation meanAndDeviation(const PixelRegion& region) const;

private:
    GrayscaleImage cropped(const PixelRegion& region) const;

    int width_ = 0;
    int height_ = 0;
    std::vector<float> pixels_;
};

} // namespace panoveer
