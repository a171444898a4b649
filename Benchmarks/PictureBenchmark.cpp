// How near reprojected pictures come to the truth.
//
// The source is an 8-bit equirectangular picture of SphereGratings, every pixel the mean over its area. The truth is
// the same scene, rendered into the output in the same way and not rounded. The figure is the peak signal to noise
// ratio of the luma, for a peak of 255, without the 8 pixels along the edge of the picture or of a dome's circle.
//
// "1:1" conversions keep the scale of the source, "4:1" ones make it about a quarter: there, most of what the source
// shows is too fine for the output and has to go before it turns into false patterns. The contrasts are those at which
// v360's best resampling comes to about 44 dB at 1:1 and 41 dB at 4:1. What an 8-bit picture can reach at best is 59
// dB.

#include "Benchmarks/BenchmarkEngines.h"
#include "Benchmarks/BenchmarkReport.h"
#include "Benchmarks/SphereGratings.h"
#include "Benchmarks/V360Peer.h"

#include <array>
#include <cmath>
#include <cstring>
#include <format>
#include <mutex>
#include <numbers>

namespace panoveer::bench {

namespace {

constexpr int border = 8;
constexpr double degree = std::numbers::pi / 180;
constexpr double polesRadius = 10 * degree;
constexpr double seamHalfWidth = 2 * degree; // of longitude
constexpr int supersampling = 4;

struct Conversion {
    const char* name;
    ProjectionFormat format;
    int width;
    int height;
    const char* filter; // what v360 takes, without size and interpolation
    double fovDegrees = 180;
    double yawDegrees = 0;
    double pitchDegrees = 0;
};

struct Source {
    const char* scale;
    int width;              // twice its height
    double cyclesPerRadian; // of the finest grating
    double contrast;        // root mean square, luma codes
    bool isReduced;         // the peer is measured with supersampling too
    std::vector<Conversion> conversions;
};

// Turned backward and down, so that the lower pole is in the middle and the seam runs straight up from there.
constexpr Conversion domeOfPole(int size) {
    return {"domemaster around pole and seam",
            ProjectionFormat::domemaster,
            size,
            size,
            "e:fisheye:h_fov=180:v_fov=180:yaw=180:pitch=-90",
            180,
            180,
            90};
}

constexpr Conversion dome(int size) {
    return {"domemaster", ProjectionFormat::domemaster, size, size, "e:fisheye:h_fov=180:v_fov=180"};
}

std::vector<Source> sources() {
    return {{.scale = "1:1",
             .width = 3840,
             .cyclesPerRadian = 200,
             .contrast = 17,
             .isReduced = false,
             .conversions = {dome(2048),
                             {"half equirectangular", ProjectionFormat::halfEquirectangular, 1920, 1920, "e:hequirect"},
                             {"flat, 60 degrees", ProjectionFormat::standard, 704, 704, "e:flat:h_fov=60:v_fov=60", 60},
                             domeOfPole(2048)}},
            {.scale = "4:1",
             .width = 7680,
             .cyclesPerRadian = 420,
             .contrast = 12,
             .isReduced = true,
             .conversions = {dome(1024),
                             {"equirectangular", ProjectionFormat::equirectangular, 1920, 960, "e:e"},
                             domeOfPole(1024)}}};
}

std::byte* rowOf(const PixelPlane& plane, int y) { return plane.data + std::size_t(y) * plane.rowBytes; }

PixelBufferPtr painted(const SphereGratings& scene, int width) {
    const auto picture = PixelBuffer::make(pixelFormat::yCbCr420VideoRange, width, width / 2);
    scene.render({ProjectionFormat::equirectangular, width, width / 2}, [&](int y, std::span<const double> codes) {
        auto* row = rowOf(picture->plane(0), y);
        for (std::size_t x = 0; x < codes.size(); ++x)
            row[x] = std::byte(std::clamp(std::floor(codes[x] + 0.5), 16.0, 235.0));
    });
    const auto& chroma = picture->plane(1);
    for (int y = 0; y < chroma.height; ++y)
        std::memset(rowOf(chroma, y), 128, std::size_t(chroma.width) * 2);
    return picture;
}

// Squared errors of some of a picture's pixels.
struct ErrorSum {
    double squares = 0;
    std::int64_t count = 0;

    void add(double error) {
        squares += error * error;
        ++count;
    }
    ErrorSum& operator+=(const ErrorSum& other) {
        squares += other.squares;
        count += other.count;
        return *this;
    }
    std::optional<double> psnr() const {
        return count > 0 ? std::optional(10 * std::log10(255.0 * 255.0 * double(count) / squares)) : std::nullopt;
    }
};

// What a conversion should make.
class Truth {
public:
    Truth(const SphereGratings& scene, const PictureGeometry& geometry)
        : geometry_(geometry), pixels_(std::size_t(geometry.width()) * std::size_t(geometry.height())) {
        scene.render(geometry, [&](int y, std::span<const double> codes) {
            for (int x = 0; x < geometry_.width(); ++x)
                pixels_[index(x, y)] = {float(codes[std::size_t(x)]), regionsAt(x, y)};
        });
    }

    PictureScore score(std::string name, const PixelPlane& luma) const {
        ErrorSum picture, poles, seam;
        for (int y = 0; y < geometry_.height(); ++y) {
            const auto* row = rowOf(luma, y);
            for (int x = 0; x < geometry_.width(); ++x) {
                const auto& pixel = pixels_[index(x, y)];
                const double error = std::to_integer<int>(row[x]) - double(pixel.code);
                if (pixel.regions & inside)
                    picture.add(error);
                if (pixel.regions & nearPole)
                    poles.add(error);
                if (pixel.regions & nearSeam)
                    seam.add(error);
            }
        }
        return {std::move(name), picture.psnr().value(), poles.psnr(), seam.psnr()};
    }

private:
    enum Region : std::uint8_t { inside = 1, nearPole = 2, nearSeam = 4 };
    struct Pixel {
        float code = 0;
        std::uint8_t regions = 0;
    };

    std::size_t index(int x, int y) const { return std::size_t(y) * std::size_t(geometry_.width()) + std::size_t(x); }

    bool isInside(int x, int y) const {
        if (geometry_.format() == ProjectionFormat::domemaster) {
            const double radius = geometry_.width() / 2.0;
            return std::hypot(x + 0.5 - radius, y + 0.5 - radius) <= radius - border;
        }
        return x >= border && y >= border && x < geometry_.width() - border && y < geometry_.height() - border;
    }

    std::uint8_t regionsAt(int x, int y) const {
        if (!isInside(x, y))
            return 0;
        const auto d = geometry_.direction(x + 0.5, y + 0.5);
        int regions = inside;
        if (std::abs(d.y) >= std::cos(polesRadius))
            regions |= nearPole;
        if (std::abs(std::atan2(d.x, -d.z)) <= seamHalfWidth)
            regions |= nearSeam;
        return std::uint8_t(regions);
    }

    PictureGeometry geometry_;
    std::vector<Pixel> pixels_;
};

PictureScore ourScore(ProjectionRenderer& engine, const PixelBufferPtr& source, const Conversion& conversion,
                      VRResamplingQuality quality, const Truth& truth) {
    VRTransform transform;
    transform.sourceFormat = ProjectionFormat::equirectangular;
    transform.outputFormat = conversion.format;
    transform.outputResolution = {conversion.width, conversion.height};
    transform.fovDegrees = conversion.fovDegrees;
    transform.yawDegrees = conversion.yawDegrees;
    transform.pitchDegrees = conversion.pitchDegrees;
    const auto output = PixelBuffer::make(pixelFormat::yCbCr420VideoRange, conversion.width, conversion.height);
    engine.render(source, {}, transform, output, VRColorOutputMode::sdr, quality, false)->wait();
    const auto* taps = quality == VRResamplingQuality::final ? "8 taps" : "2 taps";
    return truth.score(std::format("{}, {}", engine.name(), taps), output->plane(0));
}

PictureScore peerScore(const PixelBuffer& source, const Conversion& conversion, const char* interpolation,
                       const Truth& truth) {
    V360Peer peer(
        source,
        std::format("{}:w={}:h={}:interp={}", conversion.filter, conversion.width, conversion.height, interpolation),
        V360Peer::Planes::lumaOnly);
    return truth.score(std::format("FFmpeg v360, {}", interpolation), peer.render());
}

// The mean of squares of `factor` by `factor` pixels, rounded.
std::vector<std::byte> reduced(const PixelPlane& large, int factor) {
    const int width = large.width / factor;
    const int height = large.height / factor;
    std::vector<std::byte> small(std::size_t(width) * std::size_t(height));
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            int sum = 0;
            for (int j = 0; j < factor; ++j)
                for (int i = 0; i < factor; ++i)
                    sum += std::to_integer<int>(rowOf(large, y * factor + j)[x * factor + i]);
            small[std::size_t(y) * std::size_t(width) + std::size_t(x)] =
                std::byte((sum + factor * factor / 2) / (factor * factor));
        }
    return small;
}

PictureScore supersampledPeerScore(const PixelBuffer& source, const Conversion& conversion, const Truth& truth) {
    V360Peer peer(source,
                  std::format("{}:w={}:h={}:interp=lanczos", conversion.filter, conversion.width * supersampling,
                              conversion.height * supersampling),
                  V360Peer::Planes::lumaOnly);
    auto small = reduced(peer.render(), supersampling);
    return truth.score("FFmpeg v360, lanczos, four times the size and averaged",
                       {small.data(), std::size_t(conversion.width), conversion.width, conversion.height});
}

// Everything smaller, and the gratings as many pixels long as before.
Source shrunk(Source source, int factor) {
    source.width /= factor;
    source.cyclesPerRadian /= factor;
    for (auto& conversion : source.conversions) {
        conversion.width /= factor;
        conversion.height /= factor;
    }
    return source;
}

} // namespace

std::vector<PictureComparison> pictureBenchmark(const BenchmarkOptions& options) {
    const auto engines = makeEngines(options.engine);
    std::vector<PictureComparison> result;
    for (const auto& full : sources()) {
        const auto source = shrunk(full, options.shrink);
        const auto scene = SphereGratings::upTo(source.cyclesPerRadian, source.contrast);
        const auto picture = painted(scene, source.width);
        for (const auto& conversion : source.conversions) {
            const Truth truth(scene, {conversion.format, conversion.width, conversion.height, conversion.fovDegrees,
                                      conversion.yawDegrees, conversion.pitchDegrees});
            auto& comparison = result.emplace_back();
            comparison.name = std::format("{}, equirectangular {}x{} to {}, {}x{}", source.scale, source.width,
                                          source.width / 2, conversion.name, conversion.width, conversion.height);
            for (const auto& engine : engines)
                for (const auto quality : {VRResamplingQuality::final, VRResamplingQuality::interactive})
                    comparison.scores.push_back(ourScore(*engine, picture, conversion, quality, truth));
            for (const auto* interpolation : {"lanczos", "linear"})
                comparison.scores.push_back(peerScore(*picture, conversion, interpolation, truth));
            if (source.isReduced)
                comparison.scores.push_back(supersampledPeerScore(*picture, conversion, truth));
        }
    }
    return result;
}

} // namespace panoveer::bench
