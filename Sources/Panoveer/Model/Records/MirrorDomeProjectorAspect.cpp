#include "Panoveer/Model/Records/MirrorDomeProjectorAspect.h"

#include "Panoveer/Model/Records/EvenSize.h"

#include <algorithm>
#include <cmath>

namespace panoveer {

using enum MirrorDomeProjectorAspect;

MirrorDomeProjectorAspect nearestProjectorAspect(double widthOverHeight) {
    if (!std::isfinite(widthOverHeight) || widthOverHeight <= 0)
        return sixteenNine;
    const double toSixteenTen = std::abs(widthOverHeight - ratio(sixteenTen));
    const double toSixteenNine = std::abs(widthOverHeight - ratio(sixteenNine));
    return toSixteenTen < toSixteenNine ? sixteenTen : sixteenNine;
}

MirrorDomeProjectorAspect matchingProjectorAspect(OutputResolution resolution) {
    return nearestProjectorAspect(double(resolution.width) / double(std::max<std::int64_t>(resolution.height, 1)));
}

std::int64_t heightForWidth(MirrorDomeProjectorAspect aspect, std::int64_t width) {
    return roundedToEven(double(std::max<std::int64_t>(width, 128)) / ratio(aspect));
}

std::int64_t widthForHeight(MirrorDomeProjectorAspect aspect, std::int64_t height) {
    return roundedToEven(ratio(aspect) * double(std::max<std::int64_t>(height, 72)));
}

} // namespace panoveer
