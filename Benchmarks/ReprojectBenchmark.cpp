#include "Benchmarks/BenchmarkReport.h"
#include "Benchmarks/V360Peer.h"
#include "Panoveer/Rendering/Projection/SphericalTestChart.h"
#include "Panoveer/Rendering/Projection/CPUProjectionRenderer.h"
#include "Platform/GPU/GPUDevice.h"

#include <format>

namespace panoveer::bench {

namespace {

constexpr int sourceWidth = 3840;
constexpr int sourceHeight = 1920;
constexpr int domeSize = 2048;
constexpr int peerFramesPerRun = 5;
constexpr int ourFramesPerRun = 3;

PixelBufferPtr chartSource() {
    VRTransform shape;
    shape.sourceFormat = ProjectionFormat::equirectangular;
    auto source = PixelBuffer::make(pixelFormat::yCbCr420VideoRange, sourceWidth, sourceHeight);
    paintAsSource(SphericalTestChart{}, shape, *source);
    return source;
}

} // namespace

// 3840x1920 equirectangular to a 2048 domemaster, 8-bit 4:2:0, the reprojection alone.
std::vector<Comparison> reprojectBenchmark(int runs) {

    CPUProjectionRenderer renderer;
    const auto source = chartSource();
    const auto output = PixelBuffer::make(pixelFormat::yCbCr420VideoRange, domeSize, domeSize);
    VRTransform transform;
    transform.sourceFormat = ProjectionFormat::equirectangular;
    transform.outputFormat = ProjectionFormat::domemaster;
    transform.fovDegrees = 180;
    transform.outputResolution = {domeSize, domeSize};

    struct Pair {
        VRResamplingQuality ours;
        const char* oursName;
        const char* peerInterpolation;
    };
    std::vector<Comparison> result;
    for (const auto& pair : {Pair{VRResamplingQuality::final, "8 taps", "lanczos"},
                             Pair{VRResamplingQuality::interactive, "2 taps", "linear"}}) {
        V360Peer peer(
            sourceWidth, sourceHeight,
            std::format("e:fisheye:h_fov=180:v_fov=180:w={0}:h={0}:interp={1}", domeSize, pair.peerInterpolation));
        const auto renderOurs = [&] {
            renderer.render(source, {}, transform, output, VRColorOutputMode::sdr, pair.ours, false)->wait();
        };
        // The first frame pays for tables, pipelines and memory on both sides.
        peer.renderFrame();
        renderOurs();
        std::vector<double> ours;
        std::vector<double> theirs;
        for (int run = 0; run < runs; ++run) {
            theirs.push_back(timed([&] {
                                 for (int i = 0; i < peerFramesPerRun; ++i)
                                     peer.renderFrame();
                             }) /
                             peerFramesPerRun);
            ours.push_back(timed([&] {
                               for (int i = 0; i < ourFramesPerRun; ++i)
                                   renderOurs();
                           }) /
                           ourFramesPerRun);
        }
        result.push_back(
            {.name = std::format("equirectangular {}x{} to domemaster {}", sourceWidth, sourceHeight, domeSize),
             .ours = std::format("{}, {}", renderer.name(), pair.oursName),
             .peer = std::format("FFmpeg v360, {}", pair.peerInterpolation),
             .oursSeconds = median(ours),
             .peerSeconds = median(theirs)});
    }
    return result;
}

} // namespace panoveer::bench
