#pragma once

#include "Panoveer/Model/Records/ProjectionFormat.h"
#include "Panoveer/Model/Records/VRTransform.h"
#include "Panoveer/Services/Intake/GrayscaleImage.h"

#include <optional>
#include <span>

namespace panoveer {

// How alike the two halves of a picture are, at the best shift of one against the other.
struct StereoMatch {
    double correlation = -1;    // -1…1
    double horizontalShift = 0; // fraction of a view's width

    friend bool operator==(const StereoMatch&, const StereoMatch&) = default;
};

struct PixelPoint {
    double x = 0;
    double y = 0;
};

// In pixels.
struct PixelCircle {
    double x = 0;
    double y = 0;
    double radius = 0;
};

// What sample frames tell of projection and eyes. Pure functions, any thread; no picture makes them fail. No value
// means that the picture does not say.
namespace ImmersiveImageAnalysis {

// The correlation of the columns of `a` from `shift` on with those of `b` from 0 on. -1 when they share no more than
// half of a's width, when either is flat there, and for pictures of different heights.
double normalizedCrossCorrelation(const GrayscaleImage& a, const GrayscaleImage& b, int shift);

// How well a frame's halves match as the two eyes of a layout. No value for a flat half.
std::optional<StereoMatch> stereoMatch(const GrayscaleImage& frame, StereoVideoLayout layout);

// Whether the left and right edges of a view show the same place, as those of a whole sphere do.
std::optional<bool> wrapsAround(const GrayscaleImage& view);

// Whether the first view of a layout is the left eye's: what is near lies further to the right in it.
std::optional<bool> firstViewIsLeftEye(const GrayscaleImage& frame, StereoVideoLayout layout);

// The circle with the least sum of squared algebraic distances. None for fewer than three points or points in a line.
std::optional<PixelCircle> fitCircle(std::span<const PixelPoint> points);

// The image circle of a fisheye: bright in the middle, dark in all corners, with a round edge between.
std::optional<FisheyeCircle> fisheyeCircle(const GrayscaleImage& image);

std::optional<FisheyeCircle> averageCircle(std::span<const FisheyeCircle> circles);

} // namespace ImmersiveImageAnalysis

} // namespace panoveer
