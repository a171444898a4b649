#include "Panoveer/Rendering/Projection/PictureTesting.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <numbers>

namespace panoveer {

namespace {

double fromHalf(std::uint16_t half) {
    const int exponent = half >> 10 & 31;
    const double mantissa = (half & 1023) / 1024.0;
    return exponent == 0 ? std::ldexp(mantissa, -14) : std::ldexp(1 + mantissa, exponent - 15);
}

} // namespace

std::vector<double> samplesOf(const PixelBuffer& picture, int planeIndex) {
    const auto& plane = picture.plane(planeIndex);
    const auto& layout = picture.layout();
    const int count = plane.width * (planeIndex == 0 ? layout.samplesPerPixel : 2);
    std::vector<double> samples;
    samples.reserve(std::size_t(count * plane.height));
    for (int y = 0; y < plane.height; ++y) {
        const auto* row = plane.data + std::size_t(y) * plane.rowBytes;
        for (int i = 0; i < count; ++i) {
            if (layout.bytesPerSample == 1) {
                samples.push_back(std::to_integer<int>(row[i]));
                continue;
            }
            std::uint16_t word = 0;
            std::memcpy(&word, row + i * 2, sizeof word);
            samples.push_back(layout.isYCbCr() ? word / 64.0 : fromHalf(word) * 255);
        }
    }
    return samples;
}

PictureDifference differenceBetween(const PixelBuffer& a, const PixelBuffer& b, double outlierLimit) {
    double squares = 0;
    double count = 0;
    double outliers = 0;
    PictureDifference result;
    for (int plane = 0; plane < a.planeCount(); ++plane) {
        const auto left = samplesOf(a, plane);
        const auto right = samplesOf(b, plane);
        EXPECT_EQ(left.size(), right.size());
        for (std::size_t i = 0; i < std::min(left.size(), right.size()); ++i) {
            const double difference = std::abs(left[i] - right[i]);
            squares += difference * difference;
            count += 1;
            outliers += difference > outlierLimit ? 1 : 0;
            result.worst = std::max(result.worst, difference);
        }
    }
    const double peak = a.layout().isYCbCr() && a.layout().bytesPerSample == 2 ? 1023 : 255;
    result.psnr = 10 * std::log10(peak * peak / std::max(squares / count, 1e-9));
    result.outlierShare = outliers / count;
    return result;
}

void premultiply(PixelBuffer& picture) {
    const auto& plane = picture.plane(0);
    for (int y = 0; y < plane.height; ++y)
        for (int x = 0; x < plane.width; ++x) {
            auto* pixel = plane.data + std::size_t(y) * plane.rowBytes + std::size_t(x) * 4;
            for (int c = 0; c < 3; ++c)
                pixel[c] = std::byte((std::to_integer<int>(pixel[c]) * std::to_integer<int>(pixel[3]) + 127) / 255);
        }
}

void setSample(PixelBuffer& picture, int planeIndex, int sample, int row, int code) {
    auto* place = picture.plane(planeIndex).data + std::size_t(row) * picture.plane(planeIndex).rowBytes;
    if (picture.layout().bytesPerSample == 1) {
        place[sample] = std::byte(code);
        return;
    }
    const auto word = std::uint16_t(code << 6);
    std::memcpy(place + sample * 2, &word, sizeof word);
}

void fill(PixelBuffer& picture, const std::function<std::array<int, 4>(int x, int y)>& pixel) {
    const auto& plane = picture.plane(0);
    for (int y = 0; y < plane.height; ++y) {
        for (int x = 0; x < plane.width; ++x) {
            const auto values = pixel(x, y);
            for (std::size_t c = 0; c < 4; ++c)
                plane.data[std::size_t(y) * plane.rowBytes + std::size_t(x) * 4 + c] = std::byte(values[c]);
        }
    }
}

std::string nameOf(ProjectionFormat format) {
    switch (format) {
    case ProjectionFormat::standard: return "Standard";
    case ProjectionFormat::equirectangular: return "Equirectangular";
    case ProjectionFormat::halfEquirectangular: return "HalfEquirectangular";
    case ProjectionFormat::domemaster: return "Domemaster";
    case ProjectionFormat::cubemap: return "Cubemap";
    case ProjectionFormat::eac: return "Eac";
    case ProjectionFormat::mirrorDome: return "MirrorDome";
    }
    return "";
}

std::string nameOf(StereoVideoLayout layout) {
    switch (layout) {
    case StereoVideoLayout::mono: return "Mono";
    case StereoVideoLayout::sideBySide: return "SideBySide";
    case StereoVideoLayout::overUnder: return "OverUnder";
    }
    return "";
}

OutputResolution frameSize(ProjectionFormat format, StereoVideoLayout layout, int height) {
    OutputResolution eye{height, height};
    if (format == ProjectionFormat::standard)
        eye = {height * 16 / 9 / 2 * 2, height};
    else if (format == ProjectionFormat::equirectangular)
        eye.width = 2 * height;
    else if (format == ProjectionFormat::cubemap || format == ProjectionFormat::eac)
        eye.width = height / 2 * 3;
    return {eye.width * (layout == StereoVideoLayout::sideBySide ? 2 : 1),
            eye.height * (layout == StereoVideoLayout::overUnder ? 2 : 1)};
}

VRTransform transformBetween(ProjectionFormat source, ProjectionFormat output) {
    VRTransform transform;
    transform.sourceFormat = source;
    transform.outputFormat = output;
    const bool isFlat = source == ProjectionFormat::standard;
    transform.fovDegrees = output == ProjectionFormat::standard ? (isFlat ? 60 : 80) : isFlat ? 120 : 180;
    return transform;
}

VRTransform mirrorDomeFrom(ProjectionFormat source) {
    auto transform = transformBetween(source, ProjectionFormat::mirrorDome);
    transform.outputResolution = {160, 90};
    transform.yawDegrees = 20;
    transform.pitchDegrees = source == ProjectionFormat::standard ? 30 : -35;
    transform.rollDegrees = 10;
    return transform;
}

RGB waves(Direction d, double, StereoEye eye) {
    const double sign = eye == StereoEye::left ? wavesAmplitude : -wavesAmplitude;
    return {0.5 + sign * std::sin(5 * d.x + 2 * d.y + 1), 0.5 + sign * std::sin(4 * d.y - 3 * d.z),
            0.5 + sign * std::sin(4 * d.z + 3 * d.x + 2)};
}

PixelBufferPtr chartSource(const VRTransform& transform, FourCC format, int eyeHeight, double softness) {
    const auto size = frameSize(transform.sourceFormat, transform.sourceStereoLayout, eyeHeight);
    auto source = PixelBuffer::make(format, int(size.width), int(size.height));
    paintAsSource(SphericalTestChart{.seconds = 2, .softness = softness}, transform, *source);
    return source;
}

std::vector<Direction> seams() {
    std::vector<Direction> places;
    for (const double x : {-1.0, 0.0, 1.0})
        for (const double y : {-1.0, 0.0, 1.0})
            for (const double z : {-1.0, 0.0, 1.0})
                if (x != 0 || y != 0 || z != 0)
                    places.push_back({x, y, z});
    for (const double y : {-1.0, 1.0})
        places.insert(places.end(), {{0.06, y, 0.02}, {-0.02, y, -0.06}, {0.01, y * 0.4, -1}});
    return places;
}

void lookAt(Direction direction, VRTransform& transform) {
    constexpr double degree = std::numbers::pi / 180;
    transform.yawDegrees = std::atan2(direction.x, direction.z) / degree;
    transform.pitchDegrees = -std::atan2(direction.y, std::hypot(direction.x, direction.z)) / degree;
}

} // namespace panoveer
