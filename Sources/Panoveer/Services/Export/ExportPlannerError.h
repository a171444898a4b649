#pragma once

#include "Platform/Core/Error.h"

namespace panoveer {

// Why nothing can be planned. what() is in the language in force.
class ExportPlannerError : public Error {
public:
    enum class Kind {
        noSegments,               // nothing is left of the clips
        hdrCodecRequired,         // HDR is to be kept and the codec has 8 bits
        hdrNativeDecoderRequired, // HDR is to be kept and a clip takes the 8-bit road
    };

    explicit ExportPlannerError(Kind kind);

    Kind kind() const noexcept { return kind_; }

private:
    Kind kind_;
};

} // namespace panoveer
