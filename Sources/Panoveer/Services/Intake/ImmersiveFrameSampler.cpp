#include "Panoveer/Services/Intake/ImmersiveFrameSampler.h"

#include "Panoveer/Services/Intake/FFmpegFrameReader.h"
#include "Platform/Core/Log.h"
#include "Platform/Media/AssetImageGenerator.h"
#include "Platform/Media/MediaAsset.h"

#include <cmath>
#include <exception>
#include <functional>

namespace panoveer::ImmersiveFrameSampler {

namespace {

constexpr Logger logger("Detection");

// How far from the asked time a quicker frame may be.
constexpr double toleranceSeconds = 1;

// The picture at a time, or null.
using TakePicture = std::function<PixelBufferPtr(double seconds)>;

std::vector<GrayscaleImage> sampled(double duration, const std::stop_token& stop, const TakePicture& take) {
    std::vector<GrayscaleImage> frames;
    for (double seconds : sampleTimes(duration)) {
        try {
            const auto picture = take(seconds);
            if (!picture)
                continue;
            if (auto frame = grayscale(*picture); !frame.isEmpty())
                frames.push_back(std::move(frame));
        } catch (const std::exception& failure) {
            logger.info("no sample frame at {:.3f} s: {}", seconds, failure.what());
        }
        if (stop.stop_requested())
            break;
    }
    return frames;
}

std::vector<GrayscaleImage> ffmpegFrames(const URL& url, double duration, const std::stop_token& stop) {
    return sampled(duration, stop, [&](double seconds) -> PixelBufferPtr {
        FFmpegFrameReader reader(url, seconds, 0, CGSizeValue{maximumSide, maximumSide});
        auto frame = reader.copyFrame(seconds, nullptr, stop);
        return frame ? std::move(frame->pixelBuffer) : nullptr;
    });
}

std::vector<GrayscaleImage> nativeFrames(const URL& url, double duration, const std::stop_token& stop) {
    try {
        AssetImageGenerator generator(MediaAsset::load(url));
        generator.setAppliesPreferredTrackTransform(true);
        generator.setMaximumSize(maximumSide, maximumSide);
        generator.setRequestedTimeTolerance(toleranceSeconds, toleranceSeconds);
        return sampled(duration, stop, [&](double seconds) { return generator.copyImage(seconds, stop).picture; });
    } catch (const std::exception& failure) {
        logger.info("no sample frames: {}", failure.what());
        return {};
    }
}

} // namespace

std::vector<double> sampleTimes(double duration) {
    if (!std::isfinite(duration) || !(duration > 1))
        return {0};
    return {0.2 * duration, 0.5 * duration, 0.8 * duration};
}

std::vector<GrayscaleImage> frames(const URL& url, bool usesFFmpegDecode, double duration,
                                   const std::stop_token& stop) {
    return usesFFmpegDecode ? ffmpegFrames(url, duration, stop) : nativeFrames(url, duration, stop);
}

GrayscaleImage grayscale(const PixelBuffer& picture) {
    if (picture.format() != pixelFormat::bgra)
        return {};
    const auto& plane = picture.plane(0);
    std::vector<float> pixels;
    pixels.reserve(std::size_t(plane.width) * std::size_t(plane.height));
    for (int y = 0; y < plane.height; ++y) {
        const auto* pixel = plane.data + std::size_t(y) * plane.rowBytes;
        for (int x = 0; x < plane.width; ++x, pixel += 4)
            pixels.push_back((0.0722f * float(pixel[0]) + 0.7152f * float(pixel[1]) + 0.2126f * float(pixel[2])) / 255);
    }
    return GrayscaleImage(plane.width, plane.height, std::move(pixels));
}

} // namespace panoveer::ImmersiveFrameSampler
