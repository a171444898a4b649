#pragma once

#include "Panoveer/Rendering/Projection/PlaneGeometry.h"
#include "Panoveer/Rendering/Projection/ProjectionMapping.h"
#include "Panoveer/Rendering/Projection/ProjectionRenderer.h"

#include <array>

namespace panoveer {

// Up to four samples of one place of a plane: R, G, B, A; or Y'; or Cb, Cr.
using Texel = std::array<double, 4>;

// A plane of a source picture, seen upright. Colours are premultiplied and 0…1; Y', Cb and Cr stay code values (of 8 or
// of 10 bits).
class SourcePlane {
public:
    // Does not copy: the buffer must live longer.
    SourcePlane(const PixelBuffer& buffer, int plane, SourceVideoOrientation orientation, AlphaMode alphaMode);

    const PlaneGeometry& geometry() const { return geometry_; }
    Texel texel(int column, int row) const;

private:
    const PixelPlane& plane_;
    PlaneGeometry geometry_;
    int channels_;
    int bytesPerSample_;
    AlphaMode alphaMode_;
};

// What `count` neighbouring samples weigh; the sum is 1.
struct ResamplingWeights {
    std::array<double, 8> weight{};
    int count = 2;
    int first = 0; // index of the first sample, relative to the last one not beyond the place
};

// `fraction` is how far the place lies beyond a sample, 0…1; `footprint` how many samples an output pixel covers.
//
// Two taps interpolate linearly. Eight are a sinc in the window of Lanczos with four lobes. Its cutoff follows the
// footprint, so that a picture that gets smaller does not alias: the count of taps stays, and up to four samples the
// kernel trades lobes for width.
ResamplingWeights resamplingWeights(double fraction, int taps, double footprint);

// One value of a plane, with taps that cross a seam taken from where the picture goes on.
Texel sampled(const SourcePlane& plane, const SourceLattice& lattice, const ProjectionMapping::Place& place, int taps);

} // namespace panoveer
