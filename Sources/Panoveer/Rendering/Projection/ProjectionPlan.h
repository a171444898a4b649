#pragma once

#include "Panoveer/Model/Records/VRTransform.h"
#include "Panoveer/Rendering/Projection/SampleMap.h"
#include "Platform/Core/FourCC.h"
#include "Platform/Media/PixelBuffer.h"

#include <optional>
#include <vector>

namespace panoveer {

// What decides how pictures are read: two that have the same are read alike.
struct ProjectionPlanKey {
    VRTransform transform;
    FourCC sourceFormat;
    PictureSize sourceSize; // as stored
    SourceVideoOrientation orientation = SourceVideoOrientation::up;
    FourCC outputFormat;
    PictureSize outputSize;
    int taps = 8;
    // Y'CbCr stays what it is, so that luma and chroma are read each for itself.
    bool keepsYCbCr = false;

    friend bool operator==(const ProjectionPlanKey&, const ProjectionPlanKey&) = default;
};

// The maps that a picture is read through. A plan with keepsYCbCr has one for each plane; else colours are needed at
// each place, and with a Y'CbCr source therefore both planes.
//
//                       output's pixels           output's chroma samples
//   keepsYCbCr          luma                      chroma
//   Y'CbCr to Y'CbCr    luma, chroma              luma, chroma
//   Y'CbCr to colour    luma, chroma
//   BGRA to Y'CbCr      BGRA                      BGRA
//   BGRA to colour      BGRA
//
// Immutable, safe from any thread.
struct ProjectionPlan {
    struct Reading {
        std::optional<SampleMap> primary; // of luma or BGRA
        std::optional<SampleMap> chroma;
        // What each sample is multiplied with, row by row, for a mirror dome; else empty.
        std::vector<float> intensity;
    };

    // The output is made in blocks of this many pixels along each side, and of the chroma samples within them.
    static constexpr int blockSize = 64;

    // Takes some nanoseconds for each output sample, on all processors. Throws as ProjectionMapping and SampleMap do.
    explicit ProjectionPlan(const ProjectionPlanKey& key);

    ProjectionPlanKey key;
    Reading atPixels;
    Reading atChroma;

    std::size_t byteCount() const;
};

} // namespace panoveer
