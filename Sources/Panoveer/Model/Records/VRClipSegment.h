#pragma once

#include "Panoveer/Model/Records/SourceVideoOrientation.h"
#include "Panoveer/Model/Records/VRTransform.h"
#include "Panoveer/Model/Records/VideoColorMetadata.h"
#include "Platform/Core/UUID.h"

#include <optional>
#include <string>
#include <utility>

namespace panoveer {

enum class VideoDecodingBackend { automatic, avFoundation, ffmpeg };

// One clip on the timeline: a range of one source file and how it is reprojected.
struct VRClipSegment {
    UUID id;
    UUID queueItemID; // shared by all pieces that were cut from one queue entry
    URL sourceURL;
    double start = 0; // seconds in the source
    double end = 0;   // seconds in the source, not below start
    VRTransform transform;
    std::optional<std::string> exportFileName; // the user's name for this queue item
    // Seconds from the queue entry's first frame, the same in every clip of the entry.
    std::optional<double> markedInPoint;
    std::optional<double> markedOutPoint;
    VideoDecodingBackend videoDecodingBackend = VideoDecodingBackend::automatic;
    SourceVideoOrientation sourceOrientation = SourceVideoOrientation::up;
    VideoColorMetadata colorMetadata;

    // A copy that can be cut and exported: start not below 0, end at least the minimum behind it, transform normalised.
    VRClipSegment normalized(double minimumDuration) const;

    // Both halves of a cut at a source time; none when either would be shorter than the minimum
    // or empty.
    //
    //   before   |------ a ------|------ b ------|
    //   after    |------ a ------||----- b ------|     fresh ids, everything else copied
    std::optional<std::pair<VRClipSegment, VRClipSegment>> split(double atSeconds, double minimumDuration) const;

    friend bool operator==(const VRClipSegment&, const VRClipSegment&) = default;
};

} // namespace panoveer
