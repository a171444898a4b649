#include "Panoveer/Services/Export/ExportImmersiveMedia.h"

#include "Panoveer/Model/Records/ExportCodec.h"
#include "Panoveer/Services/Export/StereoMultiviewFrameSink.h"

#include <cmath>
#include <limits>

namespace panoveer {

namespace {

// Thousandths of a unit; no value for what is none, or does not fit the field.
std::optional<std::uint32_t> thousandths(std::optional<double> value) {
    const double scaled = value ? std::round(*value * 1000) : 0;
    if (!(scaled > 0) || scaled > std::numeric_limits<std::uint32_t>::max())
        return std::nullopt;
    return std::uint32_t(scaled);
}

} // namespace

OutputResolution encodedResolution(const ExportOutputDescriptor& descriptor) {
    auto size = descriptor.resolution;
    if (properties(descriptor.codec).isMultiviewStereo)
        size.width /= 2;
    return size;
}

MultiviewProperties multiviewProperties(const ExportOutputDescriptor& descriptor) {
    auto result = StereoMultiviewFrameSink::encoderProperties;
    if (descriptor.vrMetadataMode == VRMetadataMode::off || descriptor.segments.empty())
        return result;
    const auto& transform = descriptor.segments.front().transform;
    const auto eye = encodedResolution(descriptor);
    result.horizontalFieldOfView =
        thousandths(transform.outputHorizontalFieldOfView(double(eye.width) / double(eye.height)));
    result.stereoCameraBaseline = thousandths(transform.sourceStereoBaselineMillimeters);
    return result;
}

ImmersiveMediaProperties immersiveMediaProperties(const ExportOutputDescriptor& descriptor) {
    const bool isMultiview = properties(descriptor.codec).isMultiviewStereo;
    ImmersiveMediaProperties result;
    if (isMultiview)
        result.multiview = multiviewProperties(descriptor);
    if (descriptor.vrMetadataMode == VRMetadataMode::off)
        return result;
    const bool isStereo = descriptor.stereoLayout != StereoVideoLayout::mono;
    switch (descriptor.outputFormat) {
    case ProjectionFormat::standard:
        if (isStereo)
            result.projectionKind = VideoProjectionKind::rectilinear;
        break;
    case ProjectionFormat::equirectangular: result.projectionKind = VideoProjectionKind::equirectangular; break;
    case ProjectionFormat::halfEquirectangular: result.projectionKind = VideoProjectionKind::halfEquirectangular; break;
    default: return result;
    }
    if (!isMultiview && isStereo)
        result.viewPackingKind = descriptor.stereoLayout == StereoVideoLayout::sideBySide ? ViewPackingKind::sideBySide
                                                                                          : ViewPackingKind::overUnder;
    return result;
}

} // namespace panoveer
