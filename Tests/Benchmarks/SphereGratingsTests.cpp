#include "Benchmarks/SphereGratings.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

namespace panoveer::bench {

namespace {

struct Picture {
    const char* name;
    ProjectionFormat format;
    int width;
    int height;
    double fovDegrees = 180;
    double yawDegrees = 0;
    double pitchDegrees = 0;

    PictureGeometry geometry(int scale = 1) const {
        return {format, width * scale, height * scale, fovDegrees, yawDegrees, pitchDegrees};
    }
};

class SphereGratingsIn : public testing::TestWithParam<Picture> {};

std::vector<double> rendered(const SphereGratings& scene, const PictureGeometry& geometry) {
    std::vector<double> codes(std::size_t(geometry.width()) * std::size_t(geometry.height()));
    scene.render(geometry, [&](int y, std::span<const double> row) {
        std::ranges::copy(row, codes.begin() + std::ptrdiff_t(y) * geometry.width());
    });
    return codes;
}

// The scene through pixels that cover up to one and a half of its cycles, as they do where a picture gets smaller.
TEST_P(SphereGratingsIn, GiveEachPixelTheMeanOfItsArea) {
    constexpr int parts = 4;
    const auto& picture = GetParam();
    const auto scene = SphereGratings::upTo(120, 19);
    const auto whole = rendered(scene, picture.geometry());
    const auto divided = rendered(scene, picture.geometry(parts));
    double worst = 0;
    for (int y = 0; y < picture.height; ++y)
        for (int x = 0; x < picture.width; ++x) {
            double sum = 0;
            for (int j = 0; j < parts; ++j)
                for (int i = 0; i < parts; ++i)
                    sum += divided[std::size_t((y * parts + j) * picture.width * parts + x * parts + i)];
            worst = std::max(worst, std::abs(sum / (parts * parts) - whole[std::size_t(y * picture.width + x)]));
        }
    // A pixel is taken to be flat; here, where pixels are larger than any that are measured, that shows a little.
    EXPECT_LT(worst, 0.15);
    const auto [darkest, brightest] = std::ranges::minmax(divided);
    EXPECT_GE(darkest, 16);
    EXPECT_LE(brightest, 235);
}

INSTANTIATE_TEST_SUITE_P(Pictures, SphereGratingsIn,
                         testing::Values(Picture{"equirectangular", ProjectionFormat::equirectangular, 768, 384},
                                         Picture{"halfEquirectangular", ProjectionFormat::halfEquirectangular, 256,
                                                 256},
                                         Picture{"flat", ProjectionFormat::standard, 192, 128, 60},
                                         Picture{"dome", ProjectionFormat::domemaster, 256, 256},
                                         Picture{"turnedDome", ProjectionFormat::domemaster, 256, 256, 180, 180, 90},
                                         Picture{"obliqueDome", ProjectionFormat::domemaster, 256, 256, 180, 35, -20}),
                         [](const auto& test) { return std::string(test.param.name); });

} // namespace

} // namespace panoveer::bench
