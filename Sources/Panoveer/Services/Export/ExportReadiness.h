#pragma once

#include "Panoveer/Model/Records/ExportSettings.h"
#include "Panoveer/Model/Records/VRClipSegment.h"
#include "Panoveer/Services/Export/ExportDestinationPreflight.h"
#include "Panoveer/Services/Export/SourceFrameRates.h"

#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace panoveer {

// Why an export cannot start. Sizes are bytes.
struct ExportReadinessBlocker {
    struct MissingSource {
        URL source;
        friend bool operator==(const MissingSource&, const MissingSource&) = default;
    };
    struct EncoderUnavailable {
        ExportCodec codec = ExportCodec::hevc10;
        OutputResolution resolution;
        friend bool operator==(const EncoderUnavailable&, const EncoderUnavailable&) = default;
    };
    struct InsufficientSpace {
        double estimatedOutputBytes = 0, requiredBytes = 0, availableBytes = 0;
        friend bool operator==(const InsufficientSpace&, const InsufficientSpace&) = default;
    };
    struct DestinationCapacityUnavailable {
        URL destination;
        friend bool operator==(const DestinationCapacityUnavailable&, const DestinationCapacityUnavailable&) = default;
    };
    struct NoClips {
        friend bool operator==(const NoClips&, const NoClips&) = default;
    };
    struct HDRCodecRequired {
        friend bool operator==(const HDRCodecRequired&, const HDRCodecRequired&) = default;
    };
    struct HDRNativeDecoderRequired {
        friend bool operator==(const HDRNativeDecoderRequired&, const HDRNativeDecoderRequired&) = default;
    };
    using Reason = std::variant<MissingSource, EncoderUnavailable, InsufficientSpace, DestinationCapacityUnavailable,
                                NoClips, HDRCodecRequired, HDRNativeDecoderRequired>;

    Reason reason;

    // "missingSource", "encoderUnavailable", …: for programs.
    std::string_view name() const;
    // For the person, in the language in force.
    std::string message() const;

    friend bool operator==(const ExportReadinessBlocker&, const ExportReadinessBlocker&) = default;
};

// Decides whether an export can start at all. Any thread; blocking, as an encoder may have to be opened.
struct ExportReadiness {
    // What is asked of the platform.
    struct Checks {
        std::function<bool(const URL&)> fileExists;
        std::function<bool(const ExportSettings&)> isEncoderSupported;
        std::function<ExportDestinationPreflightResult(double estimatedOutputBytes, const URL&)> destination;

        static Checks platform();
    };

    // All blockers, in the order of ExportReadinessBlocker::Reason; none when the export can start. Space is only
    // looked at with a destination.
    static std::vector<ExportReadinessBlocker> evaluate(std::span<const VRClipSegment> segments,
                                                        const ExportSettings& settings,
                                                        const std::optional<URL>& destination,
                                                        const SourceFrameRates& sourceFrameRates,
                                                        const Checks& checks = Checks::platform());
};

} // namespace panoveer
