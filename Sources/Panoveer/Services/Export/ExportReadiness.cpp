#include "Panoveer/Services/Export/ExportReadiness.h"

#include "Panoveer/Model/Records/ExportCodec.h"
#include "Panoveer/Services/Export/ExportEncoderPreflight.h"
#include "Panoveer/Services/Export/ExportPlanner.h"
#include "Panoveer/Services/Export/ExportSizeEstimator.h"
#include "Platform/Core/Localization.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <set>

namespace panoveer {

namespace {

using Blocker = ExportReadinessBlocker;

struct Message {
    std::string operator()(const Blocker::MissingSource& blocker) const {
        return localized("error.export.missing_source", blocker.source.path().string());
    }
    std::string operator()(const Blocker::EncoderUnavailable& blocker) const {
        return localized("error.export.unsupported_video_settings", displayName(blocker.codec),
                         blocker.resolution.width, blocker.resolution.height);
    }
    std::string operator()(const Blocker::InsufficientSpace& blocker) const {
        const auto size = ExportSizeEstimator::formattedDecimalSize;
        return localized("error.export.insufficient_space", size(blocker.estimatedOutputBytes),
                         size(blocker.requiredBytes), size(blocker.availableBytes));
    }
    std::string operator()(const Blocker::DestinationCapacityUnavailable& blocker) const {
        return localized("error.export.capacity_unavailable", blocker.destination.path().string());
    }
    std::string operator()(const Blocker::NoClips&) const { return localized("error.export.no_valid_clips"); }
    std::string operator()(const Blocker::HDRCodecRequired&) const {
        return localized("error.export.hdr_codec_required");
    }
    std::string operator()(const Blocker::HDRNativeDecoderRequired&) const {
        return localized("error.export.hdr_native_decoder_required");
    }
};

// Wider than the planner's, which only guards what is kept: HLG made of an SDR source needs ten bits no less.
void checkHDR(std::span<const VRClipSegment> segments, const ExportSettings& settings, std::vector<Blocker>& blockers) {
    if (settings.colorMode == ExportColorMode::convertToSDR)
        return;
    if (!properties(settings.codec).isTenBitCapable)
        blockers.push_back({Blocker::HDRCodecRequired{}});
    if (std::ranges::contains(segments, VideoDecodingBackend::ffmpeg, &VRClipSegment::videoDecodingBackend))
        blockers.push_back({Blocker::HDRNativeDecoderRequired{}});
}

void checkSpace(const ExportDestinationPreflightResult& result, std::vector<Blocker>& blockers) {
    using Result = ExportDestinationPreflightResult;
    if (const auto* less = std::get_if<Result::Insufficient>(&result.answer))
        blockers.push_back(
            {Blocker::InsufficientSpace{less->estimatedOutputBytes, less->requiredBytes, less->availableBytes}});
    else if (const auto* unknown = std::get_if<Result::Unavailable>(&result.answer))
        blockers.push_back({Blocker::DestinationCapacityUnavailable{unknown->destination}});
}

} // namespace

std::string_view ExportReadinessBlocker::name() const {
    constexpr std::array<std::string_view, std::variant_size_v<Reason>> names = {
        "missingSource", "encoderUnavailable", "insufficientSpace",       "destinationCapacityUnavailable",
        "noClips",       "hdrCodecRequired",   "hdrNativeDecoderRequired"};
    return names[reason.index()];
}

std::string ExportReadinessBlocker::message() const { return std::visit(Message{}, reason); }

ExportReadiness::Checks ExportReadiness::Checks::platform() {
    return {
        .fileExists =
            [](const URL& url) {
                std::error_code ignored;
                return std::filesystem::exists(url.path(), ignored);
            },
        .isEncoderSupported =
            [](const ExportSettings& settings) { return ExportEncoderPreflight::shared().isSupported(settings); },
        .destination = [](double bytes, const URL& url) { return ExportDestinationPreflight::evaluate(bytes, url); }};
}

std::vector<ExportReadinessBlocker> ExportReadiness::evaluate(std::span<const VRClipSegment> segments,
                                                              const ExportSettings& settings,
                                                              const std::optional<URL>& destination,
                                                              const SourceFrameRates& sourceFrameRates,
                                                              const Checks& checks) {
    std::vector<Blocker> blockers;
    checkHDR(segments, settings, blockers);
    if (!checks.isEncoderSupported(settings))
        blockers.push_back({Blocker::EncoderUnavailable{settings.codec, settings.validatedResolution()}});
    if (destination)
        checkSpace(
            checks.destination(ExportSizeEstimator::estimatedBytes(settings, segments, sourceFrameRates), *destination),
            blockers);
    std::set<URL> missing;
    for (const auto& segment : segments)
        if (!checks.fileExists(segment.sourceURL) && missing.insert(segment.sourceURL).second)
            blockers.push_back({Blocker::MissingSource{segment.sourceURL}});
    if (ExportPlanner::exportableSegments(segments).empty())
        blockers.push_back({Blocker::NoClips{}});
    std::ranges::stable_sort(blockers, {}, [](const Blocker& blocker) { return blocker.reason.index(); });
    return blockers;
}

} // namespace panoveer
