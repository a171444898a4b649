#pragma once

#include <array>
#include <cstdint>
#include <vector>

namespace panoveer {

// The weights of resamplingWeights() for eight taps, rounded for integer arithmetic, for every phase and footprint that
// the engine on the processor tells apart. Made once, read from any thread.
//
// A phase is 1/256 of a sample: the place that is off by half of it costs less than -60 dB at the highest frequencies.
// Footprints of 1…4 samples fall into 64 widths, each 2.2 % wider than the one before: too little to be seen.
class ResamplingKernels {
public:
    static constexpr int taps = 8;
    static constexpr int firstTap = -3; // relative to the last sample not beyond the place
    static constexpr int phases = 256;  // phase 256 is a place on the next sample; mirroring turns 0 into it
    static constexpr int widths = 64;
    static constexpr int unit = 1 << 14; // the sum of a vertical kernel

    static const ResamplingKernels& shared();

    static int widthIndex(double footprint);

    // Where the weights of a phase and a width lie: below 2^15.
    static constexpr int index(int phase, int width) { return width * (phases + 1) + phase; }

    // Eight weights in units of 1/16384; their sum is exact, so that even areas keep their value.
    const std::int16_t* vertical(int index) const { return vertical_[std::size_t(index)].data(); }
    // Eight weights, each repeated for every channel of a sample: w0 w0 w1 w1 … for two.
    template<int channels>
    const float* horizontal(int index) const {
        static_assert(channels == 1 || channels == 2 || channels == 4);
        return horizontal_[channels / 2].data() + std::size_t(index) * (taps * channels);
    }

private:
    ResamplingKernels();
    struct alignas(16) Weights : std::array<std::int16_t, taps> {};
    std::vector<Weights> vertical_;
    std::array<std::vector<float>, 3> horizontal_; // for one, two and four channels
};

} // namespace panoveer
