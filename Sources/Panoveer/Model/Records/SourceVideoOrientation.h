#pragma once

#include "Platform/Core/AffineTransform.h"

namespace panoveer {

// How the stored picture must be turned for display: `right` is a quarter turn clockwise.
enum class SourceVideoOrientation { up, right, down, left };

// The nearest of the four to a track's transform; translation and scale are ignored.
SourceVideoOrientation detectedOrientation(const AffineTransform& transform);

constexpr bool swapsDimensions(SourceVideoOrientation orientation) {
    return orientation == SourceVideoOrientation::right || orientation == SourceVideoOrientation::left;
}

} // namespace panoveer
