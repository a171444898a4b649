#include "Panoveer/Rendering/Projection/MirrorDomeRaster.h"

#include "Panoveer/Rendering/Projection/ParallelRows.h"
#include "Panoveer/Rendering/Projection/VRMetalProjectionError.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <tuple>

namespace panoveer {

namespace {

// Rows that one thread draws at a time.
constexpr int bandRows = 16;

// Rounding must not leave a gap between two triangles that share an edge. In barycentric coordinates, hence much less
// than a pixel.
constexpr double edgeTolerance = 1e-9;

struct Position {
    double x = 0;
    double y = 0;
};

// Nodes may lie anywhere; beyond this is as good as infinitely far.
double limited(double position) { return std::clamp(position, -1e9, 1e9); }

// The first pixel whose middle is not before a position, and the last whose middle is not behind one.
int firstPixel(double position) { return int(std::ceil(limited(position) - 0.5)); }
int lastPixel(double position) { return int(std::floor(limited(position) - 0.5)); }

} // namespace

MirrorDomeRaster::MirrorDomeRaster(const MirrorDomeWarpMesh& mesh, PictureSize size)
    : size_(size),
      triangles_(mesh.indices.size() / 3),
      pixels_(std::size_t(size.width) * std::size_t(size.height), none) {
    const int bands = (size.height + bandRows - 1) / bandRows;
    std::vector<std::vector<std::int32_t>> trianglesOfBand(static_cast<std::size_t>(bands));
    for (std::size_t i = 0; i < triangles_.size(); ++i) {
        triangles_[i] = makeTriangle(mesh, i);
        const int first = std::max(firstPixel(triangles_[i].top), 0);
        const int last = std::min(lastPixel(triangles_[i].bottom), size.height - 1);
        for (int band = first / bandRows; first <= last && band <= last / bandRows; ++band)
            trianglesOfBand[std::size_t(band)].push_back(std::int32_t(i));
    }
    forEachRowInParallel(bands, [&](int band) {
        drawRows(band * bandRows, std::min((band + 1) * bandRows, size_.height), trianglesOfBand[std::size_t(band)]);
    });
}

MirrorDomeRaster::Triangle MirrorDomeRaster::makeTriangle(const MirrorDomeWarpMesh& mesh, std::size_t index) const {
    const auto vertex = [&](std::size_t corner) -> const MirrorDomeWarpVertex& {
        return mesh.vertices[mesh.indices[index * 3 + corner]];
    };
    std::array<Position, 3> p;
    for (std::size_t i = 0; i < 3; ++i)
        p[i] = {(1 - double(vertex(i).position.x) / double(mesh.aspectRatio)) * 0.5 * size_.width,
                (1 - double(vertex(i).position.y)) * 0.5 * size_.height};

    Triangle triangle;
    std::tie(triangle.left, triangle.right) = std::minmax({p[0].x, p[1].x, p[2].x});
    std::tie(triangle.top, triangle.bottom) = std::minmax({p[0].y, p[1].y, p[2].y});
    const double area = (p[1].x - p[0].x) * (p[2].y - p[0].y) - (p[2].x - p[0].x) * (p[1].y - p[0].y);
    for (std::size_t i = 0; i < 3; ++i) {
        const auto& from = p[(i + 1) % 3];
        const auto& to = p[(i + 2) % 3];
        triangle.weights[i] =
            area == 0 ? Plane{-1, 0, 0}
                      : Plane{(from.x * to.y - to.x * from.y) / area, (from.y - to.y) / area, (to.x - from.x) / area};
    }
    const auto plane = [&](const auto& value) {
        Plane sum;
        for (std::size_t i = 0; i < 3; ++i) {
            sum.origin += triangle.weights[i].origin * value(vertex(i));
            sum.across += triangle.weights[i].across * value(vertex(i));
            sum.down += triangle.weights[i].down * value(vertex(i));
        }
        return sum;
    };
    triangle.u = plane([](const auto& corner) { return double(corner.texCoords.x); });
    triangle.v = plane([](const auto& corner) { return double(corner.texCoords.y); });
    triangle.intensity = plane([](const auto& corner) { return double(corner.intensity); });
    return triangle;
}

void MirrorDomeRaster::drawRows(int first, int last, std::span<const std::int32_t> triangles) {
    for (const auto index : triangles) {
        const auto& triangle = triangles_[std::size_t(index)];
        const int from = std::max(firstPixel(triangle.top), first);
        const int to = std::min(lastPixel(triangle.bottom), last - 1);
        for (int y = from; y <= to; ++y)
            drawSpan(triangle, index, y);
    }
}

void MirrorDomeRaster::drawSpan(const Triangle& triangle, std::int32_t index, int y) {
    const int from = std::max(firstPixel(triangle.left), 0);
    const int to = std::min(lastPixel(triangle.right), size_.width - 1);
    const double middleY = y + 0.5;
    auto* pixels = &pixels_[std::size_t(y) * std::size_t(size_.width)];
    for (int x = from; x <= to; ++x) {
        const double middleX = x + 0.5;
        if (std::ranges::all_of(triangle.weights,
                                [&](const Plane& weight) { return weight.at(middleX, middleY) >= -edgeTolerance; }))
            pixels[x] = index;
    }
}

std::shared_ptr<const MirrorDomeRaster> MirrorDomeRaster::make(const VRTransform& transform, PictureSize size) {
    if (transform.outputFormat != ProjectionFormat::mirrorDome)
        return nullptr;
    const auto mesh = MirrorDomeMeshCacheKey::of(transform);
    if (!mesh)
        throw VRMetalProjectionError(VRMetalProjectionError::Case::libraryUnavailable);
    return std::make_shared<const MirrorDomeRaster>(MirrorDomeWarpMesh::load(mesh->url), size);
}

const MirrorDomeRaster::Triangle* MirrorDomeRaster::triangleAt(double x, double y) const {
    if (!(x >= 0 && x < size_.width && y >= 0 && y < size_.height))
        return nullptr;
    const auto index = pixels_[std::size_t(y) * std::size_t(size_.width) + std::size_t(x)];
    return index == none ? nullptr : &triangles_[std::size_t(index)];
}

} // namespace panoveer
