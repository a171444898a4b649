#pragma once

#include "Panoveer/Services/Export/ExportOutputDescriptor.h"

#include <cstdint>
#include <optional>

namespace panoveer {

// What a staged movie must turn out to be, as the exporter planned it.
struct ExportMovieValidationExpectation {
    double durationSeconds = 0; // sum of the segments
    std::int64_t width = 0;     // pixels of the whole frame, both eyes included
    std::int64_t height = 0;
    ExportCodec codec = ExportCodec::hevc10;
    std::optional<double> frameRate; // frames per second
    bool checksStereoLayers = false; // both eyes must have a layer
    std::int64_t audioTrackCount = 0;
    ExportColorMode colorMode = ExportColorMode::convertToSDR;

    // How far the movie's duration may be off: two frames, counted at one frame per second or more, and never less
    // than 0.15 seconds.
    double durationTolerance() const;

    friend bool operator==(const ExportMovieValidationExpectation&, const ExportMovieValidationExpectation&) = default;
};

// The expectation of a planned movie that was given so many audio tracks.
ExportMovieValidationExpectation movieValidationExpectation(const ExportOutputDescriptor& descriptor,
                                                            std::int64_t audioTrackCount = 0);

} // namespace panoveer
