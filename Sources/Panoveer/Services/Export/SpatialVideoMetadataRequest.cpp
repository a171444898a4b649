#include "Panoveer/Services/Export/SpatialVideoMetadataRequest.h"

namespace panoveer {

namespace {

using Request = SpatialVideoMetadataRequest;
using StereoMode = Request::StereoMode;

StereoMode stereoMode(StereoVideoLayout layout) {
    switch (layout) {
    case StereoVideoLayout::mono: return StereoMode::mono;
    case StereoVideoLayout::overUnder: return StereoMode::topBottom;
    case StereoVideoLayout::sideBySide: return StereoMode::leftRight;
    }
    return StereoMode::mono;
}

std::optional<Request> requestForFormat(ProjectionFormat format, StereoMode stereo) {
    using enum ProjectionFormat;
    using Kind = Request::ProjectionKind;
    switch (format) {
    case equirectangular: return Request{{Kind::equirectangular, false}, false, stereo};
    case halfEquirectangular: return Request{{Kind::equirectangular, true}, false, stereo};
    case cubemap: return Request{{Kind::cubemap, false}, false, stereo};
    case standard:
    case domemaster:
    case eac:
        if (stereo != StereoMode::mono)
            return Request{{}, true, stereo};
        break;
    case mirrorDome: break;
    }
    return std::nullopt;
}

} // namespace

std::optional<Request> SpatialVideoMetadataRequest::make(ProjectionFormat outputFormat, StereoVideoLayout layout,
                                                         ExportCodec codec, VRMetadataMode mode) {
    // A multiview stream says all this in boxes of its own.
    if (properties(codec).isMultiviewStereo)
        return std::nullopt;
    switch (mode) {
    case VRMetadataMode::automatic: return requestForFormat(outputFormat, panoveer::stereoMode(layout));
    case VRMetadataMode::equirectangularMono:
        return requestForFormat(ProjectionFormat::equirectangular, StereoMode::mono);
    case VRMetadataMode::equirectangularStereoOverUnder:
        return requestForFormat(ProjectionFormat::equirectangular, StereoMode::topBottom);
    case VRMetadataMode::equirectangularStereoSideBySide:
        return requestForFormat(ProjectionFormat::equirectangular, StereoMode::leftRight);
    case VRMetadataMode::off:
    case VRMetadataMode::appleSpatialVideo: break;
    }
    return std::nullopt;
}

} // namespace panoveer
