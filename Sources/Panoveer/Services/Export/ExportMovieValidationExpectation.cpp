#include "Panoveer/Services/Export/ExportMovieValidationExpectation.h"

#include <algorithm>

namespace panoveer {

double ExportMovieValidationExpectation::durationTolerance() const {
    constexpr double minimum = 0.15;
    return frameRate ? std::max(2 / std::max(*frameRate, 1.0), minimum) : minimum;
}

ExportMovieValidationExpectation movieValidationExpectation(const ExportOutputDescriptor& descriptor,
                                                            std::int64_t audioTrackCount) {
    ExportMovieValidationExpectation expectation;
    for (const auto& segment : descriptor.segments)
        expectation.durationSeconds += std::max(segment.end - segment.start, 0.0);
    expectation.width = descriptor.resolution.width;
    expectation.height = descriptor.resolution.height;
    expectation.codec = descriptor.codec;
    expectation.frameRate = descriptor.targetFrameRate ? descriptor.targetFrameRate : descriptor.frameRate;
    expectation.checksStereoLayers = properties(descriptor.codec).isMultiviewStereo;
    expectation.audioTrackCount = audioTrackCount;
    expectation.colorMode = descriptor.colorMode;
    return expectation;
}

} // namespace panoveer
