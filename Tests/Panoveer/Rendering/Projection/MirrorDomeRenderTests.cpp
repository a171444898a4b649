#include "Panoveer/Rendering/Projection/CPUProjectionRenderer.h"
#include "Panoveer/Rendering/Projection/MirrorDomeWarpMeshError.h"
#include "Panoveer/Rendering/Projection/SharedRenderer.h"
#include "Platform/GPU/VulkanDevice.h"

#include <unistd.h>

#include <cmath>
#include <filesystem>
#include <fstream>

// Pictures of mirror domes beyond what all engines have in common.
namespace panoveer {

namespace {

namespace fs = std::filesystem;
using namespace pixelFormat;

class MirrorDomeRender : public SharedRenderer {
protected:
    static PixelBufferPtr frame(FourCC format) { return PixelBuffer::make(format, 160, 90); }

    const VRTransform transform_ = mirrorDomeFrom(ProjectionFormat::equirectangular);
    const PixelBufferPtr chart_ = chartSource(transform_, yCbCr420VideoRange, 128, 0.02);
    ScalarProjectionReference reference_;
};

// On the GPU, Y'CbCr is made of the colours that the mesh was drawn with.
TEST_F(MirrorDomeRender, BecomesYCbCrAsAProjectedPictureDoes) {
    const auto expected = frame(yCbCr420VideoRange);
    ScalarProjectionReference::convertToYCbCr(*rendered(reference_, chart_, {}, transform_, frame(bgra)), *expected,
                                              VideoYCbCrMatrix::bt709);
    expectAlike(*rendered(renderer_, chart_, {}, transform_, frame(yCbCr420VideoRange)), *expected);
}

// Eight bits anywhere on the way would leave three of four codes of ten bits unused, and an error of two.
TEST_F(MirrorDomeRender, KeepsTenBitsOnItsWay) {
    const SourcePictureDescription pq{.yCbCrMatrix = VideoYCbCrMatrix::bt2020,
                                      .colorPrimaries = VideoColorPrimaries::bt2020,
                                      .transferFunction = VideoTransferFunction::pq};
    const auto source = chartSource(transform_, yCbCr420TenBitVideoRange, 128, 0.02);
    for (const auto format : {yCbCr420TenBitVideoRange, yCbCr422TenBitVideoRange}) {
        for (const auto mode : {VRColorOutputMode::sdr, VRColorOutputMode::preserveHDR, VRColorOutputMode::hdrHLG}) {
            SCOPED_TRACE(format.text() + " " + std::to_string(int(mode)));
            const auto luma = samplesOf(*rendered(renderer_, source, pq, transform_, frame(format), mode), 0);
            const auto expected = samplesOf(*rendered(reference_, source, pq, transform_, frame(format), mode), 0);
            double sum = 0;
            for (std::size_t i = 0; i < luma.size(); ++i)
                sum += std::abs(luma[i] - expected[i]);
            EXPECT_LT(sum / double(luma.size()), 0.5);
        }
    }
}

// On the processor, luma and chroma are dimmed each for itself. See CPUParityEngines for the tolerances.
TEST_F(MirrorDomeRender, IsDrawnOnTheProcessorInEveryFormatToo) {
    CPUProjectionRenderer processor({.threads = 2});
    for (const auto input : {bgra, yCbCr420VideoRange, yCbCr420TenBitVideoRange}) {
        const auto source = chartSource(transform_, input, 128, 0.02);
        for (const auto output : {bgra, rgbaHalf, yCbCr420VideoRange, yCbCr420TenBitVideoRange}) {
            SCOPED_TRACE(input.text() + " to " + output.text());
            expectAlike(*rendered(processor, source, {}, transform_, frame(output)),
                        *rendered(reference_, source, {}, transform_, frame(output)),
                        output == yCbCr420TenBitVideoRange ? 8 : 3);
        }
    }
}

TEST_F(MirrorDomeRender, ShowsWhatLiesBehindIt) {
    const auto transform = mirrorDomeFrom(ProjectionFormat::halfEquirectangular);
    const auto source = PixelBuffer::make(bgra, 64, 64);
    fill(*source, [](int x, int y) { return std::array{x * 4, y * 4, 200, 80 + (x + y) % 64 * 2}; });
    const auto actual = frame(bgra), expected = frame(bgra);
    run([&](GPUCommandBuffer& commands) {
        auto& bridge = renderer_.textureBridge();
        renderer_.renderMirrorDome(bridge.sourceFrame(*source, {.alphaMode = AlphaMode::straight}, commands),
                                   bridge.outputTexture(*actual, GPUPixelFormat::bgra8Unorm, 0, commands), transform,
                                   true, VRCompositingBackground::preview, VRColorOutputMode::sdr,
                                   VRResamplingQuality::final, &commands);
    });
    ScalarProjectionReference::renderPicture(*source, {.alphaMode = AlphaMode::straight}, transform, *expected,
                                             {.transparentUnmappedAreas = true, .hasCheckerboard = true});
    // The picture is rounded once before it is laid on the checkerboard.
    expectAlike(*actual, *expected, 2);
}

TEST_F(MirrorDomeRender, LeavesOpaqueBlackOrNothingWhereTheMeshHasNoCells) {
    for (const bool isTransparent : {false, true}) {
        const auto pixels = samplesOf(
            *rendered(renderer_, chart_, {}, transform_, frame(bgra), VRColorOutputMode::sdr, isTransparent), 0);
        EXPECT_EQ(pixels[3], isTransparent ? 0 : 255) << "the corner";
        EXPECT_EQ(pixels[0], 0);
        EXPECT_EQ(pixels[(58 * 160 + 80) * 4 + 3], 255) << "the dome";
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
    auto transform = transform_;
    const auto white = PixelBuffer::make(bgra, 64, 32);
    fill(*white, [](int, int) { return std::array{255, 255, 255, 255}; });
    const auto corner = [&] {
        return samplesOf(*rendered(renderer_, white, {}, transform, frame(bgra), VRColorOutputMode::sdr, true), 0)[0];
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
    EXPECT_THROW(rendered(reference_, white, {}, transform, frame(bgra)), MirrorDomeWarpMeshError);
}

TEST_F(MirrorDomeRender, IsRefusedByADeviceThatOnlyComputesWhileAllElseWorks) {
    const auto device = GPUDevice::make();
    device->vulkan().forbidDrawing();
    VRMetalProjectionRenderer renderer(device);
    EXPECT_THROW(rendered(renderer, chart_, {}, transform_, frame(bgra)), Error);
    auto flat = transform_;
    flat.outputFormat = ProjectionFormat::domemaster;
    EXPECT_NO_THROW(rendered(renderer, chart_, {}, flat, frame(bgra)));
}

} // namespace
} // namespace panoveer
