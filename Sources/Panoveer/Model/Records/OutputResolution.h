#pragma once

#include "Panoveer/Model/Records/ProjectionFormat.h"

#include <cstdint>

namespace panoveer {

// Pixels of the whole output frame, both eyes included.
struct OutputResolution {
    std::int64_t width = 0;
    std::int64_t height = 0;

    // The largest side that any output may have, per eye for a stereo frame twice that over its doubled side.
    static constexpr std::int64_t maximumDimension = 16384;

    // The nearest size that the format allows: even, in proportion, within bounds. For a stereo layout the eye is
    // validated with half the maximum and the frame rebuilt from it.
    static OutputResolution validated(ProjectionFormat format, StereoVideoLayout layout, std::int64_t maximum,
                                      std::int64_t width, std::int64_t height);

    // The size of one eye, each side at least 1.
    OutputResolution eyeResolution(StereoVideoLayout layout) const;

    friend bool operator==(const OutputResolution&, const OutputResolution&) = default;
};

} // namespace panoveer
