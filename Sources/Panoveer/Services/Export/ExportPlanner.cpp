#include "Panoveer/Services/Export/ExportPlanner.h"

#include "Panoveer/Model/Records/ExportFrameRateSummary.h"
#include "Panoveer/Services/Export/ExportFileNaming.h"
#include "Panoveer/Services/Export/MarkedRangeTrimmer.h"
#include "Panoveer/Services/Export/QueueFileSegmentGroups.h"
#include "Panoveer/Services/Export/StagedName.h"
#include "Platform/Core/Text.h"

#include <algorithm>
#include <map>
#include <string>

namespace panoveer {

namespace {

// One frame at the highest rate that an export has.
constexpr double minimumSegmentDuration = 1.0 / 240;

// Keeping HDR needs ten bits all the way: from the decoder to the encoder.
void requireHDRRoad(std::span<const VRClipSegment> segments, const ExportSettings& settings) {
    if (settings.colorMode != ExportColorMode::preserveHDR)
        return;
    if (!properties(settings.codec).isTenBitCapable)
        throw ExportPlannerError(ExportPlannerError::Kind::hdrCodecRequired);
    for (const auto& segment : segments)
        if (segment.videoDecodingBackend == VideoDecodingBackend::ffmpeg)
            throw ExportPlannerError(ExportPlannerError::Kind::hdrNativeDecoderRequired);
}

std::vector<VRClipSegment> requiredSegments(std::span<const VRClipSegment> segments) {
    auto result = ExportPlanner::exportableSegments(segments);
    if (result.empty())
        throw ExportPlannerError(ExportPlannerError::Kind::noSegments);
    return result;
}

VRClipSegment withOutputSettings(VRClipSegment segment, const ExportSettings& settings) {
    auto& transform = segment.transform;
    transform.outputFormat = settings.outputFormat;
    transform.outputResolution = settings.validatedResolution();
    transform.outputStereoLayout = settings.effectiveStereoLayout();
    transform.mirrorDomeWarpMeshURL = settings.mirrorDomeWarpMeshURL;
    return segment.normalized(minimumSegmentDuration);
}

ExportOutputDescriptor outputOf(std::span<const VRClipSegment> segments, const ExportSettings& settings, URL url) {
    ExportOutputDescriptor output{
        .url = std::move(url),
        .segments = {},
        .outputFormat = settings.outputFormat,
        .resolution = settings.validatedResolution(),
        .stereoLayout = settings.effectiveStereoLayout(),
        .codec = settings.codec,
        .bitrateMbps = {},
        .targetFrameRate = {},
        .frameRate = {},
        .vrMetadataMode = settings.vrMetadataMode,
        .colorMode = settings.colorMode,
        .audioMode = settings.audioMode,
    };
    for (const auto& segment : segments)
        output.segments.push_back(withOutputSettings(segment, settings));
    return output;
}

std::string_view extensionOf(const ExportSettings& settings) { return properties(settings.codec).fileExtension; }

ExportOutputDescriptor singleMovie(std::span<const VRClipSegment> segments, const ExportSettings& settings,
                                   const URL& destination, const SourceFrameRates& sourceFrameRates) {
    const auto rates = frameRatesOf(segments, sourceFrameRates);
    // The container decides the extension, whatever the user typed.
    auto output =
        outputOf(segments, settings, destination.deletingPathExtension().appendingPathExtension(extensionOf(settings)));
    output.targetFrameRate = settings.singleMovieTargetFrameRate(rates);
    output.frameRate = ExportFrameRateSummary(rates).highestFrameRate();
    output.bitrateMbps = settings.bitrateMbps(
        output.targetFrameRate ? *output.targetFrameRate : output.frameRate.value_or(unknownSourceFrameRate));
    return output;
}

// Keeps the names of one plan apart, and as short as file systems ask. Letter case does not tell files apart on every
// disk.
class UniqueNames {
public:
    std::string name(const std::string& base, std::string_view extension) {
        const auto nameOf = [&](const std::string& suffix) {
            return fittingFileName(base, ExportFileNaming::fileName(suffix, extension));
        };
        auto candidate = nameOf("");
        auto number = ++uses_[lowercased(candidate)];
        if (number == 1)
            return candidate;
        // A number may already be taken by a clip that was named so.
        do {
            candidate = nameOf(" (" + std::to_string(number++) + ")");
        } while (uses_.contains(lowercased(candidate)));
        ++uses_[lowercased(candidate)];
        return candidate;
    }

private:
    std::map<std::string, int> uses_; // by lowercased full name
};

std::string baseNameOf(const VRClipSegment& segment, const ExportSettings& settings) {
    if (segment.exportFileName)
        if (auto custom = ExportFileNaming::sanitizedCustomBaseName(*segment.exportFileName); !custom.empty())
            return custom;
    return ExportFileNaming::suggestedBaseName(segment.sourceURL, settings.outputFormat);
}

std::vector<ExportOutputDescriptor> separateClips(std::span<const VRClipSegment> segments,
                                                  const ExportSettings& settings, const URL& directory,
                                                  const SourceFrameRates& sourceFrameRates) {
    std::vector<ExportOutputDescriptor> outputs;
    UniqueNames names;
    for (const auto group : queueFileSegmentGroups(segments)) {
        const auto name = names.name(baseNameOf(group.front(), settings), extensionOf(settings));
        auto& output = outputs.emplace_back(outputOf(group, settings, directory.appendingPathComponent(name)));
        output.frameRate = frameRateOf(group.front().sourceURL, sourceFrameRates);
        output.bitrateMbps = settings.bitrateMbps(output.frameRate.value_or(unknownSourceFrameRate));
    }
    return outputs;
}

} // namespace

std::vector<VRClipSegment> ExportPlanner::exportableSegments(std::span<const VRClipSegment> segments) {
    auto result = MarkedRangeTrimmer::trimmedSegments(segments);
    for (auto& segment : result)
        segment = segment.normalized(minimumSegmentDuration);
    std::erase_if(result, [](const VRClipSegment& segment) { return !(segment.end > segment.start); });
    return result;
}

std::vector<ExportOutputDescriptor> ExportPlanner::plan(std::span<const VRClipSegment> segments,
                                                        const ExportSettings& settings, const URL& destination,
                                                        const SourceFrameRates& sourceFrameRates) {
    requireHDRRoad(segments, settings);
    const auto exportable = requiredSegments(segments);
    if (settings.mode == ExportMode::singleMovie)
        return {singleMovie(exportable, settings, destination, sourceFrameRates)};
    return separateClips(exportable, settings, destination, sourceFrameRates);
}

std::vector<ExportAlphaMaskDescriptor> ExportPlanner::alphaMaskPlan(std::span<const VRClipSegment> segments,
                                                                    const ExportSettings& settings,
                                                                    const URL& maskDirectory) {
    std::vector<ExportAlphaMaskDescriptor> masks;
    std::map<std::string, int> countByBase;
    const auto resolution = settings.validatedResolution();
    for (const auto& segment : requiredSegments(segments)) {
        const auto base = ExportFileNaming::sanitizedMaskBaseName(segment.sourceURL);
        const auto name = base + "-" + std::to_string(++countByBase[base]) + ".png";
        auto& mask =
            masks.emplace_back(maskDirectory.appendingPathComponent(name), segment, settings.outputFormat, resolution);
        // The clip's own stereo layout stays: a mask is made of one picture.
        mask.segment.transform.outputFormat = settings.outputFormat;
        mask.segment.transform.outputResolution = resolution;
        mask.segment.transform.mirrorDomeWarpMeshURL = settings.mirrorDomeWarpMeshURL;
    }
    return masks;
}

} // namespace panoveer
