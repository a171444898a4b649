#include "Panoveer/Model/Records/OutputResolution.h"

#include "Panoveer/Model/Records/EvenSize.h"
#include "Panoveer/Model/Records/MirrorDomeProjectorAspect.h"

#include <algorithm>

namespace panoveer {

namespace {

constexpr std::int64_t one = 1;

struct Divisors {
    std::int64_t width = 1;
    std::int64_t height = 1;
};

Divisors eyeDivisors(StereoVideoLayout layout) {
    return {layout == StereoVideoLayout::sideBySide ? 2 : 1, layout == StereoVideoLayout::overUnder ? 2 : 1};
}

// One picture, mono or one eye. The requested sides may be any numbers.
OutputResolution validatedEye(ProjectionFormat format, std::int64_t maximum, std::int64_t requestedWidth,
                              std::int64_t requestedHeight) {
    const auto limit = std::clamp<std::int64_t>(maximum, 128, OutputResolution::maximumDimension);
    const auto width = std::min(std::max<std::int64_t>(requestedWidth, 64), limit);
    const auto height = std::min(std::max<std::int64_t>(requestedHeight, 64), limit);
    const auto broadWidth = std::max<std::int64_t>(width, 128);
    switch (format) {
    case ProjectionFormat::standard: return {evenedUp(broadWidth), roundedToEven(double(broadWidth) * 9 / 16)};
    case ProjectionFormat::equirectangular: return {evenedUp(broadWidth), evenedUp(broadWidth / 2)};
    case ProjectionFormat::halfEquirectangular: return {evenedUp(width), evenedUp(width)};
    case ProjectionFormat::domemaster: {
        const auto side = evenedUp(std::max(width, height));
        return {side, side};
    }
    case ProjectionFormat::cubemap:
    case ProjectionFormat::eac: {
        const auto face = std::min(std::max({std::int64_t(64), width / 3, height / 2}), limit / 3) & ~one;
        return {3 * face, 2 * face};
    }
    case ProjectionFormat::mirrorDome: {
        const auto aspect =
            nearestProjectorAspect(double(std::max(requestedWidth, one)) / double(std::max(requestedHeight, one)));
        return {evenedUp(broadWidth), heightForWidth(aspect, evenedUp(broadWidth))};
    }
    }
    return {width, height};
}

} // namespace

OutputResolution OutputResolution::validated(ProjectionFormat format, StereoVideoLayout layout, std::int64_t maximum,
                                             std::int64_t width, std::int64_t height) {
    if (format == ProjectionFormat::mirrorDome || layout == StereoVideoLayout::mono)
        return validatedEye(format, maximum, width, height);
    // Half the maximum for both layouts alike: an eye of an over-under frame, too, stops at half the width.
    const auto eyes = eyeDivisors(layout);
    const auto eye =
        validatedEye(format, maximum / 2, std::max(width / eyes.width, one), std::max(height / eyes.height, one));
    return {eye.width * eyes.width, eye.height * eyes.height};
}

OutputResolution OutputResolution::eyeResolution(StereoVideoLayout layout) const {
    const auto eyes = eyeDivisors(layout);
    return {std::max(width / eyes.width, one), std::max(height / eyes.height, one)};
}

} // namespace panoveer
