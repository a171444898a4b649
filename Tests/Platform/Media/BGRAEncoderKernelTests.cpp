#include "Platform/Media/BGRAEncoderKernel.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

namespace panoveer {
namespace {

// Rec. ITU-T H.273, equations 38 to 45 for 8 bits, of one colour in 0 … 255.
std::array<double, 3> components(std::array<double, 3> rgb, double kr, double kb) {
    for (double& component : rgb)
        component /= 255;
    const double y = kr * rgb[0] + (1 - kr - kb) * rgb[1] + kb * rgb[2];
    return {219 * y + 16, 224 * (rgb[2] - y) / (2 * (1 - kb)) + 128, 224 * (rgb[0] - y) / (2 * (1 - kr)) + 128};
}

TEST(BGRAEncoderKernel, RoundsEverySampleOfANoisyPictureToTheNearestStep) {
    constexpr int width = 38, height = 6;
    const auto picture = PixelBuffer::make(pixelFormat::bgra, width, height);
    std::mt19937 random(7);
    const auto pixel = [&](int x, int y) {
        return reinterpret_cast<std::uint8_t*>(picture->plane(0).data) + std::size_t(y) * picture->plane(0).rowBytes +
               std::size_t(4) * std::size_t(std::max(x, 0));
    };
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            for (int c = 0; c < 4; ++c)
                pixel(x, y)[c] = std::uint8_t(x < 8 ? 255 * (random() % 2) : random()); // with the gamut's corners
    struct Row {
        int matrix;
        double kr, kb;
    };
    for (const auto& row : {Row{1, 0.2126, 0.0722}, Row{6, 0.299, 0.114}, Row{9, 0.2627, 0.0593}}) {
        std::vector<std::byte> planes[3] = {std::vector<std::byte>(width * height),
                                            std::vector<std::byte>(width * height / 4),
                                            std::vector<std::byte>(width * height / 4)};
        PlanarPicture target;
        for (std::size_t i = 0; i < 3; ++i) {
            target.data[i] = planes[i].data();
            target.rowBytes[i] = i == 0 ? width : width / 2;
        }
        convertToYCbCr420(*picture, target, row.matrix);
        double worst = 0;
        for (int y = 0; y < height; ++y)
            for (int x = 0; x < width; ++x) {
                const auto* p = pixel(x, y);
                const auto luma = components({double(p[2]), double(p[1]), double(p[0])}, row.kr, row.kb)[0];
                worst = std::max(worst, std::abs(luma - double(planes[0][std::size_t(y * width + x)])));
            }
        for (int y = 0; y < height / 2; ++y)
            for (int x = 0; x < width / 2; ++x) {
                std::array<double, 3> rgb{};
                for (int dy = 0; dy < 2; ++dy)
                    for (int dx = -1; dx <= 1; ++dx)
                        for (std::size_t c = 0; c < 3; ++c)
                            rgb[c] += pixel(2 * x + dx, 2 * y + dy)[2 - c] * (dx == 0 ? 2 : 1) / 8.0;
                const auto expected = components(rgb, row.kr, row.kb);
                for (std::size_t i = 1; i < 3; ++i)
                    worst = std::max(worst, std::abs(expected[i] - double(planes[i][std::size_t(y * width / 2 + x)])));
            }
        EXPECT_LE(worst, 0.5001) << row.matrix; // a float apart from half a step
    }
}

} // namespace
} // namespace panoveer
