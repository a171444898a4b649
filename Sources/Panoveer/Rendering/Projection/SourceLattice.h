#pragma once

#include "Panoveer/Rendering/Projection/VRProjectionMath.h"

#include <optional>

namespace panoveer {

struct PictureSize {
    int width = 0;
    int height = 0;

    friend bool operator==(const PictureSize&, const PictureSize&) = default;
};

// Edges in pixels: the pixel in column i spans i…i+1.
struct PixelArea {
    double left = 0;
    double top = 0;
    double right = 0;
    double bottom = 0;

    bool contains(double x, double y) const { return x >= left && x < right && y >= top && y < bottom; }
};

// A place in the upright source picture, in pixels: the middle of the first pixel is (0.5, 0.5).
struct SourcePlace {
    int half = 0; // which of the images of a stereo source
    int face = 0; // of a cube map
    double x = 0;
    double y = 0;
};

// Where directions lie in a source picture, and how the picture goes on where one of its images or faces ends.
// A value; safe from any thread.
//
//   side by side       over under        cube maps have 3 by 2 faces within each image
//   +-----+-----+      +---------+
//   |  0  |  1  |      |    0    |
//   +-----+-----+      +---------+
//                      |    1    |
//                      +---------+
class SourceLattice {
public:
    // `upright` is the size of the whole source after its orientation is settled; the aspect is that of one output eye.
    SourceLattice(const VRTransform& transform, PictureSize upright, double outputAspect);

    // No value where the source shows nothing.
    std::optional<SourcePlace> place(Direction direction, int half) const;

    // The place on a given face, which may lie beyond the face's edges as long as the face points that way. For other
    // sources, the place without the limits of the image.
    SourcePlace unlimitedPlace(Direction direction, int half, int face) const;

    // The inverse of place(), for every place of the picture that shows something.
    std::optional<Direction> direction(const SourcePlace& place) const;
    // The half and face that a place of the picture belongs to.
    SourcePlace placeAt(double x, double y) const;

    // What pixels around a place may be blended directly: its image, or its face of a cube map.
    PixelArea area(const SourcePlace& place) const;

    // False in the corners around a fisheye's circle, where a picture has no more to say than beyond its edges.
    bool isWithinCircle(const SourcePlace& place) const;

    // Where a place that may not be blended directly really is: on the sphere, an equirectangular picture goes on at
    // its other side and over its poles, and a cube's face on the faces around it. Around a fisheye's circle it is the
    // nearest place that lies within the circle by `inset` pixels. A place of another source stays where it is.
    SourcePlace resolved(const SourcePlace& place, double inset) const;
    // True when pictures go on where their areas end, at places between the samples.
    bool continuesBeyondArea() const { return isCube() || wrapsHorizontally(); }
    // True when the columns go round.
    bool wrapsHorizontally() const { return format_ == ProjectionFormat::equirectangular; }

private:
    struct FaceFrame {
        double left = 0;
        double top = 0;
        double width = 0;
        double height = 0;
    };
    PixelArea eyeArea(int half) const;
    FaceFrame faceFrame(int half, int face) const;
    ImagePoint fromFisheyeCenter(const SourcePlace& place) const;
    bool isCube() const { return format_ == ProjectionFormat::cubemap || format_ == ProjectionFormat::eac; }

    ProjectionFormat format_;
    StereoVideoLayout stereoLayout_;
    PictureSize upright_;
    PictureSize eye_;
    double fisheyeHalfAngle_; // radians from the axis to the circle's edge
    FisheyeTextureParameters fisheye_;
    VRProjectionMath::StandardSourceScreen screen_;
};

} // namespace panoveer
