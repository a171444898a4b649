#include "Panoveer/Rendering/Projection/PictureTesting.h"
#include "Panoveer/Rendering/Projection/ScalarProjectionReference.h"
#include "Panoveer/Rendering/Projection/VRMetalProjectionError.h"
#include "Panoveer/Rendering/Projection/VRMetalProjectionRenderer.h"
#include "Platform/Core/Localization.h"
#include "Platform/GPU/GPUCommandBuffer.h"
#include "Platform/GPU/GPUDevice.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <numbers>

namespace panoveer {

namespace {

namespace fs = std::filesystem;
using namespace pixelFormat;
using Case = VRMetalProjectionError::Case;

// --- The records ---------------------------------------------------------------------------------------------------

TEST(VRProjectionUniforms, CarriesTheTransformInTheKernelsUnitsAndCodes) {
    VRTransform transform;
    transform.sourceFormat = ProjectionFormat::halfEquirectangular;
    transform.outputFormat = ProjectionFormat::eac;
    transform.sourceStereoLayout = StereoVideoLayout::sideBySide;
    transform.outputStereoLayout = StereoVideoLayout::overUnder;
    transform.sourceEyesSwapped = true;
    transform.monoStereoEye = StereoEye::right;
    transform.fovDegrees = 90;
    transform.yawDegrees = -180;
    transform.pitchDegrees = 45;
    transform.rollDegrees = 30;
    transform.domemasterThetaDegrees = 360;
    transform.standardDistance = 2.5;
    transform.fisheyeCircle = FisheyeCircle{.centerX = 0.25, .centerY = 0.75, .radius = 0.4};
    const SourcePictureDescription description{.yCbCrMatrix = VideoYCbCrMatrix::bt601,
                                               .colorPrimaries = VideoColorPrimaries::p3D65,
                                               .transferFunction = VideoTransferFunction::sRGB,
                                               .orientation = SourceVideoOrientation::left,
                                               .alphaMode = AlphaMode::premultiplied};
    const auto frame = VRSourceFrame::describing(yCbCr420TenBitFullRange, description);
    ASSERT_TRUE(frame);
    const auto made = makeProjectionUniforms(*frame, uprightSize({1000, 2000}, frame->sourceOrientation), transform,
                                             {.outputSize = {640, 480},
                                              .outputBitDepth = VRYCbCrOutputBitDepth::ten,
                                              .colorOutputMode = VRColorOutputMode::hdrHLG,
                                              .resampling = VRResamplingQuality::interactive,
                                              .compositingBackground = VRCompositingBackground::preview,
                                              .transparentUnmappedAreas = true});
    const auto pi = std::numbers::pi_v<float>;
    const VRProjectionUniforms expected{.outputSize = {640, 480},
                                        .sourceSize = {2000, 1000},
                                        .sourceFormat = 6,
                                        .outputFormat = 5,
                                        .textureLayout = 4,
                                        .yCbCrMatrix = 1,
                                        .colorPrimaries = 2,
                                        .transferFunction = 3,
                                        .sourceOrientation = 3,
                                        .colorOutputMode = 2,
                                        .outputYCbCrMatrix = 2,
                                        .fovRadians = pi / 2,
                                        .yawRadians = -pi,
                                        .pitchRadians = pi / 4,
                                        .rollRadians = pi / 6,
                                        .domemasterThetaRadians = 2 * pi,
                                        .standardDistance = 2.5f,
                                        .transparentUnmappedAreas = 1,
                                        .sourceStereoLayout = 1,
                                        .outputStereoLayout = 2,
                                        .monoStereoEye = 1,
                                        .outputBitDepth = 10,
                                        .alphaMode = 2,
                                        .compositingBackground = 1,
                                        .fisheyeCenter = {0.25f, 0.75f},
                                        .fisheyeRadius = {0.4f, 0.4f},
                                        .sourceEyesSwapped = 1,
                                        .resamplingTaps = 2};
    EXPECT_EQ(made, expected);
}

TEST(VRMirrorDomeUniforms, AreThoseOfAProjectionWithTheShapeOfTheMesh) {
    VRTransform transform;
    transform.sourceFormat = ProjectionFormat::domemaster;
    transform.outputFormat = ProjectionFormat::mirrorDome;
    transform.sourceStereoLayout = StereoVideoLayout::overUnder;
    transform.sourceEyesSwapped = true;
    transform.monoStereoEye = StereoEye::right;
    transform.fovDegrees = 180;
    transform.yawDegrees = 90;
    transform.pitchDegrees = -45;
    transform.rollDegrees = 30;
    transform.domemasterThetaDegrees = 270;
    transform.standardDistance = 2.5;
    transform.fisheyeCircle = FisheyeCircle{.centerX = 0.25, .centerY = 0.75, .radius = 0.4};
    const auto frame =
        VRSourceFrame::describing(yCbCr420TenBitVideoRange, {.yCbCrMatrix = VideoYCbCrMatrix::bt601,
                                                             .colorPrimaries = VideoColorPrimaries::p3D65,
                                                             .transferFunction = VideoTransferFunction::hlg,
                                                             .orientation = SourceVideoOrientation::down});
    ASSERT_TRUE(frame);
    const auto made = makeMirrorDomeUniforms(*frame, {1000, 2000}, transform,
                                             {.colorOutputMode = VRColorOutputMode::preserveHDR,
                                              .resampling = VRResamplingQuality::interactive,
                                              .transparentUnmappedAreas = true},
                                             1.6f);
    const auto pi = std::numbers::pi_v<float>;
    const VRMirrorDomeUniforms expected{.aspectRatio = 1.6f,
                                        .sourceFormat = 2,
                                        .textureLayout = 3,
                                        .yCbCrMatrix = 1,
                                        .colorPrimaries = 2,
                                        .transferFunction = 2,
                                        .sourceOrientation = 2,
                                        .colorOutputMode = 1,
                                        .standardDistance = 2.5f,
                                        .padding = {0, 0, 0},
                                        .fovRadians = pi,
                                        .yawRadians = pi / 2,
                                        .pitchRadians = -pi / 4,
                                        .rollRadians = pi / 6,
                                        .sourceSize = {1000, 2000},
                                        .transparentUnmappedAreas = 1,
                                        .domemasterThetaRadians = 1.5f * pi,
                                        .sourceStereoLayout = 2,
                                        .monoStereoEye = 1,
                                        .fisheyeCenter = {0.25f, 0.75f},
                                        .fisheyeRadius = {0.4f, 0.4f},
                                        .sourceEyesSwapped = 1,
                                        .resamplingTaps = 2};
    EXPECT_EQ(made, expected);
}

TEST(VRProjectionUniforms, KnowsFormatsAndOutputMatricesByTheirCodes) {
    const std::pair<ProjectionFormat, std::uint32_t> codes[] = {{ProjectionFormat::standard, 0},
                                                                {ProjectionFormat::equirectangular, 1},
                                                                {ProjectionFormat::halfEquirectangular, 6},
                                                                {ProjectionFormat::domemaster, 2},
                                                                {ProjectionFormat::cubemap, 3},
                                                                {ProjectionFormat::eac, 5},
                                                                {ProjectionFormat::mirrorDome, 4}};
    for (const auto& [format, code] : codes)
        EXPECT_EQ(kernelFormatCode(format), code);
    EXPECT_EQ(outputYCbCrMatrix(VRColorOutputMode::sdr), VRSourceFrame::YCbCrMatrix::ituR709);
    EXPECT_EQ(outputYCbCrMatrix(VRColorOutputMode::preserveHDR), VRSourceFrame::YCbCrMatrix::ituR2020);
    EXPECT_EQ(outputYCbCrMatrix(VRColorOutputMode::hdrHLG), VRSourceFrame::YCbCrMatrix::ituR2020);
    EXPECT_EQ(resamplingTapCount(VRResamplingQuality::final), 8u);
}

TEST(VRSourceFrame, TakesItsLayoutFromTheFormatOfThePicture) {
    using Layout = VRSourceFrame::TextureLayout;
    const std::pair<FourCC, Layout> layouts[] = {{bgra, Layout::bgra},
                                                 {yCbCr420VideoRange, Layout::yCbCrVideoRange},
                                                 {yCbCr420FullRange, Layout::yCbCrFullRange},
                                                 {yCbCr420TenBitVideoRange, Layout::yCbCr10BitVideoRange},
                                                 {yCbCr422TenBitVideoRange, Layout::yCbCr10BitVideoRange},
                                                 {yCbCr444TenBitVideoRange, Layout::yCbCr10BitVideoRange},
                                                 {yCbCr420TenBitFullRange, Layout::yCbCr10BitFullRange}};
    for (const auto& [format, layout] : layouts) {
        const auto frame = VRSourceFrame::describing(format, {});
        ASSERT_TRUE(frame) << format.text();
        EXPECT_EQ(rawValue(frame->textureLayout), rawValue(layout)) << format.text();
    }
    EXPECT_FALSE(VRSourceFrame::describing(rgbaHalf, {}));
    EXPECT_FALSE(VRSourceFrame::describing(FourCC("none"), {}));
}

TEST(VRMetalProjectionError, SaysWhatIsWrongWithItsStatus) {
    setLanguage("en");
    for (const auto which : {Case::textureCacheUnavailable, Case::textureCreationFailed, Case::commandQueueUnavailable,
                             Case::commandBufferUnavailable, Case::functionUnavailable, Case::libraryUnavailable}) {
        const std::string text = VRMetalProjectionError(which, -6660).what();
        EXPECT_FALSE(text.starts_with("error.")) << text;
        const bool carriesStatus = which == Case::textureCacheUnavailable || which == Case::textureCreationFailed;
        EXPECT_EQ(text.find("-6660") != text.npos, carriesStatus) << text;
    }
}

// --- Pictures --------------------------------------------------------------------------------------------------------

float floatFromHalf(std::uint16_t half) {
    const int exponent = half >> 10 & 31;
    const float mantissa = float(half & 1023) / 1024;
    const float magnitude = exponent == 0 ? std::ldexp(mantissa, -14) : std::ldexp(1 + mantissa, exponent - 15);
    return half & 0x8000 ? -magnitude : magnitude;
}

// The samples of a plane as codes of 8 or 10 bits; those of a half-float plane times 255.
std::vector<float> samples(const PixelBuffer& picture, int planeIndex) {
    const auto& plane = picture.plane(planeIndex);
    const auto& layout = picture.layout();
    const int count = plane.width * (planeIndex == 0 ? layout.samplesPerPixel : 2);
    std::vector<float> values;
    for (int y = 0; y < plane.height; ++y)
        for (int i = 0; i < count; ++i) {
            const auto* row = plane.data + std::size_t(y) * plane.rowBytes;
            if (layout.bytesPerSample == 1) {
                values.push_back(float(row[i]));
                continue;
            }
            std::uint16_t word;
            std::memcpy(&word, row + i * 2, sizeof word);
            values.push_back(layout.isYCbCr() ? float(word >> 6) : floatFromHalf(word) * 255);
        }
    return values;
}

// Waves in every channel, each of its own direction, so that exchanged planes, channels or rows show.
PixelBufferPtr makeChart(FourCC format, int width, int height) {
    auto picture = PixelBuffer::make(format, width, height);
    const auto& layout = picture->layout();
    for (int p = 0; p < picture->planeCount(); ++p) {
        const auto& plane = picture->plane(p);
        const int channels = p == 0 ? layout.samplesPerPixel : 2;
        for (int y = 0; y < plane.height; ++y)
            for (int x = 0; x < plane.width; ++x)
                for (int c = 0; c < channels; ++c) {
                    const double u = (x + 0.5) / plane.width;
                    const double v = (y + 0.5) / plane.height;
                    const double wave = std::sin(2 * std::numbers::pi * (u * (1 + c + p) + v * (c == 1 ? 0.7 : 0.3)));
                    const bool isAlpha = c == 3;
                    const double value = isAlpha ? 1 : (p == 0 ? 0.5 + 0.3 * wave : 0.5 + 0.1 * wave);
                    auto* row = plane.data + std::size_t(y) * plane.rowBytes;
                    if (layout.bytesPerSample == 1) {
                        row[x * channels + c] = std::byte(std::lround(value * 255));
                    } else {
                        const auto word = std::uint16_t(std::lround(value * 1023) << 6);
                        std::memcpy(row + (x * channels + c) * 2, &word, sizeof word);
                    }
                }
    }
    return picture;
}

void expectNear(const PixelBuffer& actual, const PixelBuffer& expected, double tolerance) {
    for (int p = 0; p < actual.planeCount(); ++p) {
        const auto left = samples(actual, p);
        const auto right = samples(expected, p);
        ASSERT_EQ(left.size(), right.size());
        double worst = 0;
        double sum = 0;
        for (std::size_t i = 0; i < left.size(); ++i) {
            worst = std::max(worst, std::abs(double(left[i]) - double(right[i])));
            sum += std::abs(double(left[i]) - double(right[i]));
        }
        EXPECT_LE(worst, tolerance) << "plane " << p;
        EXPECT_LE(sum / double(left.size()), tolerance / 4) << "plane " << p;
    }
}

VRTransform equirectangularView() {
    VRTransform transform;
    transform.sourceFormat = ProjectionFormat::equirectangular;
    transform.outputFormat = ProjectionFormat::standard;
    transform.fovDegrees = 100;
    transform.yawDegrees = 30;
    transform.pitchDegrees = -10;
    return transform;
}

class VRMetalProjectionRendererTest : public testing::Test {
protected:
    // One for all tests. It goes before main() ends: drivers do not outlive it.
    static std::unique_ptr<VRMetalProjectionRenderer>& shared() {
        static std::unique_ptr<VRMetalProjectionRenderer> renderer;
        return renderer;
    }
    static void SetUpTestSuite() { shared() = std::make_unique<VRMetalProjectionRenderer>(GPUDevice::make()); }
    static void TearDownTestSuite() { shared().reset(); }
    void TearDown() override { EXPECT_EQ(renderer_.device()->validationMessageCount(), 0u); }

    std::unique_ptr<PendingRender> start(const PixelBufferPtr& source, const PixelBufferPtr& output,
                                         const VRTransform& transform = equirectangularView(),
                                         const SourcePictureDescription& description = {},
                                         VRColorOutputMode mode = VRColorOutputMode::sdr) {
        return renderer_.render(source, description, transform, output, mode, VRResamplingQuality::final, false);
    }

    PixelBufferPtr reference(const PixelBufferPtr& source, FourCC format, int width, int height,
                             const VRTransform& transform = equirectangularView(),
                             const SourcePictureDescription& description = {},
                             VRColorOutputMode mode = VRColorOutputMode::sdr) {
        auto output = PixelBuffer::make(format, width, height);
        ScalarProjectionReference::renderPicture(*source, description, transform, *output, {.colorOutputMode = mode});
        return output;
    }

    Case failureOf(const PixelBufferPtr& source, const PixelBufferPtr& output, std::int32_t& status) {
        try {
            start(source, output);
        } catch (const VRMetalProjectionError& error) {
            status = error.status();
            return error.which();
        }
        ADD_FAILURE() << "nothing was thrown";
        return {};
    }

    VRMetalProjectionRenderer& renderer_ = *shared();
};

TEST_F(VRMetalProjectionRendererTest, PassesEverySourceLayoutToTheKernels) {
    for (const auto format : {bgra, yCbCr420VideoRange, yCbCr420FullRange, yCbCr420TenBitVideoRange,
                              yCbCr420TenBitFullRange, yCbCr422TenBitVideoRange, yCbCr444TenBitVideoRange}) {
        SCOPED_TRACE(format.text());
        const auto source = makeChart(format, 128, 64);
        const auto output = PixelBuffer::make(bgra, 66, 35);
        start(source, output)->wait();
        expectNear(*output, *reference(source, bgra, 66, 35), 2);
    }
}

TEST_F(VRMetalProjectionRendererTest, WritesEveryOutputFormat) {
    const auto source = makeChart(yCbCr420VideoRange, 128, 64);
    for (const auto format : {bgra, rgbaHalf, yCbCr420VideoRange, yCbCr420TenBitVideoRange, yCbCr422TenBitVideoRange}) {
        SCOPED_TRACE(format.text());
        const auto output = PixelBuffer::make(format, 67, 35);
        start(source, output)->wait();
        expectNear(*output, *reference(source, format, 67, 35), output->layout().bytesPerSample == 2 ? 4 : 2);
    }
}

TEST_F(VRMetalProjectionRendererTest, CarriesOrientationAndColorsOfTheSource) {
    const SourcePictureDescription description{.yCbCrMatrix = VideoYCbCrMatrix::bt2020,
                                               .colorPrimaries = VideoColorPrimaries::bt2020,
                                               .transferFunction = VideoTransferFunction::pq,
                                               .orientation = SourceVideoOrientation::right};
    const auto source = makeChart(yCbCr420TenBitVideoRange, 64, 128);
    for (const auto mode : {VRColorOutputMode::sdr, VRColorOutputMode::preserveHDR, VRColorOutputMode::hdrHLG}) {
        SCOPED_TRACE(int(mode));
        const auto output = PixelBuffer::make(yCbCr420TenBitVideoRange, 64, 36);
        start(source, output, equirectangularView(), description, mode)->wait();
        expectNear(*output,
                   *reference(source, yCbCr420TenBitVideoRange, 64, 36, equirectangularView(), description, mode), 6);
    }
}

TEST_F(VRMetalProjectionRendererTest, KeepsSeveralPicturesInFlight) {
    std::vector<PixelBufferPtr> outputs;
    std::vector<std::unique_ptr<PendingRender>> pending;
    const auto source = makeChart(bgra, 128, 64);
    for (int i = 0; i < 8; ++i) {
        auto transform = equirectangularView();
        transform.yawDegrees = i * 40 - 180;
        outputs.push_back(PixelBuffer::make(yCbCr420VideoRange, 64, 64));
        // The source is taken when the picture is started: what becomes of it later changes nothing.
        const auto passing = makeChart(bgra, 128, 64);
        pending.push_back(start(passing, outputs.back(), transform));
        std::memset(passing->plane(0).data, 0, passing->plane(0).rowBytes * 64);
    }
    pending.erase(pending.begin() + 3); // dropped without waiting
    for (auto& render : pending)
        render->wait();
    for (const int i : {0, 1, 2, 4, 5, 6, 7}) {
        SCOPED_TRACE(i);
        auto transform = equirectangularView();
        transform.yawDegrees = i * 40 - 180;
        expectNear(*outputs[std::size_t(i)], *reference(source, yCbCr420VideoRange, 64, 64, transform), 2);
    }
}

TEST_F(VRMetalProjectionRendererTest, ConvertsAProjectedPictureByTheRulesOfAProjectedOne) {
    const auto projected = makeChart(bgra, 65, 34);
    for (const auto depth : {VRYCbCrOutputBitDepth::eight, VRYCbCrOutputBitDepth::ten}) {
        const bool isTenBit = depth == VRYCbCrOutputBitDepth::ten;
        const auto output = PixelBuffer::make(isTenBit ? yCbCr420TenBitVideoRange : yCbCr420VideoRange, 65, 34);
        auto expected = PixelBuffer::make(output->format(), 65, 34);
        ScalarProjectionReference::convertToYCbCr(*projected, *expected, VideoYCbCrMatrix::bt709);

        auto& bridge = renderer_.textureBridge();
        const auto commands = renderer_.makeCommandBuffer();
        const auto input = bridge.sourceTexture(*projected, GPUPixelFormat::bgra8Unorm, 0, *commands);
        const auto luma =
            bridge.outputTexture(*output, isTenBit ? GPUPixelFormat::r16Unorm : GPUPixelFormat::r8Unorm, 0, *commands);
        const auto chroma = bridge.outputTexture(
            *output, isTenBit ? GPUPixelFormat::rg16Unorm : GPUPixelFormat::rg8Unorm, 1, *commands);
        renderer_.convertToYCbCr(input, luma, chroma, depth, VRColorOutputMode::sdr, *commands);
        commands->commit();
        commands->waitUntilCompleted();
        ASSERT_FALSE(commands->error());
        expectNear(*output, *expected, 1);
    }
}

TEST_F(VRMetalProjectionRendererTest, LeavesTheCallersCommandBufferOpenAndRunsItsOwn) {
    const auto source = makeChart(yCbCr420VideoRange, 128, 64);
    const auto output = PixelBuffer::make(yCbCr420VideoRange, 64, 32);
    const auto expected = reference(source, yCbCr420VideoRange, 64, 32);
    auto& bridge = renderer_.textureBridge();

    const auto uploads = renderer_.makeCommandBuffer();
    const auto frame = bridge.sourceFrame(*source, {}, *uploads);
    uploads->commit();
    uploads->waitUntilCompleted();
    const auto device = renderer_.device();
    const auto luma = GPUTexture::make(device, GPUPixelFormat::r8Unorm, 64, 32, GPUTextureUsage::shaderWrite);
    const auto chroma = GPUTexture::make(device, GPUPixelFormat::rg8Unorm, 32, 16, GPUTextureUsage::shaderWrite);
    renderer_.renderYCbCr(frame, luma, chroma, VRYCbCrOutputBitDepth::eight, equirectangularView(),
                          VRColorOutputMode::sdr);
    const auto commands = renderer_.makeCommandBuffer();
    commands->download(luma, output->plane(0).data, output->plane(0).rowBytes);
    commands->download(chroma, output->plane(1).data, output->plane(1).rowBytes);
    commands->commit();
    commands->waitUntilCompleted();
    expectNear(*output, *expected, 2);

    const auto open = renderer_.makeCommandBuffer();
    renderer_.renderYCbCr(frame, luma, chroma, VRYCbCrOutputBitDepth::eight, equirectangularView(),
                          VRColorOutputMode::sdr, open.get());
    EXPECT_NO_THROW(open->commit());
    open->waitUntilCompleted();
    EXPECT_FALSE(open->error());
}

TEST_F(VRMetalProjectionRendererTest, ShowsTheLumaPlaneWhereAFrameHasNoChroma) {
    const auto source = makeChart(yCbCr420VideoRange, 128, 64);
    const auto output = PixelBuffer::make(bgra, 64, 32);
    const auto commands = renderer_.makeCommandBuffer();
    auto frame = renderer_.textureBridge().sourceFrame(*source, {}, *commands);
    frame.chromaTexture = nullptr;
    EXPECT_EQ(frame.chromaOrPrimary(), frame.primaryTexture);
    renderer_.renderColor(frame,
                          renderer_.textureBridge().outputTexture(*output, GPUPixelFormat::bgra8Unorm, 0, *commands),
                          equirectangularView(), {}, *commands);
    commands->commit();
    commands->waitUntilCompleted();
    EXPECT_FALSE(commands->error());
}

TEST_F(VRMetalProjectionRendererTest, TellsWhatItCannotRender) {
    const auto picture = makeChart(bgra, 64, 32);
    std::int32_t status = 0;
    for (const auto format : {yCbCr420FullRange, yCbCr420TenBitFullRange, yCbCr444TenBitVideoRange}) {
        EXPECT_EQ(failureOf(picture, PixelBuffer::make(format, 64, 32), status), Case::textureCreationFailed);
        EXPECT_EQ(status, VRMetalProjectionError::invalidPixelFormatStatus) << format.text();
    }
    EXPECT_EQ(failureOf(PixelBuffer::make(rgbaHalf, 64, 32), picture, status), Case::textureCreationFailed);
    EXPECT_EQ(status, VRMetalProjectionError::invalidPixelFormatStatus);
    EXPECT_EQ(failureOf(picture, PixelBuffer::make(bgra, 65536, 2), status), Case::textureCreationFailed);
    EXPECT_LT(status, 0);
}

// A resource folder of its own, in place of the program's.
class ResourceFolder {
public:
    ResourceFolder() : folder_(fs::temp_directory_path() / ("panoveer-resources-" + std::to_string(getpid()))) {
        fs::remove_all(folder_);
        fs::create_directories(folder_);
        fs::current_path(folder_);
        setenv("PANOVEER_RESOURCES", folder_.c_str(), 1);
    }
    ~ResourceFolder() {
        unsetenv("PANOVEER_RESOURCES");
        fs::current_path(before_);
        fs::remove_all(folder_);
    }
    void write(const std::string& text) const { std::ofstream(folder_ / "VRProjectionShaders.glsl") << text; }

private:
    fs::path before_ = fs::current_path();
    fs::path folder_;
};

TEST_F(VRMetalProjectionRendererTest, NeedsItsKernels) {
    const ResourceFolder resources;
    const auto creationFailure = [&]() -> std::optional<Case> {
        try {
            VRMetalProjectionRenderer renderer(renderer_.device());
        } catch (const VRMetalProjectionError& error) {
            return error.which();
        }
        return std::nullopt;
    };
    EXPECT_EQ(creationFailure(), Case::libraryUnavailable);
    resources.write("#version 450\n#if defined(KERNEL_vrProjectFrame)\nvoid main() {}\n#endif\n");
    EXPECT_EQ(creationFailure(), Case::functionUnavailable);
    resources.write("#version 450\n#if defined(KERNEL_vrProjectFrame)\nvoid main() { this is no GLSL }\n#endif\n");
    EXPECT_THROW(creationFailure(), Error);
}

TEST_F(VRMetalProjectionRendererTest, LaysTransparentPicturesOnTheCheckerboard) {
    const auto transform = transformBetween(ProjectionFormat::halfEquirectangular, ProjectionFormat::equirectangular);
    const auto source = PixelBuffer::make(bgra, 64, 64);
    fill(*source, [](int x, int y) { return std::array{x * 4, y * 4, 90, 64 + x * 2}; });
    for (const auto mode : {AlphaMode::straight, AlphaMode::premultiplied}) {
        const auto actual = PixelBuffer::make(bgra, 96, 48);
        const auto expected = PixelBuffer::make(bgra, 96, 48);
        const auto commands = renderer_.makeCommandBuffer();
        const auto frame = renderer_.textureBridge().sourceFrame(*source, {.alphaMode = mode}, *commands);
        renderer_.renderColor(
            frame, renderer_.textureBridge().outputTexture(*actual, GPUPixelFormat::bgra8Unorm, 0, *commands),
            transform, {.compositingBackground = VRCompositingBackground::preview, .transparentUnmappedAreas = true},
            *commands);
        commands->commit();
        commands->waitUntilCompleted();
        ScalarProjectionReference::renderPicture(*source, {.alphaMode = mode}, transform, *expected,
                                                 {.transparentUnmappedAreas = true, .hasCheckerboard = true});
        EXPECT_LE(differenceBetween(*actual, *expected, 1).outlierShare, 0.0002) << int(mode);
    }
}

} // namespace

} // namespace panoveer
