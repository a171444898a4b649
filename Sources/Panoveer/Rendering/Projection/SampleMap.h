#pragma once

#include "Panoveer/Rendering/Projection/PlaneGeometry.h"
#include "Panoveer/Rendering/Projection/ProjectionMapping.h"

#include <cstdint>
#include <span>
#include <vector>

namespace panoveer {

// Where the samples of an output plane lie in the output picture: sample i at origin + i * pitch, in its pixels.
struct OutputGrid {
    int width = 0; // samples
    int height = 0;
    double originX = 0.5;
    double originY = 0.5;
    Footprint pitch; // pixels, which is also what one sample covers

    friend bool operator==(const OutputGrid&, const OutputGrid&) = default;
};

// Where one output sample is read: a square window of source samples, and which kernels weigh them.
struct SampleEntry {
    // The window's first sample, column | row << 16 in the stored plane; or, of a tile, number << 6 | row << 3 |
    // column.
    std::uint32_t window;
    // Kernel across | kernel down << 15 | isTile << 30: numbers of ResamplingKernels, or phases for two taps.
    std::uint32_t kernels;

    int column() const { return int(window & 0xffff); }
    int row() const { return int(window >> 16); }
    bool isTile() const { return (kernels >> 30) != 0; }
    int tile() const { return int(window >> 6); }
    int columnInTile() const { return int(window & 7); }
    int rowInTile() const { return int(window >> 3 & 7); }
    int across() const { return int(kernels & 0x7fff); }
    int down() const { return int(kernels >> 15 & 0x7fff); }
};

// One way in which to read all samples of an output plane from a source plane: a transform worked out once, for every
// picture that follows. Immutable after construction, safe from any thread.
//
// Windows that leave their image, face or circle read from a tile instead: 16 by 16 samples around the place, put
// together anew for each picture from where the source really goes on. So the inner loop knows no edges.
//
//        plane                         tile
//   ------------+                 +----------+
//      +--------+--+  window      | copied :r|   r: from the other side of the seam, over the pole,
//      |        |  |              |        :r|      from the next face, or the nearest within the circle
//      +--------+--+              |        :r|
//   ------------+                 +----------+
class SampleMap {
public:
    static constexpr int tileSize = 16; // samples along each side
    static constexpr int tileStep = 8;  // between tiles; a window of 8 that begins within it lies within the tile
    static constexpr int largestPlane = 1 << 16; // samples along each side, for what an entry can hold

    // `taps` is 2 or 8. `sampleSize` decides into how many parts a pixel is divided (ProjectionMapping::division). The
    // grid is cut into blocks of `blockSize` samples. Throws Error (mediaErrorDomain) for a plane beyond the largest.
    SampleMap(const ProjectionMapping& mapping, const PlaneGeometry& plane, const OutputGrid& grid, int taps,
              Footprint sampleSize, PictureSize blockSize);

    // Neighbouring samples of a row that are read in the same way. The spans of a row cover all of it.
    struct Span {
        int begin = 0; // columns of the block
        int end = 0;
        int division = 0; // 0: the source shows nothing here; else each sample is the mean of division² entries
        std::uint32_t firstEntry = 0;
    };
    // A rectangle of samples, that is worked on as one: what it reads of the source lies close together, whichever way
    // the source is turned, and so does what it reads of the map.
    struct Block {
        int left = 0; // samples of the grid
        int top = 0;
        int width = 0;
        int height = 0;
        std::vector<std::uint32_t> firstSpans; // of each row, and one more
        std::vector<Span> spans;
        std::vector<SampleEntry> entries;

        std::span<const Span> row(int index) const {
            const auto* first = spans.data() + firstSpans[std::size_t(index)];
            return {first, spans.data() + firstSpans[std::size_t(index) + 1]};
        }
    };
    // In rows from the top left.
    int blockCount() const { return int(blocks_.size()); }
    const Block& block(int index) const { return blocks_[std::size_t(index)]; }
    int taps() const { return taps_; }

    // How a tile's samples come about, row by row: a linear blend of four samples of the plane.
    struct TileSample {
        std::uint16_t columns[2];
        std::uint16_t rows[2];
        std::uint16_t fractionX; // in 1/256
        std::uint16_t fractionY;
    };
    int tileCount() const { return int(tileSamples_.size() / (tileSize * tileSize)); }
    const TileSample* tile(int index) const { return tileSamples_.data() + std::size_t(index) * tileSize * tileSize; }

    std::size_t byteCount() const;

private:
    class Builder;

    int taps_;
    std::vector<Block> blocks_;
    std::vector<TileSample> tileSamples_;
};

} // namespace panoveer
