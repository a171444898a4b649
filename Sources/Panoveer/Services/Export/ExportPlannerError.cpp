#include "Panoveer/Services/Export/ExportPlannerError.h"

#include "Platform/Core/Localization.h"

namespace panoveer {

namespace {

std::string_view displayKey(ExportPlannerError::Kind kind) {
    switch (kind) {
    case ExportPlannerError::Kind::noSegments: return "error.export.no_valid_clips";
    case ExportPlannerError::Kind::hdrCodecRequired: return "error.export.hdr_codec_required";
    case ExportPlannerError::Kind::hdrNativeDecoderRequired: return "error.export.hdr_native_decoder_required";
    }
    return {};
}

} // namespace

ExportPlannerError::ExportPlannerError(Kind kind) : Error(localized(displayKey(kind))), kind_(kind) {}

} // namespace panoveer
