#pragma once

#include <cstdint>
#include <optional>

namespace panoveer {

enum class VideoProjectionKind { rectilinear, equirectangular, halfEquirectangular };

enum class ViewPackingKind { sideBySide, overUnder };

// Values as the `hero` box has them.
enum class HeroEye : std::uint8_t { none = 0, left = 1, right = 2 };

// A track with a layer for each eye: the left eye is layer 0 and view 0, the right eye layer 1 and view 1.
struct MultiviewProperties {
    bool hasLeftStereoEyeView = true;
    bool hasRightStereoEyeView = true;
    HeroEye heroEye = HeroEye::left;
    std::optional<std::uint32_t> horizontalFieldOfView; // of one eye, thousandths of a degree
    std::optional<std::uint32_t> stereoCameraBaseline;  // between the lenses, micrometres

    friend bool operator==(const MultiviewProperties&, const MultiviewProperties&) = default;
};

// What players of immersive media are told of a video track, in its sample entry.
struct ImmersiveMediaProperties {
    std::optional<MultiviewProperties> multiview; // none for a track of single pictures
    std::optional<VideoProjectionKind> projectionKind;
    std::optional<ViewPackingKind> viewPackingKind; // how both eyes share a single picture

    friend bool operator==(const ImmersiveMediaProperties&, const ImmersiveMediaProperties&) = default;
};

} // namespace panoveer
