#include "Panoveer/Rendering/Projection/CPUProjectionRenderer.h"
#include "Panoveer/Rendering/Projection/MirrorDomeWarpMeshError.h"
#include "Panoveer/Rendering/Projection/PictureTesting.h"
#include "Panoveer/Rendering/Projection/ScalarProjectionReference.h"
#include "Panoveer/Rendering/Projection/SphericalTestChart.h"
#include "Panoveer/Rendering/Projection/VRMetalProjectionRenderer.h"
#include "Platform/GPU/GPUCommandBuffer.h"
#include "Platform/GPU/GPUDevice.h"
#include "Platform/GPU/VulkanDevice.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <memory>

// Pictures of mirror domes beyond what all engines have in common.
namespace panoveer {

namespace {

namespace fs = std::filesystem;
using namespace pixelFormat;

VRTransform mirrorDome(ProjectionFormat source) {
    auto transform = transformBetween(source, ProjectionFormat::mirrorDome);
    transform.outputResolution = {192, 108};
    transform.yawDegrees = 20;
    transform.pitchDegrees = -35;
    transform.rollDegrees = 10;
    if (source == ProjectionFormat::domemaster)
        transform.domemasterThetaDegrees = 200;
    return transform;
}

PixelBufferPtr chartSource(const VRTransform& transform, FourCC format) {
    const auto size = frameSize(transform.sourceFormat, transform.sourceStereoLayout, 128);
    auto source = PixelBuffer::make(format, int(size.width), int(size.height));
    paintAsSource(SphericalTestChart{.seconds = 2, .softness = 0.02}, transform, *source);
    return source;
}

class MirrorDomeRender : public testing::Test {
protected:
    static std::unique_ptr<VRMetalProjectionRenderer>& shared() {
        static std::unique_ptr<VRMetalProjectionRenderer> renderer;
        return renderer;
    }
    static void SetUpTestSuite() { shared() = std::make_unique<VRMetalProjectionRenderer>(GPUDevice::make()); }
    static void TearDownTestSuite() { shared().reset(); }
    void TearDown() override { EXPECT_EQ(shared()->device()->validationMessageCount(), 0u); }
    static PixelBufferPtr rendered(ProjectionRenderer& renderer, const PixelBufferPtr& source,
                                   const SourcePictureDescription& description, const VRTransform& transform,
                                   FourCC format, VRColorOutputMode mode = VRColorOutputMode::sdr) {
        auto output = PixelBuffer::make(format, 192, 108);
        renderer.render(source, description, transform, output, mode, VRResamplingQuality::final, false)->wait();
        return output;
    }
};

// On the GPU, Y'CbCr is made of the colours that the mesh was drawn with.
TEST_F(MirrorDomeRender, BecomesYCbCrAsAProjectedPictureDoes) {
    ScalarProjectionReference reference;
    const auto transform = mirrorDome(ProjectionFormat::equirectangular);
    const auto source = chartSource(transform, yCbCr420VideoRange);
    const auto colors = rendered(reference, source, {}, transform, bgra);
    const auto expected = PixelBuffer::make(yCbCr420VideoRange, 192, 108);
    ScalarProjectionReference::convertToYCbCr(*colors, *expected, VideoYCbCrMatrix::bt709);
    const auto actual = rendered(*shared(), source, {}, transform, yCbCr420VideoRange);
    EXPECT_LE(differenceBetween(*actual, *expected, 1.001).outlierShare, 0.0002);
}

// Eight bits anywhere on the way would leave three of four codes of ten bits unused, and an error of two.
TEST_F(MirrorDomeRender, KeepsTenBitsOnItsWay) {
    ScalarProjectionReference reference;
    const auto transform = mirrorDome(ProjectionFormat::equirectangular);
    const SourcePictureDescription pq{.yCbCrMatrix = VideoYCbCrMatrix::bt2020,
                                      .colorPrimaries = VideoColorPrimaries::bt2020,
                                      .transferFunction = VideoTransferFunction::pq};
    const auto source = chartSource(transform, yCbCr420TenBitVideoRange);
    for (const auto format : {yCbCr420TenBitVideoRange, yCbCr422TenBitVideoRange}) {
        for (const auto mode : {VRColorOutputMode::sdr, VRColorOutputMode::preserveHDR, VRColorOutputMode::hdrHLG}) {
            SCOPED_TRACE(format.text() + " " + std::to_string(int(mode)));
            const auto luma = samplesOf(*rendered(*shared(), source, pq, transform, format, mode), 0);
            const auto expected = samplesOf(*rendered(reference, source, pq, transform, format, mode), 0);
            double sum = 0;
            for (std::size_t i = 0; i < luma.size(); ++i)
                sum += std::abs(luma[i] - expected[i]);
            EXPECT_LT(sum / double(luma.size()), 0.5);
        }
    }
}

// On the processor, luma and chroma are dimmed each for itself. See CPUParityEngines for the tolerances.
TEST_F(MirrorDomeRender, IsDrawnOnTheProcessorInEveryFormatToo) {
    ScalarProjectionReference reference;
    CPUProjectionRenderer processor({.threads = 2});
    const auto transform = mirrorDome(ProjectionFormat::equirectangular);
    for (const auto input : {bgra, yCbCr420VideoRange, yCbCr420TenBitVideoRange}) {
        const auto source = chartSource(transform, input);
        for (const auto output : {bgra, rgbaHalf, yCbCr420VideoRange, yCbCr420TenBitVideoRange}) {
            SCOPED_TRACE(input.text() + " to " + output.text());
            const auto actual = rendered(processor, source, {}, transform, output);
            const auto expected = rendered(reference, source, {}, transform, output);
            EXPECT_LE(
                differenceBetween(*actual, *expected, output == yCbCr420TenBitVideoRange ? 8.001 : 3.001).outlierShare,
                0.0002);
        }
    }
}

TEST_F(MirrorDomeRender, ShowsWhatLiesBehindIt) {
    auto transform = mirrorDome(ProjectionFormat::halfEquirectangular);
    const auto source = PixelBuffer::make(bgra, 64, 64);
    fill(*source, [](int x, int y) { return std::array{x * 4, y * 4, 200, 80 + (x + y) % 64 * 2}; });
    const auto actual = PixelBuffer::make(bgra, 192, 108);
    const auto expected = PixelBuffer::make(bgra, 192, 108);
    auto& renderer = *shared();
    const auto commands = renderer.makeCommandBuffer();
    const auto frame = renderer.textureBridge().sourceFrame(*source, {.alphaMode = AlphaMode::straight}, *commands);
    renderer.renderMirrorDome(
        frame, renderer.textureBridge().outputTexture(*actual, GPUPixelFormat::bgra8Unorm, 0, *commands), transform,
        true, VRCompositingBackground::preview, VRColorOutputMode::sdr, VRResamplingQuality::final, commands.get());
    commands->commit();
    commands->waitUntilCompleted();
    ScalarProjectionReference::renderPicture(*source, {.alphaMode = AlphaMode::straight}, transform, *expected,
                                             {.transparentUnmappedAreas = true, .hasCheckerboard = true});
    // The picture is rounded once before it is laid on the checkerboard.
    EXPECT_LE(differenceBetween(*actual, *expected, 2.001).outlierShare, 0.0002);
}

TEST_F(MirrorDomeRender, LeavesOpaqueBlackOrNothingWhereTheMeshHasNoCells) {
    const auto transform = mirrorDome(ProjectionFormat::equirectangular);
    const auto source = chartSource(transform, bgra);
    const auto output = PixelBuffer::make(bgra, 192, 108);
    for (const bool isTransparent : {false, true}) {
        shared()
            ->render(source, {}, transform, output, VRColorOutputMode::sdr, VRResamplingQuality::final, isTransparent)
            ->wait();
        EXPECT_EQ(samplesOf(*output, 0)[3], isTransparent ? 0 : 255) << "the corner";
        EXPECT_EQ(samplesOf(*output, 0)[0], 0);
        EXPECT_EQ(samplesOf(*output, 0)[(70 * 192 + 96) * 4 + 3], 255) << "the dome";
    }
}

// --- Meshes ----------------------------------------------------------------------------------------------------------

class MeshFolder {
public:
    MeshFolder() { fs::create_directories(path_); }
    ~MeshFolder() { fs::remove_all(path_); }

    // One cell over the whole frame that shows the middle of the dome at this intensity.
    URL write(const std::string& name, double intensity) const {
        std::ofstream file(path_ / name);
        file << "2\n2 2\n";
        for (const char* node : {"1.6 1 0.4 0.6", "-1.6 1 0.6 0.6", "1.6 -1 0.4 0.4", "-1.6 -1 0.6 0.4"})
            file << node << ' ' << intensity << '\n';
        return URL::fromFilePath(path_ / name);
    }

private:
    fs::path path_ = fs::temp_directory_path() / ("panoveer-dome-meshes-" + std::to_string(getpid()));
};

TEST_F(MirrorDomeRender, TakesTheMeshThatTheTransformNamesAndKeepsIt) {
    const MeshFolder meshes;
    auto transform = mirrorDome(ProjectionFormat::equirectangular);
    const auto white = PixelBuffer::make(bgra, 64, 32);
    fill(*white, [](int, int) { return std::array{255, 255, 255, 255}; });
    const auto output = PixelBuffer::make(bgra, 192, 108);
    const auto corner = [&] {
        shared()
            ->render(white, {}, transform, output, VRColorOutputMode::sdr, VRResamplingQuality::interactive, true)
            ->wait();
        return samplesOf(*output, 0)[0];
    };
    EXPECT_EQ(corner(), 0) << "the standard mesh leaves it free";
    transform.mirrorDomeWarpMeshURL = meshes.write("half.data", 0.4);
    EXPECT_EQ(corner(), 102);
    meshes.write("half.data", 0.8);
    EXPECT_EQ(corner(), 102) << "a running renderer does not read it again";
    transform.mirrorDomeWarpMeshURL = meshes.write("bright.data", 3);
    EXPECT_EQ(corner(), 255);
    transform.mirrorDomeWarpMeshURL = URL::fromFilePath("/nowhere/mesh.data");
    EXPECT_THROW(corner(), MirrorDomeWarpMeshError);
    EXPECT_THROW(ScalarProjectionReference().render(white, {}, transform, output, VRColorOutputMode::sdr,
                                                    VRResamplingQuality::interactive, true),
                 MirrorDomeWarpMeshError);
}

TEST_F(MirrorDomeRender, RunsOnItsOwnCommandsWhenItIsGivenNone) {
    const auto transform = mirrorDome(ProjectionFormat::equirectangular);
    const auto source = chartSource(transform, bgra);
    auto& renderer = *shared();
    const auto uploads = renderer.makeCommandBuffer();
    const auto frame = renderer.textureBridge().sourceFrame(*source, {}, *uploads);
    uploads->commit();
    uploads->waitUntilCompleted();
    const auto target =
        GPUTexture::make(renderer.device(), GPUPixelFormat::bgra8Unorm, 192, 108, GPUTextureUsage::shaderWrite);
    renderer.renderMirrorDome(frame, target, transform);
    const auto actual = PixelBuffer::make(bgra, 192, 108);
    const auto downloads = renderer.makeCommandBuffer();
    downloads->download(target, actual->plane(0).data, actual->plane(0).rowBytes);
    downloads->commit();
    downloads->waitUntilCompleted();
    const auto expected = PixelBuffer::make(bgra, 192, 108);
    ScalarProjectionReference::renderPicture(*source, {}, transform, *expected, {});
    EXPECT_LE(differenceBetween(*actual, *expected, 1.001).outlierShare, 0.0002);
}

TEST(MirrorDomeOnADeviceThatOnlyComputes, IsRefusedWhileAllElseWorks) {
    const auto device = GPUDevice::make();
    device->vulkan().forbidDrawing();
    VRMetalProjectionRenderer renderer(device);
    auto transform = mirrorDome(ProjectionFormat::equirectangular);
    const auto source = chartSource(transform, bgra);
    const auto output = PixelBuffer::make(bgra, 192, 108);
    const auto render = [&] {
        renderer.render(source, {}, transform, output, VRColorOutputMode::sdr, VRResamplingQuality::final, false)
            ->wait();
    };
    EXPECT_THROW(render(), Error);
    transform.outputFormat = ProjectionFormat::domemaster;
    EXPECT_NO_THROW(render());
}

} // namespace
} // namespace panoveer
