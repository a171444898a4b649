#include "Panoveer/Rendering/Projection/MirrorDomeGridMapper.h"

#include <algorithm>
#include <cmath>

namespace panoveer {

namespace {

constexpr double smallestArea = 1e-12; // twice a triangle's, in the fisheye picture
constexpr double edgeTolerance = 1e-5; // in barycentric coordinates
constexpr double darkest = 0.001;

bool isWithinPicture(double u, double v) { return u >= 0 && u <= 1 && v >= 0 && v <= 1; }

} // namespace

MirrorDomeGridMapper::MirrorDomeGridMapper(const MirrorDomeWarpMesh& mesh)
    : aspectRatio_(double(mesh.aspectRatio)), buckets_(std::size_t(bucketCount) * bucketCount) {
    const auto corner = [&](std::size_t index) {
        const auto& vertex = mesh.vertices[mesh.indices[index]];
        return Corner{{vertex.texCoords.x, vertex.texCoords.y}, vertex.position.x, vertex.position.y, vertex.intensity};
    };
    triangles_.reserve(mesh.indices.size() / 3);
    for (std::size_t i = 0; i + 2 < mesh.indices.size(); i += 3)
        triangles_.push_back({corner(i), corner(i + 1), corner(i + 2)});
    buildBuckets();
}

int MirrorDomeGridMapper::bucket(double coordinate) {
    return std::min(int(std::clamp(coordinate, 0.0, 1.0) * bucketCount), bucketCount - 1);
}

void MirrorDomeGridMapper::buildBuckets() {
    for (std::uint32_t i = 0; i < triangles_.size(); ++i) {
        const auto& [a, b, c] = triangles_[i];
        const auto [left, right] = std::minmax({a.uv.u, b.uv.u, c.uv.u});
        const auto [top, bottom] = std::minmax({a.uv.v, b.uv.v, c.uv.v});
        for (int y = bucket(top); y <= bucket(bottom); ++y)
            for (int x = bucket(left); x <= bucket(right); ++x)
                buckets_[std::size_t(y * bucketCount + x)].push_back(i);
    }
}

std::vector<std::uint32_t> MirrorDomeGridMapper::neighbours(int x, int y) const {
    std::vector<std::uint32_t> found;
    for (int row = std::max(y - 1, 0); row <= std::min(y + 1, bucketCount - 1); ++row)
        for (int column = std::max(x - 1, 0); column <= std::min(x + 1, bucketCount - 1); ++column)
            found.insert(found.end(), bucketAt(column, row).begin(), bucketAt(column, row).end());
    return found;
}

std::optional<ImagePoint> MirrorDomeGridMapper::project(ImagePoint fisheyeUV) const {
    const auto [u, v] = fisheyeUV;
    if (!isWithinPicture(u, v))
        return std::nullopt;
    const auto& own = bucketAt(bucket(u), bucket(v));
    const auto around = own.empty() ? neighbours(bucket(u), bucket(v)) : std::vector<std::uint32_t>();
    for (const auto index : own.empty() ? around : own) {
        const auto& [p0, p1, p2] = triangles_[index];
        const double d = (p0.uv.u - p2.uv.u) * (p1.uv.v - p2.uv.v) + (p0.uv.v - p2.uv.v) * (p2.uv.u - p1.uv.u);
        if (std::abs(d) <= smallestArea)
            continue;
        const double a = ((p1.uv.v - p2.uv.v) * (u - p2.uv.u) + (p2.uv.u - p1.uv.u) * (v - p2.uv.v)) / d;
        const double b = ((p2.uv.v - p0.uv.v) * (u - p2.uv.u) + (p0.uv.u - p2.uv.u) * (v - p2.uv.v)) / d;
        const double c = 1 - a - b;
        if (std::min({a, b, c}) < -edgeTolerance)
            continue;
        if (a * p0.intensity + b * p1.intensity + c * p2.intensity <= darkest)
            return std::nullopt;
        const double x = a * p0.x + b * p1.x + c * p2.x;
        const double y = a * p0.y + b * p1.y + c * p2.y;
        const ImagePoint output{(1 - x / std::max(aspectRatio_, 0.0001)) * 0.5, (1 - y) * 0.5};
        return isWithinPicture(output.u, output.v) ? std::optional(output) : std::nullopt;
    }
    return std::nullopt;
}

} // namespace panoveer
