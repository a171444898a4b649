#include "Panoveer/Rendering/Projection/ParityEngines.h"
#include "Panoveer/Rendering/Projection/PictureTesting.h"
#include "Panoveer/Rendering/Projection/ScalarProjectionReference.h"

#include <gtest/gtest.h>

#include <array>
#include <format>
#include <iostream>
#include <map>

// Every engine against the scalar definition, sample by sample.
namespace panoveer {

namespace {

using namespace pixelFormat;

// How much more than an engine's own tolerance a picture may differ.
struct Allowance {
    double codes = 1;         // of the output
    double outliers = 0.0002; // of all samples, that may differ by more: on the rims of pictures, where mapped meets
                              // unmapped, a place may fall on the other side
    double worstOutlier = 4;  // times the engine's own; where there are no rims
};

bool hasRims(const VRTransform& transform) {
    using enum ProjectionFormat;
    const auto source = transform.sourceFormat;
    return source == standard || source == halfEquirectangular || source == domemaster ||
           transform.outputFormat == domemaster || transform.outputFormat == mirrorDome;
}

class ProjectionParity : public testing::Test {
protected:
    static void TearDownTestSuite() { releaseParityEngines(); }

    void expectParity(const PixelBufferPtr& source, const SourcePictureDescription& description,
                      const VRTransform& transform, FourCC format, OutputResolution size,
                      VRColorOutputMode mode = VRColorOutputMode::sdr,
                      VRResamplingQuality quality = VRResamplingQuality::final, Allowance allowance = {}) {
        const auto expected = PixelBuffer::make(format, int(size.width), int(size.height));
        const bool isTransparent = description.alphaMode != AlphaMode::opaque;
        ScalarProjectionReference().render(source, description, transform, expected, mode, quality, isTransparent);
        if (format == bgra && description.alphaMode == AlphaMode::straight)
            premultiply(*expected);
        for (const auto& engine : parityEngines()) {
            SCOPED_TRACE(engine.name);
            engine.select();
            const auto actual = PixelBuffer::make(format, int(size.width), int(size.height));
            engine.renderer->render(source, description, transform, actual, mode, quality, isTransparent)->wait();
            if (format == bgra && description.alphaMode == AlphaMode::straight)
                premultiply(*actual);
            const double codes =
                actual->layout().isYCbCr() && actual->layout().bytesPerSample == 2 ? engine.tenBitCodes : engine.codes;
            const auto difference = differenceBetween(*actual, *expected, allowance.codes * codes + 0.001);
            EXPECT_LE(difference.outlierShare, allowance.outliers)
                << "worst " << difference.worst << ", " << difference.psnr << " dB";
            if (!hasRims(transform) && description.alphaMode == AlphaMode::opaque) {
                EXPECT_LE(difference.worst, std::max(allowance.worstOutlier, allowance.codes) * codes);
            }
            worst_[engine.name] = std::max(worst_[engine.name], difference.worst);
        }
    }

    void TearDown() override {
        for (const auto& [engine, worst] : worst_)
            std::cout << std::format("worst sample of {}: {:.2f} codes\n", engine, worst);
    }

    std::map<std::string, double> worst_;
};

// --- Formats and eyes ------------------------------------------------------------------------------------------------

class FormatParity : public ProjectionParity,
                     public testing::WithParamInterface<std::tuple<ProjectionFormat, ProjectionFormat>> {};

TEST_P(FormatParity, HoldsForAllEyesAtBothQualities) {
    auto transform = transformBetween(std::get<0>(GetParam()), std::get<1>(GetParam()));
    transform.yawDegrees = transform.sourceFormat == ProjectionFormat::standard ? 8 : 130;
    transform.pitchDegrees = -20;
    transform.rollDegrees = 15;
    transform.standardDistance = transform.sourceFormat == ProjectionFormat::standard ? 1.5 : 1;
    if (transform.sourceFormat == ProjectionFormat::domemaster) {
        transform.domemasterThetaDegrees = 200;
        transform.fisheyeCircle = FisheyeCircle{.centerX = 0.48, .centerY = 0.53, .radius = 0.46};
    }
    for (const auto source : stereoLayouts) {
        for (const auto output : stereoLayouts) {
            SCOPED_TRACE(nameOf(source) + " to " + nameOf(output));
            transform.sourceStereoLayout = source;
            transform.outputStereoLayout = output;
            transform.sourceEyesSwapped = source == StereoVideoLayout::overUnder;
            transform.monoStereoEye = source == StereoVideoLayout::sideBySide ? StereoEye::right : StereoEye::left;
            const auto size = frameSize(transform.outputFormat, output, 64);
            transform.outputResolution = size;
            const auto picture = chartSource(transform, yCbCr420VideoRange, 96, 0.012);
            expectParity(picture, {}, transform, yCbCr420VideoRange, size);
            expectParity(picture, {}, transform, bgra, size, VRColorOutputMode::sdr, VRResamplingQuality::interactive);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(All, FormatParity,
                         testing::Combine(testing::ValuesIn(kernelFormats), testing::ValuesIn(kernelFormats)),
                         [](const auto& test) {
                             return nameOf(std::get<0>(test.param)) + "To" + nameOf(std::get<1>(test.param));
                         });

// Magnified views of poles, seams, edges and rims, with the eyes' borders among them.
class SeamParity : public ProjectionParity, public testing::WithParamInterface<ProjectionFormat> {};

TEST_P(SeamParity, HoldsWhereThePictureEnds) {
    auto transform = transformBetween(GetParam(), ProjectionFormat::standard);
    transform.fovDegrees = 12;
    transform.outputResolution = {24, 24};
    for (const auto layout : stereoLayouts) {
        transform.sourceStereoLayout = layout;
        const auto picture = chartSource(transform, yCbCr420VideoRange, 96, 0.012);
        int view = 0;
        for (const auto& place : seams()) {
            SCOPED_TRACE(nameOf(layout) + " " + std::to_string(view));
            lookAt(place, transform);
            transform.monoStereoEye = ++view % 2 ? StereoEye::left : StereoEye::right;
            const auto quality = view % 3 ? VRResamplingQuality::final : VRResamplingQuality::interactive;
            // The rim of a half sphere or a fisheye runs through the middle of some views, along two dozen pixels.
            expectParity(picture, {}, transform, yCbCr420VideoRange, {24, 24}, VRColorOutputMode::sdr, quality,
                         {.outliers = hasRims(transform) ? 0.05 : 0.0012});
        }
    }
}

INSTANTIATE_TEST_SUITE_P(All, SeamParity,
                         testing::Values(ProjectionFormat::equirectangular, ProjectionFormat::halfEquirectangular,
                                         ProjectionFormat::domemaster, ProjectionFormat::cubemap,
                                         ProjectionFormat::eac),
                         [](const auto& test) { return nameOf(test.param); });

// --- Mirror domes ----------------------------------------------------------------------------------------------------

class MirrorDomeParity : public ProjectionParity, public testing::WithParamInterface<ProjectionFormat> {};

// Through the standard mesh. The GPU may round where nodes lie to 1/256 of a pixel, and with them what pixels show.
TEST_P(MirrorDomeParity, HoldsForAllEyesAtBothQualities) {
    auto transform = mirrorDomeFrom(GetParam());
    transform.standardDistance = 1.5;
    transform.domemasterThetaDegrees = 200;
    transform.fisheyeCircle = FisheyeCircle{.centerX = 0.48, .centerY = 0.53, .radius = 0.46};
    SourcePictureDescription description{.yCbCrMatrix = VideoYCbCrMatrix::bt601,
                                         .colorPrimaries = VideoColorPrimaries::p3D65,
                                         .transferFunction = VideoTransferFunction::sRGB};
    for (const auto layout : stereoLayouts) {
        SCOPED_TRACE(nameOf(layout));
        transform.sourceStereoLayout = layout;
        transform.sourceEyesSwapped = layout == StereoVideoLayout::overUnder;
        transform.monoStereoEye = layout == StereoVideoLayout::sideBySide ? StereoEye::right : StereoEye::left;
        description.orientation = orientations[std::size_t(layout) + 1];
        const auto picture = chartSource(transform, yCbCr420VideoRange, 96, 0.012);
        expectParity(picture, description, transform, bgra, transform.outputResolution);
        expectParity(picture, description, transform, rgbaHalf, transform.outputResolution, VRColorOutputMode::sdr,
                     VRResamplingQuality::interactive);
    }
}

INSTANTIATE_TEST_SUITE_P(All, MirrorDomeParity, testing::ValuesIn(kernelFormats),
                         [](const auto& test) { return nameOf(test.param); });

// --- Layouts, orientations, alpha ------------------------------------------------------------------------------------

constexpr std::array sourceLayouts{bgra,
                                   yCbCr420VideoRange,
                                   yCbCr420FullRange,
                                   yCbCr420TenBitVideoRange,
                                   yCbCr420TenBitFullRange,
                                   yCbCr422TenBitVideoRange,
                                   yCbCr444TenBitVideoRange};

TEST_F(ProjectionParity, HoldsForEveryLayoutInEveryOrientation) {
    auto transform = transformBetween(ProjectionFormat::equirectangular, ProjectionFormat::eac);
    for (const auto format : sourceLayouts) {
        for (const auto orientation : orientations) {
            SCOPED_TRACE(format.text() + " " + std::to_string(int(orientation)));
            // Upright or not, it is a picture with chroma in the right places.
            transform.sourceStereoLayout = stereoLayouts[std::size_t(orientation) % stereoLayouts.size()];
            transform.monoStereoEye = StereoEye::right;
            const auto picture = chartSource(transform, format, 64);
            expectParity(picture, {.orientation = orientation}, transform, yCbCr420VideoRange, {96, 64});
        }
        transform.sourceStereoLayout = StereoVideoLayout::mono;
        for (const auto output : {bgra, rgbaHalf, yCbCr420TenBitVideoRange, yCbCr422TenBitVideoRange}) {
            SCOPED_TRACE(format.text() + " to " + output.text());
            // Half floats hold 0.1 of a code of eight bits; a tenth of a code is what the kernel itself may be off.
            expectParity(chartSource(transform, format, 64), {.yCbCrMatrix = VideoYCbCrMatrix::bt601}, transform,
                         output, {96, 64}, VRColorOutputMode::sdr, VRResamplingQuality::final,
                         {.codes = output == rgbaHalf ? 0.3 : 1});
        }
    }
}

TEST_F(ProjectionParity, HoldsForEveryKindOfAlpha) {
    auto transform = transformBetween(ProjectionFormat::halfEquirectangular, ProjectionFormat::equirectangular);
    const auto source = PixelBuffer::make(bgra, 64, 64);
    for (const auto mode : {AlphaMode::opaque, AlphaMode::straight, AlphaMode::premultiplied}) {
        fill(*source, [&](int x, int y) {
            const int alpha = (x / 8 + y / 8) % 3 * 127;
            const int limit = mode == AlphaMode::premultiplied ? alpha : 255;
            return std::array{x * 4 * limit / 255, y * 4 * limit / 255, 200 * limit / 255, alpha};
        });
        SCOPED_TRACE(int(mode));
        expectParity(source, {.alphaMode = mode}, transform, bgra, {96, 48});
        const auto dome = mirrorDomeFrom(ProjectionFormat::halfEquirectangular);
        expectParity(source, {.alphaMode = mode}, dome, bgra, dome.outputResolution);
        // Chroma samples on the rim are divided just there: their parts may be seen on either side of it.
        expectParity(source, {.alphaMode = mode}, transform, yCbCr420VideoRange, {96, 48}, VRColorOutputMode::sdr,
                     VRResamplingQuality::final, {.outliers = 0.001});
    }
}

// --- Colours ---------------------------------------------------------------------------------------------------------

class ColorParity : public ProjectionParity,
                    public testing::WithParamInterface<std::tuple<VideoTransferFunction, VideoColorPrimaries>> {};

TEST_P(ColorParity, HoldsForEveryMatrixAndOutputMode) {
    const auto transform = transformBetween(ProjectionFormat::equirectangular, ProjectionFormat::standard);
    const auto source = chartSource(transform, yCbCr420TenBitVideoRange, 64);
    for (const auto matrix : {VideoYCbCrMatrix::bt601, VideoYCbCrMatrix::bt709, VideoYCbCrMatrix::bt2020}) {
        for (const auto mode : {VRColorOutputMode::sdr, VRColorOutputMode::preserveHDR, VRColorOutputMode::hdrHLG}) {
            SCOPED_TRACE(std::to_string(int(matrix)) + " " + std::to_string(int(mode)));
            const SourcePictureDescription description{.yCbCrMatrix = matrix,
                                                       .colorPrimaries = std::get<1>(GetParam()),
                                                       .transferFunction = std::get<0>(GetParam())};
            expectParity(source, description, transform, yCbCr420TenBitVideoRange, {64, 36}, mode);
            expectParity(source, description, transform, bgra, {64, 36}, mode);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(All, ColorParity,
                         testing::Combine(testing::Values(VideoTransferFunction::bt709, VideoTransferFunction::pq,
                                                          VideoTransferFunction::hlg, VideoTransferFunction::sRGB,
                                                          VideoTransferFunction::linear),
                                          testing::Values(VideoColorPrimaries::bt709, VideoColorPrimaries::bt2020,
                                                          VideoColorPrimaries::p3D65)));

// --- Precision -------------------------------------------------------------------------------------------------------

// The finest detail of a picture as wide as any, at the places where single precision is at its worst: far from the
// middle, at the seam behind the viewer, at a pole and in the depth of a strong reduction.
TEST_F(ProjectionParity, HoldsFarOutInAVeryWidePicture) {
    auto transform = transformBetween(ProjectionFormat::equirectangular, ProjectionFormat::standard);
    transform.fovDegrees = 2;
    const auto source = PixelBuffer::make(yCbCr420VideoRange, 16384, 512);
    for (int plane = 0; plane < 2; ++plane) {
        for (int y = 0; y < source->plane(plane).height; ++y)
            for (int i = 0; i < 16384; ++i)
                setSample(*source, plane, i, y, 60 + ((i * 37 + y * 91) % 11) * 12);
    }
    for (const double yaw : {0.0, 90.0, 179.5})
        for (const double pitch : {0.0, -89.0}) {
            SCOPED_TRACE(std::to_string(yaw) + " " + std::to_string(pitch));
            transform.yawDegrees = yaw;
            transform.pitchDegrees = pitch;
            // On steps of a hundred codes within a pixel, a thousandth of a pixel is a tenth of a code.
            expectParity(source, {}, transform, yCbCr420VideoRange, {128, 72}, VRColorOutputMode::sdr,
                         VRResamplingQuality::final, {.codes = 2});
        }
    transform = transformBetween(ProjectionFormat::equirectangular, ProjectionFormat::equirectangular);
    expectParity(source, {}, transform, yCbCr420VideoRange, {512, 16});
}

} // namespace
} // namespace panoveer
