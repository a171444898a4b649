#pragma once

#include "Panoveer/Rendering/Projection/SampleMap.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace panoveer {

// Samples in memory: of 8 or of 16 bits, in one, two or four interleaved channels.
struct SampleView {
    const std::byte* data = nullptr;
    std::size_t rowBytes = 0;
    int channels = 1;
    int bytesPerSample = 1;

    const std::byte* at(int column, int row) const {
        return data + std::size_t(row) * rowBytes + std::size_t(column) * std::size_t(channels * bytesPerSample);
    }
};

// What one picture puts into the tiles of a map. Filled before its rows are read.
class TileSamples {
public:
    TileSamples(const SampleMap& map, const SampleView& plane);
    TileSamples(TileSamples&&) = default; // the view goes on showing the same bytes
    TileSamples& operator=(TileSamples&&) = default;

    // Different tiles may be filled from different threads.
    void fill(const SampleMap& map, const SampleView& plane, int tile);
    SampleView view() const { return view_; }

private:
    std::vector<std::byte> bytes_;
    SampleView view_; // all tiles below each other
};

// Reads a plane through a map, with the best instructions that the processor has. Values come out as the samples hold
// them: 0…255 of eight bits, 0…65535 of sixteen, not limited where the kernel overshoots. Stateless; safe from any
// thread.
namespace PlaneResampler {

// A row of a block. `values` takes channels numbers for each sample; samples without a source get `background`, one for
// each channel.
void resample(const SampleMap& map, const SampleMap::Block& block, int row, const SampleView& plane,
              const SampleView& tiles, const float* background, float* values);

// The instruction set in use: "AVX3", "AVX2", "SSE4", "NEON", …
const char* instructionSet();

} // namespace PlaneResampler

} // namespace panoveer
