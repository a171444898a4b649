#pragma once

#include "Panoveer/Model/Records/ProjectionFormat.h"
#include "Panoveer/Rendering/Projection/VRProjectionMath.h"

#include <functional>
#include <span>
#include <vector>

namespace panoveer::bench {

// Where the pixels of a picture look. The geometry of the formats that the benchmark uses is written out here once
// more, so that a mistake in the program's own maths cannot hide in the truth that it is measured against.
//
// Positions are in pixels; the middle of the first one is (0.5, 0.5). A dome goes on beyond its circle.
class PictureGeometry {
public:
    // equirectangular, halfEquirectangular, domemaster of 180 degrees, or standard with a vertical field of
    // `fovDegrees`. Turned down by `pitchDegrees` first, then to the right by `yawDegrees`.
    PictureGeometry(ProjectionFormat format, int width, int height, double fovDegrees = 180, double yawDegrees = 0,
                    double pitchDegrees = 0);

    ProjectionFormat format() const { return format_; }
    int width() const { return width_; }
    int height() const { return height_; }

    // Of unit length.
    Direction direction(double x, double y) const;

private:
    Direction unturned(double u, double v) const;

    ProjectionFormat format_;
    int width_;
    int height_;
    double tangent_; // of half the vertical field of a flat picture
    Direction right_;
    Direction up_;
    Direction forward_;
};

// A plane wave in space; where it meets the unit sphere it is a grating of up to `frequency` cycles per radian.
struct Grating {
    Direction axis; // of unit length
    double frequency = 0;
    double phase = 0;     // turns
    double amplitude = 0; // luma codes
};

// A grey scene that is known exactly in every direction, and has as much to show in one as in another: at each place
// gratings of many orientations and frequencies lie over each other. A value; safe from any thread.
class SphereGratings {
public:
    explicit SphereGratings(std::vector<Grating> gratings) : gratings_(std::move(gratings)) {}

    // The scene of the benchmark: 24 gratings around a grey of 125.5, halfway between black and white. Their
    // frequencies are spaced evenly from a tenth of the one given up to it, and amplitudes fall as 1 / frequency, as in
    // pictures of the world. The axes are a Fibonacci lattice on a half sphere, the phases multiples of the golden
    // ratio; the frequencies are dealt out to them in steps of 7, so that no region has only fine ones or coarse ones.
    // `contrast` is the root mean square of the deviation from grey, in luma codes: up to 19, nothing leaves 16…235.
    static SphereGratings upTo(double cyclesPerRadian, double contrast);

    // Luma codes, 8-bit video range, unrounded: of a picture's rows, each pixel the mean over its area. `take` is
    // called for every row, from several threads at once.
    void render(const PictureGeometry& picture,
                const std::function<void(int y, std::span<const double> codes)>& take) const;

private:
    std::vector<Grating> gratings_;
};

} // namespace panoveer::bench
