#include "Support/SyntheticWorld.h"

#include "Panoveer/Services/Intake/ImmersiveFrameSampler.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>
#include <random>

namespace panoveer::test {

namespace {

constexpr double eyeHeight = 1.6;     // metres above the ground
constexpr double eyeDistance = 0.065; // metres
constexpr double roomHeight = 3.2;    // metres
constexpr double never = std::numeric_limits<double>::infinity();

// 0…1, the same on every machine.
class Dice {
public:
    explicit Dice(std::uint32_t seed) : engine_(seed) {}
    double operator()() { return double(engine_()) / 4294967296.0; }
    double between(double low, double high) { return low + (high - low) * (*this)(); }
    Direction place(double range) { return {between(-range, range), between(-range, range), between(-range, range)}; }

private:
    std::mt19937 engine_;
};

double hashed(std::int64_t x, std::int64_t y, std::int64_t z) {
    auto h = std::uint64_t(x) * 0x9e3779b97f4a7c15u ^ std::uint64_t(y) * 0xc2b2ae3d27d4eb4fu ^
             std::uint64_t(z) * 0x165667b19e3779f9u;
    h = (h ^ h >> 29) * 0xbf58476d1ce4e5b9u;
    h = (h ^ h >> 32) * 0x94d049bb133111ebu;
    return double(h >> 40) / double(1 << 24);
}

// Value noise: -1…1, smooth, of about one cycle in two units.
double noiseAt(Direction p) {
    const double fx = std::floor(p.x), fy = std::floor(p.y), fz = std::floor(p.z);
    const auto x = std::int64_t(fx), y = std::int64_t(fy), z = std::int64_t(fz);
    const auto eased = [](double t) { return t * t * (3 - 2 * t); };
    const double u = eased(p.x - fx), v = eased(p.y - fy), w = eased(p.z - fz);
    const auto edge = [&](int dy, int dz) {
        return std::lerp(hashed(x, y + dy, z + dz), hashed(x + 1, y + dy, z + dz), u);
    };
    return std::lerp(std::lerp(edge(0, 0), edge(1, 0), v), std::lerp(edge(0, 1), edge(1, 1), v), w) * 2 - 1;
}

// The nearer of the two places where a ray meets a ball, or a round column when `vertical` is 0.
double distanceToRound(Direction origin, Direction direction, Direction center, double radius, double vertical) {
    const Direction from{origin.x - center.x, (origin.y - center.y) * vertical, origin.z - center.z};
    const Direction along{direction.x, direction.y * vertical, direction.z};
    const double a = VRProjectionMath::dot(along, along), b = VRProjectionMath::dot(from, along);
    const double c = VRProjectionMath::dot(from, from) - radius * radius;
    const double discriminant = b * b - a * c;
    if (discriminant < 0 || a == 0)
        return never;
    const double distance = (-b - std::sqrt(discriminant)) / a;
    return distance > 0 ? distance : never;
}

// Along one axis, to the wall ahead.
double distanceToWall(double origin, double direction, double wall) {
    return direction == 0 ? never : (std::copysign(wall, direction) - origin) / direction;
}

} // namespace

SyntheticWorld::SyntheticWorld(std::uint32_t seed, StereoRig rig, bool isNight, int step)
    : rig_(rig), darkness_(isNight ? 0.12 : 1) {
    Dice dice(seed * 7919 + 17);
    isRoom_ = dice() < 0.4;
    roomWidth_ = dice.between(2.5, 5);
    roomDepth_ = dice.between(2.5, 6);
    shift_ = dice.place(1000);
    constexpr int thingCount = 16;
    for (int i = 0; i < thingCount; ++i) {
        // All the way round, near ones and far ones in turn.
        const double angle = 2 * std::numbers::pi * (i + dice.between(-0.4, 0.4)) / thingCount;
        const double distance = i % 2 == 0 ? dice.between(1.1, 2.2) : dice.between(2, isRoom_ ? 4 : 12);
        Thing thing;
        thing.center = {distance * std::sin(angle), dice.between(0.2, 2.6), distance * std::cos(angle)};
        thing.radius = dice.between(0.08, 0.2) * distance;
        thing.isColumn = dice() < 0.4;
        const bool isLamp = isNight && i % 4 == 0;
        thing.light = isLamp ? 0.9 / darkness_ : dice.between(0.25, 0.9);
        thing.detail = dice.between(2, 6) / distance;
        thing.shift = dice.place(1000);
        things_.push_back(thing);
    }
    viewer_ = {0.12 * step, eyeHeight, 0.2 * step};
}

SyntheticWorld::Hit SyntheticWorld::nearestHit(Direction origin, Direction direction) const {
    Hit hit{never, 0.75, 1, shift_};
    const auto meet = [&](double distance, double light, double detail, Direction shift) {
        if (distance > 0 && distance < hit.distance)
            hit = {distance, light, detail, shift};
    };
    if (direction.y < 0)
        meet(-origin.y / direction.y, 0.4, 1.2, shift_);
    if (isRoom_) {
        if (direction.y > 0)
            meet((roomHeight - origin.y) / direction.y, 0.8, 0.7, shift_);
        meet(distanceToWall(origin.x, direction.x, roomWidth_), 0.6, 0.8, shift_);
        meet(distanceToWall(origin.z, direction.z, roomDepth_), 0.5, 0.8, shift_);
    }
    for (const auto& thing : things_)
        meet(distanceToRound(origin, direction, thing.center, thing.radius, thing.isColumn ? 0 : 1), thing.light,
             thing.detail, thing.shift);
    return hit;
}

// Several sizes of spots, as far as a sample of that size, in metres, can tell them.
double SyntheticWorld::texture(Direction place, const Hit& hit, double size) const {
    constexpr int octaves = 6;
    double sum = 0, strength = 0.3;
    double frequency = hit.detail;
    for (int octave = 0; octave < octaves; ++octave, strength *= 0.75, frequency *= 2) {
        const double visible = std::clamp(1.5 - 2 * frequency * size, 0.0, 1.0);
        if (visible == 0)
            break;
        sum += strength * visible * noiseAt(place * frequency + hit.shift);
    }
    return sum;
}

RGB SyntheticWorld::operator()(Direction direction, double footprint, StereoEye eye) const {
    auto d = VRProjectionMath::normalized(direction);
    const double side = eye == StereoEye::left ? -eyeDistance / 2 : eyeDistance / 2;
    // Towards the poles the eyes of an omnidirectional rig come together, or up and down would have no picture.
    const Direction offset =
        rig_ == StereoRig::omnidirectional ? Direction{d.z * side, 0, -d.x * side} : Direction{side, 0, 0};
    if (convergence > 0)
        d = VRProjectionMath::normalized({d.x - side / convergence * d.z, d.y, d.z});
    const auto origin = viewer_ + offset;
    const auto hit = nearestHit(origin, d);
    // The sky has no distance: it is a dome of texture.
    const bool isSky = hit.distance == never;
    const auto place = isSky ? d * 4 : origin + d * hit.distance;
    const double size = footprint * (isSky ? 4 : hit.distance);
    const double grey = std::clamp(hit.light * darkness_ * (1 + texture(place, hit, size)), 0.0, 1.0);
    return {grey, grey, grey};
}

namespace {

bool looksAllAround(ProjectionFormat format) {
    return format == ProjectionFormat::equirectangular || format == ProjectionFormat::cubemap ||
           format == ProjectionFormat::eac;
}

VRTransform transformOf(const SyntheticClip& clip, int height) {
    VRTransform transform;
    transform.sourceFormat = clip.projection;
    transform.sourceStereoLayout = clip.stereoLayout;
    transform.sourceEyesSwapped = clip.eyesSwapped;
    transform.fisheyeCircle = clip.circle;
    transform.domemasterThetaDegrees = clip.fisheyeDegrees;
    transform.outputResolution =
        OutputResolution{clip.width, height}.eyeResolution(clip.stereoLayout); // the shape of a flat screen
    return transform;
}

// As a camera spoils it: black bars, lifted black, noise, and eight bits.
GrayscaleImage recorded(const GrayscaleImage& picture, const SyntheticClip& clip, std::uint32_t seed) {
    Dice dice(seed);
    std::vector<float> pixels(std::size_t(clip.width) * std::size_t(clip.height));
    const auto bar = pixels.begin() + std::ptrdiff_t(clip.width) * ((clip.height - picture.height()) / 2);
    std::ranges::copy(picture.pixels(), bar);
    for (auto& pixel : pixels) {
        // Four throws are near enough to a Gaussian; their variance is a third.
        const double error = dice() + dice() + dice() + dice() - 2;
        const double value = clip.blackLevel + pixel * (1 - clip.blackLevel) + error * std::sqrt(3.0) * clip.noise;
        pixel = float(std::round(std::clamp(value, 0.0, 1.0) * 255) / 255);
    }
    return GrayscaleImage(clip.width, clip.height, std::move(pixels));
}

} // namespace

std::vector<GrayscaleImage> sampleFrames(const SyntheticClip& clip, int count) {
    const int height = clip.height - 2 * int(std::lround(clip.height * clip.barHeight));
    const auto rig = looksAllAround(clip.projection) ? StereoRig::omnidirectional : StereoRig::parallel;
    const auto picture = PixelBuffer::make(pixelFormat::bgra, clip.width, height);
    std::vector<GrayscaleImage> frames;
    for (int step = 0; step < count; ++step) {
        SyntheticWorld world(clip.seed, rig, clip.isNight, step);
        if (clip.projection == ProjectionFormat::standard)
            world.convergence = 6;
        paintAsSource(world, transformOf(clip, height), *picture);
        frames.push_back(
            recorded(ImmersiveFrameSampler::grayscale(*picture), clip, clip.seed * 31 + std::uint32_t(step)));
    }
    return frames;
}

} // namespace panoveer::test
