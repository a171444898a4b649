#include "Benchmarks/BenchmarkEngines.h"
#include "Benchmarks/BenchmarkReport.h"
#include "Benchmarks/V360Peer.h"
#include "Panoveer/Rendering/Projection/SphericalTestChart.h"

#include <format>

namespace panoveer::bench {

namespace {

constexpr int defaultRuns = 9;
constexpr int sourceWidth = 3840;
constexpr int sourceHeight = 1920;
constexpr int domeSize = 2048;

struct Pair {
    VRResamplingQuality ours;
    const char* oursName;
    const char* peerInterpolation;
};

constexpr Pair pairs[] = {{VRResamplingQuality::final, "8 taps", "lanczos"},
                          {VRResamplingQuality::interactive, "2 taps", "linear"}};

PixelBufferPtr chartSource() {
    VRTransform shape;
    shape.sourceFormat = ProjectionFormat::equirectangular;
    auto source = PixelBuffer::make(pixelFormat::yCbCr420VideoRange, sourceWidth, sourceHeight);
    paintAsSource(SphericalTestChart{}, shape, *source);
    return source;
}

Comparison compared(ProjectionRenderer& renderer, const PixelBufferPtr& source, const Pair& pair, int runs) {
    const auto output = PixelBuffer::make(pixelFormat::yCbCr420VideoRange, domeSize, domeSize);
    VRTransform transform;
    transform.sourceFormat = ProjectionFormat::equirectangular;
    transform.outputFormat = ProjectionFormat::domemaster;
    transform.fovDegrees = 180;
    transform.outputResolution = {domeSize, domeSize};
    V360Peer peer(
        *source, std::format("e:fisheye:h_fov=180:v_fov=180:w={0}:h={0}:interp={1}", domeSize, pair.peerInterpolation));
    const auto renderOurs = [&] {
        renderer.render(source, {}, transform, output, VRColorOutputMode::sdr, pair.ours, false)->wait();
    };
    // The first frame pays for tables, pipelines and memory on both sides.
    peer.render();
    renderOurs();
    // Turn by turn, so that what else the machine does meets both alike.
    std::vector<double> ours;
    std::vector<double> theirs;
    for (int run = 0; run < runs; ++run) {
        theirs.push_back(timed([&] { peer.render(); }));
        ours.push_back(timed(renderOurs));
    }
    return {.name = std::format("equirectangular {}x{} to domemaster {}", sourceWidth, sourceHeight, domeSize),
            .ours = {.name = std::format("{}, {}", renderer.name(), pair.oursName), .seconds = Spread::of(ours)},
            .peer = {.name = std::format("FFmpeg v360, {}", pair.peerInterpolation), .seconds = Spread::of(theirs)}};
}

} // namespace

// 3840x1920 equirectangular to a 2048 domemaster, 8-bit 4:2:0, the reprojection alone.
std::vector<Comparison> reprojectBenchmark(const BenchmarkOptions& options) {
    const auto source = chartSource();
    std::vector<Comparison> result;
    for (const auto& renderer : makeEngines(options.engine))
        for (const auto& pair : pairs)
            result.push_back(compared(*renderer, source, pair, options.runs.value_or(defaultRuns)));
    return result;
}

} // namespace panoveer::bench
