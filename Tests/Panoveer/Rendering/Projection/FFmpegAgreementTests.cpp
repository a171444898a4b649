#include "Panoveer/Rendering/Projection/PictureTesting.h"
#include "Panoveer/Rendering/Projection/ScalarProjectionReference.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <format>
#include <fstream>

namespace panoveer {

namespace {

namespace fs = std::filesystem;

// A conversion that FFmpeg's v360 filter knows too.
struct SharedConversion {
    const char* name;
    ProjectionFormat source, output;
    double fovDegrees;
    std::string filter;
    // v360 keeps the tops and bottoms of cube maps upright as seen from within; ours are mirrored.
    bool hasMirroredPoles = false;
};

class FFmpegAgreement : public testing::TestWithParam<SharedConversion> {
protected:
    fs::path folder_ = fs::temp_directory_path() / std::format("panoveer-v360-{}-{}", getpid(), GetParam().name);
    void SetUp() override { fs::create_directories(folder_); }
    void TearDown() override { fs::remove_all(folder_); }

    void convertWithFFmpeg(const PixelBuffer& source, PixelBuffer& output) const {
        std::ofstream(folder_ / "in.raw", std::ios::binary)
            .write(reinterpret_cast<const char*>(source.plane(0).data), source.width() * source.height() * 4);
        const auto command =
            std::format("ffmpeg -v error -f rawvideo -pix_fmt bgra -s {}x{} -i '{}' -vf "
                        "'format=gbrp,v360={}:interp=lanczos:w={}:h={}' "
                        "-pix_fmt bgra -f rawvideo '{}'",
                        source.width(), source.height(), (folder_ / "in.raw").string(), GetParam().filter,
                        output.width(), output.height(), (folder_ / "out.raw").string());
        ASSERT_EQ(std::system(command.c_str()), 0) << command;
        std::ifstream stream(folder_ / "out.raw", std::ios::binary);
        for (int y = 0; y < output.height(); ++y)
            stream.read(reinterpret_cast<char*>(output.plane(0).data + std::size_t(y) * output.plane(0).rowBytes),
                        output.width() * 4);
        ASSERT_TRUE(stream.good());
    }
};

// The third face of the upper row and the first of the lower one, turned upside down.
void mirrorPoles(PixelBuffer& picture) {
    const auto pixels = samplesOf(picture, 0);
    const int face = picture.height() / 2;
    fill(picture, [&](int x, int y) {
        const bool isPole = y < face ? x >= 2 * face : x < face;
        const int row = isPole ? (y < face ? face - 1 - y : 3 * face - 1 - y) : y;
        const auto* pixel = &pixels[std::size_t(row * picture.width() + x) * 4];
        return std::array{int(pixel[0]), int(pixel[1]), int(pixel[2]), int(pixel[3])};
    });
}

TEST_P(FFmpegAgreement, PutsEveryPixelWhereV360PutsIt) {
    const auto& conversion = GetParam();
    auto transform = transformBetween(conversion.source, conversion.output);
    transform.fovDegrees = conversion.fovDegrees;
    const auto outputSize = frameSize(conversion.output, StereoVideoLayout::mono, 192);
    transform.outputResolution = outputSize;
    const auto source = chartSource(transform, pixelFormat::bgra, 256);
    const auto ours = PixelBuffer::make(pixelFormat::bgra, int(outputSize.width), int(outputSize.height));
    const auto theirs = PixelBuffer::make(pixelFormat::bgra, int(outputSize.width), int(outputSize.height));
    ScalarProjectionReference::renderPicture(*source, {}, transform, *ours, {.transparentUnmappedAreas = true});
    if (conversion.hasMirroredPoles && conversion.source == ProjectionFormat::cubemap)
        mirrorPoles(*source);
    convertWithFFmpeg(*source, *theirs);
    if (conversion.hasMirroredPoles && conversion.output == ProjectionFormat::cubemap)
        mirrorPoles(*theirs);
    // v360 goes on beyond the circle of a fisheye, where we show nothing.
    const auto pixels = samplesOf(*ours, 0);
    const auto theirPixels = samplesOf(*theirs, 0);
    fill(*theirs, [&](int x, int y) {
        const auto at = std::size_t(y * theirs->width() + x) * 4;
        const auto& from = pixels[at + 3] == 0 ? pixels : theirPixels;
        return std::array{int(from[at]), int(from[at + 1]), int(from[at + 2]), int(pixels[at + 3])};
    });
    // v360 reads an equirectangular source up to half a pixel aside, which shows most at the poles and leaves 38 dB of
    // a half sphere; all others agree to 43 and more. Two mirrored faces alone leave 21.
    EXPECT_GT(differenceBetween(*ours, *theirs).psnr, 36);
    EXPECT_LT(differenceBetween(*ours, *theirs, 64).outlierShare, 0.01);
}

INSTANTIATE_TEST_SUITE_P(
    V360, FFmpegAgreement,
    testing::Values(
        SharedConversion{"equirectToEac", ProjectionFormat::equirectangular, ProjectionFormat::eac, 90, "e:eac"},
        SharedConversion{"eacToEquirect", ProjectionFormat::eac, ProjectionFormat::equirectangular, 180, "eac:e"},
        SharedConversion{"equirectToCubemap", ProjectionFormat::equirectangular, ProjectionFormat::cubemap, 90,
                         "e:c3x2", true},
        SharedConversion{"cubemapToEquirect", ProjectionFormat::cubemap, ProjectionFormat::equirectangular, 180,
                         "c3x2:e", true},
        SharedConversion{"equirectToHalf", ProjectionFormat::equirectangular, ProjectionFormat::halfEquirectangular,
                         180, "e:hequirect"},
        SharedConversion{"equirectToFlat", ProjectionFormat::equirectangular, ProjectionFormat::standard, 90,
                         "e:flat:v_fov=90:h_fov=121.092655"},
        SharedConversion{"equirectToFisheye", ProjectionFormat::equirectangular, ProjectionFormat::domemaster, 180,
                         "e:fisheye:h_fov=180:v_fov=180"},
        SharedConversion{"fisheyeToEac", ProjectionFormat::domemaster, ProjectionFormat::eac, 90,
                         "fisheye:eac:ih_fov=180:iv_fov=180"}),
    [](const auto& test) { return std::string(test.param.name); });

} // namespace
} // namespace panoveer
