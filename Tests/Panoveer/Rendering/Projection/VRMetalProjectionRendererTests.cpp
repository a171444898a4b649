#include "Panoveer/Rendering/Projection/SharedRenderer.h"
#include "Panoveer/Rendering/Projection/VRMetalProjectionError.h"
#include "Platform/Core/Localization.h"
#include "Support/Thrown.h"

#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>

// What the renderer does beyond the pictures that all engines have in common.
namespace panoveer {

namespace {

namespace fs = std::filesystem;
using namespace pixelFormat;
using Case = VRMetalProjectionError::Case;

VRTransform viewTowards(double yawDegrees) {
    auto transform = transformBetween(ProjectionFormat::equirectangular, ProjectionFormat::standard);
    transform.yawDegrees = yawDegrees;
    return transform;
}

class VRMetalProjectionRendererTest : public SharedRenderer {
protected:
    std::unique_ptr<PendingRender> start(const PixelBufferPtr& source, const PixelBufferPtr& output, double yaw = 30) {
        return renderer_.render(source, {}, viewTowards(yaw), output, VRColorOutputMode::sdr,
                                VRResamplingQuality::final, false);
    }

    static PixelBufferPtr reference(const PixelBufferPtr& source, FourCC format, int width, int height,
                                    double yaw = 30) {
        auto output = PixelBuffer::make(format, width, height);
        ScalarProjectionReference::renderPicture(*source, {}, viewTowards(yaw), *output, {});
        return output;
    }

    std::pair<Case, std::int32_t> failureOf(const PixelBufferPtr& source, const PixelBufferPtr& output) {
        const auto error = test::thrown<VRMetalProjectionError>([&] { start(source, output); });
        EXPECT_NE(std::string(error.value().what()).find(std::to_string(error->status())), std::string::npos);
        return {error->which(), error->status()};
    }

    const PixelBufferPtr chart_ = chartSource(viewTowards(0), yCbCr420VideoRange, 64);
};

TEST_F(VRMetalProjectionRendererTest, KeepsSeveralPicturesInFlight) {
    std::vector<PixelBufferPtr> outputs;
    std::vector<std::unique_ptr<PendingRender>> pending;
    for (int i = 0; i < 8; ++i) {
        outputs.push_back(PixelBuffer::make(yCbCr420VideoRange, 64, 64));
        // The source is taken when the picture is started: what becomes of it later changes nothing.
        const auto passing = chartSource(viewTowards(0), yCbCr420VideoRange, 64);
        pending.push_back(start(passing, outputs.back(), i * 40 - 180));
        std::memset(passing->plane(0).data, 0, passing->plane(0).rowBytes * 64);
    }
    pending.erase(pending.begin() + 3); // dropped without waiting
    for (auto& render : pending)
        render->wait();
    for (const int i : {0, 1, 2, 4, 5, 6, 7}) {
        SCOPED_TRACE(i);
        expectAlike(*outputs[std::size_t(i)], *reference(chart_, yCbCr420VideoRange, 64, 64, i * 40 - 180));
    }
}

TEST_F(VRMetalProjectionRendererTest, ConvertsAProjectedPictureByTheRulesOfAProjectedOne) {
    const auto projected = reference(chart_, bgra, 65, 34);
    auto& bridge = renderer_.textureBridge();
    for (const bool isTenBit : {false, true}) {
        const auto output = PixelBuffer::make(isTenBit ? yCbCr420TenBitVideoRange : yCbCr420VideoRange, 65, 34);
        run([&](GPUCommandBuffer& commands) {
            using enum GPUPixelFormat;
            renderer_.convertToYCbCr(bridge.sourceTexture(*projected, bgra8Unorm, 0, commands),
                                     bridge.outputTexture(*output, isTenBit ? r16Unorm : r8Unorm, 0, commands),
                                     bridge.outputTexture(*output, isTenBit ? rg16Unorm : rg8Unorm, 1, commands),
                                     isTenBit ? VRYCbCrOutputBitDepth::ten : VRYCbCrOutputBitDepth::eight,
                                     VRColorOutputMode::sdr, commands);
        });
        const auto expected = PixelBuffer::make(output->format(), 65, 34);
        ScalarProjectionReference::convertToYCbCr(*projected, *expected, VideoYCbCrMatrix::bt709);
        EXPECT_LE(differenceBetween(*output, *expected).worst, 1);
    }
}

TEST_F(VRMetalProjectionRendererTest, LeavesTheCallersCommandBufferOpenAndRunsItsOwn) {
    const auto output = PixelBuffer::make(yCbCr420VideoRange, 64, 32);
    const auto device = renderer_.device();
    const auto luma = GPUTexture::make(device, GPUPixelFormat::r8Unorm, 64, 32, GPUTextureUsage::shaderWrite);
    const auto chroma = GPUTexture::make(device, GPUPixelFormat::rg8Unorm, 32, 16, GPUTextureUsage::shaderWrite);
    std::optional<VRSourceFrame> frame;
    run([&](GPUCommandBuffer& commands) { frame = renderer_.textureBridge().sourceFrame(*chart_, {}, commands); });
    const auto render = [&](GPUCommandBuffer* commands) {
        renderer_.renderYCbCr(*frame, luma, chroma, VRYCbCrOutputBitDepth::eight, viewTowards(30),
                              VRColorOutputMode::sdr, commands);
    };
    render(nullptr);
    run([&](GPUCommandBuffer& commands) {
        commands.download(luma, output->plane(0).data, output->plane(0).rowBytes);
        commands.download(chroma, output->plane(1).data, output->plane(1).rowBytes);
    });
    expectAlike(*output, *reference(chart_, yCbCr420VideoRange, 64, 32));
    run([&](GPUCommandBuffer& commands) { render(&commands); });
}

TEST_F(VRMetalProjectionRendererTest, ShowsTheLumaPlaneWhereAFrameHasNoChroma) {
    const auto output = PixelBuffer::make(bgra, 64, 32);
    run([&](GPUCommandBuffer& commands) {
        auto frame = renderer_.textureBridge().sourceFrame(*chart_, {}, commands);
        frame.chromaTexture = nullptr;
        renderer_.renderColor(frame,
                              renderer_.textureBridge().outputTexture(*output, GPUPixelFormat::bgra8Unorm, 0, commands),
                              viewTowards(30), {}, commands);
    });
    EXPECT_EQ(samplesOf(*output, 0)[3], 255);
}

TEST_F(VRMetalProjectionRendererTest, TellsWhatItCannotRender) {
    setLanguage("en");
    const auto picture = PixelBuffer::make(bgra, 64, 32);
    const std::pair invalid(Case::textureCreationFailed, VRMetalProjectionError::invalidPixelFormatStatus);
    for (const auto format : {yCbCr420FullRange, yCbCr420TenBitFullRange, yCbCr444TenBitVideoRange})
        EXPECT_EQ(failureOf(picture, PixelBuffer::make(format, 64, 32)), invalid) << format.text();
    EXPECT_EQ(failureOf(PixelBuffer::make(rgbaHalf, 64, 32), picture), invalid);
    const auto [which, status] = failureOf(picture, PixelBuffer::make(bgra, 65536, 2));
    EXPECT_EQ(which, Case::textureCreationFailed);
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
        const auto error =
            test::thrown<VRMetalProjectionError>([&] { VRMetalProjectionRenderer renderer(renderer_.device()); });
        return error ? std::optional(error->which()) : std::nullopt;
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
        SCOPED_TRACE(int(mode));
        const auto actual = PixelBuffer::make(bgra, 96, 48);
        const auto expected = PixelBuffer::make(bgra, 96, 48);
        run([&](GPUCommandBuffer& commands) {
            auto& bridge = renderer_.textureBridge();
            renderer_.renderColor(
                bridge.sourceFrame(*source, {.alphaMode = mode}, commands),
                bridge.outputTexture(*actual, GPUPixelFormat::bgra8Unorm, 0, commands), transform,
                {.compositingBackground = VRCompositingBackground::preview, .transparentUnmappedAreas = true},
                commands);
        });
        ScalarProjectionReference::renderPicture(*source, {.alphaMode = mode}, transform, *expected,
                                                 {.transparentUnmappedAreas = true, .hasCheckerboard = true});
        expectAlike(*actual, *expected);
    }
}

} // namespace

} // namespace panoveer
