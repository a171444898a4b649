#pragma once

#include "Panoveer/Rendering/Projection/SphericalTestChart.h"
#include "Panoveer/Services/Intake/GrayscaleImage.h"

#include <cstdint>
#include <vector>

// Sample frames of a world with texture and depth, seen by any camera: material whose format is known for certain. No
// part of it is flat and no two directions look alike, as in pictures of the real world.
namespace panoveer::test {

// How the two eyes stand: side by side looking ahead, as VR180 and film cameras do, or looking along every direction
// afresh, as 360 degree stereo is stitched.
enum class StereoRig { parallel, omnidirectional };

// Grass or a room, with columns and balls of all sizes around the viewer, and a sky or a ceiling above. A value; safe
// from any thread.
class SyntheticWorld {
public:
    // Another seed is another world. At night, lamps are all that is bright. `step` moves the viewer a little.
    SyntheticWorld(std::uint32_t seed, StereoRig rig, bool isNight = false, int step = 0);

    // Distance at which both eyes of a parallel rig see the same place of the picture, in metres; 0: none.
    double convergence = 0;

    // What an eye sees, as SphericalScene.
    RGB operator()(Direction direction, double footprint, StereoEye eye) const;

private:
    struct Thing {
        Direction center;  // metres, seen from the viewer's feet
        double radius = 1; // metres
        bool isColumn = false;
        double light = 1;
        double detail = 1; // cycles a metre of its coarsest texture
        Direction shift;   // of its texture
    };
    struct Hit {
        double distance;
        double light;
        double detail;
        Direction shift;
    };

    Hit nearestHit(Direction origin, Direction direction) const;
    double texture(Direction place, const Hit& hit, double size) const;

    std::vector<Thing> things_;
    StereoRig rig_;
    Direction viewer_;
    double darkness_; // what daylight is multiplied by
    bool isRoom_;
    double roomWidth_;
    double roomDepth_;
    Direction shift_;
};

// One clip and how it was recorded.
struct SyntheticClip {
    std::uint32_t seed = 1;
    ProjectionFormat projection = ProjectionFormat::standard;
    StereoVideoLayout stereoLayout = StereoVideoLayout::mono;
    bool eyesSwapped = false;
    int width = 0; // pixels of the whole frame
    int height = 0;
    FisheyeCircle circle = {};   // of a domemaster
    double fisheyeDegrees = 180; // of a domemaster
    bool isNight = false;
    double noise = 0;      // standard deviation, of white 1
    double blackLevel = 0; // what black is lifted to
    double barHeight = 0;  // fraction of the frame, of the black bars above and below
};

// Frames of the clip in their order, in 8 bits as a decoder gives them.
std::vector<GrayscaleImage> sampleFrames(const SyntheticClip& clip, int count = 3);

} // namespace panoveer::test
