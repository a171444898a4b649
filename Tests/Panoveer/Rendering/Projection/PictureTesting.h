#pragma once

#include "Panoveer/Model/Records/VRTransform.h"
#include "Panoveer/Rendering/Projection/SphericalTestChart.h"
#include "Platform/Media/PixelBuffer.h"

#include <array>
#include <functional>
#include <ostream>
#include <string>
#include <vector>

// What the tests of projections share: pictures as numbers, and the sizes and names of the formats.
namespace panoveer {

// The samples of one plane as codes of 8 or 10 bits; those of a half-float plane times 255.
std::vector<double> samplesOf(const PixelBuffer& picture, int plane);

struct PictureDifference {
    double psnr = 0;  // dB over all samples, in terms of the format's largest code
    double worst = 0; // codes
    // The share of samples that differ by more than a limit.
    double outlierShare = 0;
};

PictureDifference differenceBetween(const PixelBuffer& a, const PixelBuffer& b, double outlierLimit = 0);

// Straight colours of a BGRA picture become premultiplied ones, as they are seen: what is all but transparent has no
// certain straight colour.
void premultiply(PixelBuffer& picture);

// One sample of a row of a plane, in codes of the picture's depth.
void setSample(PixelBuffer& picture, int plane, int sample, int row, int code);

// Fills every pixel of a BGRA picture with what a function says: B, G, R, A.
void fill(PixelBuffer& picture, const std::function<std::array<int, 4>(int x, int y)>& pixel);

inline constexpr std::array kernelFormats{
    ProjectionFormat::standard,   ProjectionFormat::equirectangular, ProjectionFormat::halfEquirectangular,
    ProjectionFormat::domemaster, ProjectionFormat::cubemap,         ProjectionFormat::eac};
inline constexpr std::array stereoLayouts{StereoVideoLayout::mono, StereoVideoLayout::sideBySide,
                                          StereoVideoLayout::overUnder};
inline constexpr std::array orientations{SourceVideoOrientation::up, SourceVideoOrientation::right,
                                         SourceVideoOrientation::down, SourceVideoOrientation::left};

std::string nameOf(ProjectionFormat format);
std::string nameOf(StereoVideoLayout layout);

// A frame of this format whose eyes are about `height` high, all eyes included.
OutputResolution frameSize(ProjectionFormat format, StereoVideoLayout layout, int height);

// A transform between two formats with an ordinary field of view.
VRTransform transformBetween(ProjectionFormat source, ProjectionFormat output);

// From a format to a mirror dome of 160 by 90, turned about every axis.
VRTransform mirrorDomeFrom(ProjectionFormat source);

// Waves about a radian long, in opposite colours for the two eyes: a scene without edges.
inline constexpr double wavesAmplitude = 0.3;
RGB waves(Direction direction, double footprint, StereoEye eye);

// The test chart as the source of a transform. `softness` is that of its edges, in radians.
PixelBufferPtr chartSource(const VRTransform& transform, FourCC format, int eyeHeight, double softness = 0.03);

// The axes, edges and corners of a cube, which are also the poles and the seam of a sphere and the rims of a half
// sphere and of a fisheye; and places a little beside the poles and on the seam.
std::vector<Direction> seams();

// Turns a source so that the middle of the view shows this direction.
void lookAt(Direction direction, VRTransform& transform);

} // namespace panoveer
