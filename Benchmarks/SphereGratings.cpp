#include "Benchmarks/SphereGratings.h"

#include "Panoveer/Rendering/Projection/ParallelRows.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace panoveer::bench {

namespace {

using std::numbers::pi;
using VRProjectionMath::dot;

constexpr double degree = pi / 180;
constexpr double middleGrey = 125.5; // between the codes of black and white, 16 and 235

// The directions of a row of places, component by component, as the processor adds them up best.
struct Directions {
    explicit Directions(std::size_t count) : x(count), y(count), z(count) {}

    void set(std::size_t i, Direction d) {
        x[i] = d.x;
        y[i] = d.y;
        z[i] = d.z;
    }

    std::vector<double> x, y, z;
};

// What the pixels of a row see: their middles, and how the direction changes from one of their sides to the other.
struct RowSight {
    RowSight(const PictureGeometry& picture, int y)
        : middle(std::size_t(picture.width())), across(middle), down(middle) {
        for (int x = 0; x < picture.width(); ++x) {
            const auto i = std::size_t(x);
            const auto here = picture.direction(x + 0.5, y + 0.5);
            middle.set(i, here);
            across.set(i, (picture.direction(x + 1, y + 0.5) + here * -1) * 2);
            down.set(i, (picture.direction(x + 0.5, y + 1) + here * -1) * 2);
        }
    }

    Directions middle;
    Directions across;
    Directions down;
};

// The nearest whole number: the sum has no bits for the rest.
double nearest(double x) {
    constexpr double carry = 0x1.8p52;
    return (x + carry) - carry;
}

// Ten terms of the series of cos x for n = 0, and of sin x / x for n = 1, in s = x * x. Within 2e-6 for |x| < 5.
template<int n>
double series(double s) {
    double sum = 1;
#pragma GCC unroll 9
    for (int k = 9; k > 0; --k)
        sum = 1 - s * (1.0 / ((2 * k - 1 + n) * (2 * k + n))) * sum;
    return sum;
}

double squared(double x) { return x * x; }

double cosineOfTurns(double turns) { return series<0>(squared(2 * pi * (turns - nearest(turns)))); }

// What is left of a wave in its mean over as many of its cycles.
double attenuation(double cycles) { return series<1>(squared(pi * cycles)); }

void add(const Grating& grating, const RowSight& sight, std::span<double> codes) {
    const auto wave = grating.axis * grating.frequency;
    const auto turns = [&](const Directions& d, std::size_t i) {
        return wave.x * d.x[i] + wave.y * d.y[i] + wave.z * d.z[i];
    };
    for (std::size_t i = 0; i < codes.size(); ++i)
        codes[i] += grating.amplitude * attenuation(turns(sight.across, i)) * attenuation(turns(sight.down, i)) *
                    cosineOfTurns(turns(sight.middle, i) + grating.phase);
}

} // namespace

PictureGeometry::PictureGeometry(ProjectionFormat format, int width, int height, double fovDegrees, double yawDegrees,
                                 double pitchDegrees)
    : format_(format), width_(width), height_(height), tangent_(std::tan(fovDegrees / 2 * degree)) {
    const double cosYaw = std::cos(yawDegrees * degree), sinYaw = std::sin(yawDegrees * degree);
    const double cosPitch = std::cos(pitchDegrees * degree), sinPitch = std::sin(pitchDegrees * degree);
    right_ = {cosYaw, 0, -sinYaw};
    up_ = {sinYaw * sinPitch, cosPitch, cosYaw * sinPitch};
    forward_ = {sinYaw * cosPitch, -sinPitch, cosYaw * cosPitch};
}

Direction PictureGeometry::unturned(double u, double v) const {
    const auto onSphere = [](double longitude, double latitude) {
        return Direction{std::cos(latitude) * std::sin(longitude), std::sin(latitude),
                         std::cos(latitude) * std::cos(longitude)};
    };
    const double x = 2 * u - 1;
    const double y = 1 - 2 * v;
    switch (format_) {
    case ProjectionFormat::halfEquirectangular: return onSphere(x * pi / 2, y * pi / 2);
    case ProjectionFormat::domemaster: {
        const double radius = std::hypot(x, y);
        const double scale = radius > 0 ? std::sin(radius * pi / 2) / radius : pi / 2;
        return {x * scale, y * scale, std::cos(radius * pi / 2)};
    }
    case ProjectionFormat::standard:
        return VRProjectionMath::normalized({x * tangent_ * width_ / height_, y * tangent_, 1});
    default: return onSphere(x * pi, y * pi / 2);
    }
}

Direction PictureGeometry::direction(double x, double y) const {
    const auto d = unturned(x / width_, y / height_);
    return right_ * d.x + up_ * d.y + forward_ * d.z;
}

SphereGratings SphereGratings::upTo(double cyclesPerRadian, double contrast) {
    constexpr int count = 24;
    constexpr double lowest = 0.1;
    constexpr int stride = 7; // has no divisor in common with count
    const double goldenAngle = pi * (3 - std::sqrt(5.0));
    std::vector<Grating> gratings;
    double power = 0;
    for (int i = 0; i < count; ++i) {
        const double y = (i + 0.5) / count;
        const double radius = std::sqrt(1 - y * y);
        const double frequency = lowest + (1 - lowest) * ((i * stride) % count) / (count - 1);
        gratings.push_back({.axis = {radius * std::sin(i * goldenAngle), y, radius * std::cos(i * goldenAngle)},
                            .frequency = cyclesPerRadian * frequency,
                            .phase = i * std::numbers::phi,
                            .amplitude = 1 / frequency});
        power += squared(gratings.back().amplitude) / 2;
    }
    for (auto& grating : gratings)
        grating.amplitude *= contrast / std::sqrt(power);
    return SphereGratings(std::move(gratings));
}

void SphereGratings::render(const PictureGeometry& picture,
                            const std::function<void(int y, std::span<const double> codes)>& take) const {
    forEachRowInParallel(picture.height(), [&](int y) {
        const RowSight sight(picture, y);
        std::vector<double> codes(std::size_t(picture.width()), middleGrey);
        for (const auto& grating : gratings_)
            add(grating, sight, codes);
        take(y, codes);
    });
}

} // namespace panoveer::bench
