#pragma once

#include "Panoveer/Model/Records/ExportSettings.h"

#include <cstdint>
#include <optional>

namespace panoveer {

// What the spatial boxes of a movie are to say about its picture. A value.
struct SpatialVideoMetadataRequest {
    enum class ProjectionKind { equirectangular, cubemap };

    struct Projection {
        ProjectionKind kind = ProjectionKind::equirectangular;
        bool hemisphere = false; // the middle half of the sphere's width; equirectangular only

        friend bool operator==(const Projection&, const Projection&) = default;
    };

    // Values of the box "st3d", and one that asks for no video metadata at all.
    enum class StereoMode : std::uint8_t { mono = 0, topBottom = 1, leftRight = 2, audioOnly = 4 };

    Projection projection;
    bool stereoOnly = false; // only the layout of the eyes is written, no projection
    StereoMode stereoMode = StereoMode::mono;

    // The request for an output that is written with single-view boxes; none when nothing is to be said about it.
    // Modes of older projects name projection and layout themselves.
    static std::optional<SpatialVideoMetadataRequest> make(ProjectionFormat outputFormat, StereoVideoLayout layout,
                                                           ExportCodec codec, VRMetadataMode mode);
    // Only audio tracks get boxes.
    static SpatialVideoMetadataRequest audioOnly() { return {{}, false, StereoMode::audioOnly}; }

    bool hasVideo() const { return stereoMode != StereoMode::audioOnly; }
    bool hasStereo() const { return stereoMode == StereoMode::topBottom || stereoMode == StereoMode::leftRight; }
    bool hasProjection() const { return hasVideo() && !stereoOnly; }
    // The first generation has no form for cubemaps and hemispheres.
    bool hasFirstGeneration() const {
        return hasProjection() && projection.kind == ProjectionKind::equirectangular && !projection.hemisphere;
    }

    friend bool operator==(const SpatialVideoMetadataRequest&, const SpatialVideoMetadataRequest&) = default;
};

} // namespace panoveer
