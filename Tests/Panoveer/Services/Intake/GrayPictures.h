#pragma once

#include "Panoveer/Services/Intake/GrayscaleImage.h"

#include <cmath>
#include <cstdint>
#include <random>
#include <vector>

// Small grey pictures whose pixels a test decides one by one.
namespace panoveer::test {

template<class GreyAt>
GrayscaleImage painted(int width, int height, GreyAt&& greyAt) {
    std::vector<float> pixels;
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            pixels.push_back(float(greyAt(x, y)));
    return GrayscaleImage(width, height, std::move(pixels));
}

inline GrayscaleImage flat(int width, int height, double grey) {
    return painted(width, height, [=](int, int) { return grey; });
}

// Evenly distributed greys around a half, every pixel for itself.
inline GrayscaleImage whiteNoise(int width, int height, double amplitude, std::uint32_t seed) {
    std::mt19937 engine(seed);
    return painted(width, height, [&](int, int) { return 0.5 + amplitude * (double(engine()) / 2147483648.0 - 1); });
}

// A picture so faint that it tells nothing of eyes, whose left and right edges are alike to the given degree.
inline GrayscaleImage withSeam(int width, int height, double likeness) {
    const auto noise = whiteNoise(2, height, 0.01, 5);
    return painted(width, height, [&](int x, int y) {
        const double left = noise.row(y)[0], own = noise.row(y)[1];
        const double right = 0.5 + likeness * (left - 0.5) + std::sqrt(1 - likeness * likeness) * (own - 0.5);
        return x < 2 ? left : x >= width - 2 ? right : 0.5;
    });
}

} // namespace panoveer::test
