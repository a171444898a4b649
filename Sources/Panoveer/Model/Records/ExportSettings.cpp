#include "Panoveer/Model/Records/ExportSettings.h"

#include "Panoveer/Model/Records/EvenSize.h"
#include "Panoveer/Model/Records/ExportDeliveryPreset.h"
#include "Panoveer/Model/Records/ExportFrameRateSummary.h"
#include "Panoveer/Model/Records/ExportResolutionPreset.h"
#include "Panoveer/Model/Records/MirrorDomeProjectorAspect.h"
#include "Platform/Core/Localization.h"

#include <algorithm>
#include <cmath>
#include <format>

namespace panoveer {

namespace {

constexpr std::int64_t largestSide = OutputResolution::maximumDimension;

// Never NaN: fmax prefers the number.
double limitedMbps(double mbps) { return std::fmin(std::fmax(mbps, 1), 2000); }

bool isMultiview(ExportCodec codec) { return properties(codec).isMultiviewStereo; }

// The eyes of a multiview codec lie side by side; another packing needs the plain codec of the same depth.
ExportCodec codecForLayout(ExportCodec codec, StereoVideoLayout layout) {
    return layout == StereoVideoLayout::sideBySide ? codec : withoutMultiview(codec);
}

OutputResolution packed(OutputResolution eye, StereoVideoLayout layout) {
    return {layout == StereoVideoLayout::sideBySide ? eye.width * 2 : eye.width,
            layout == StereoVideoLayout::overUnder ? eye.height * 2 : eye.height};
}

// A side as typed. A negative number counts as too large: it is what an overflow leaves.
std::int64_t sideInRange(std::int64_t side, std::int64_t smallest) {
    if (side < 0 || side > largestSide)
        return largestSide;
    return side < smallest ? smallest : evenedUp(side);
}

std::int64_t halvedToEven(std::int64_t side) { return evenedUp(side / 2); }

OutputResolution cubeSheet(std::int64_t face) { return {3 * face, 2 * face}; }

OutputResolution eyeSizeForWidth(ProjectionFormat format, std::int64_t width, MirrorDomeProjectorAspect aspect) {
    switch (format) {
    case ProjectionFormat::standard: return {width, roundedToEven(double(width) * 9 / 16)};
    case ProjectionFormat::equirectangular: {
        const auto broadWidth = std::max<std::int64_t>(width, 128);
        return {broadWidth, broadWidth / 2};
    }
    case ProjectionFormat::halfEquirectangular:
    case ProjectionFormat::domemaster: return {width, width};
    case ProjectionFormat::cubemap:
    case ProjectionFormat::eac: return cubeSheet(width < 192 ? 64 : evenedUp(width / 3));
    case ProjectionFormat::mirrorDome: return {width, heightForWidth(aspect, width)};
    }
    return {width, width};
}

OutputResolution eyeSizeForHeight(ProjectionFormat format, std::int64_t height, MirrorDomeProjectorAspect aspect) {
    switch (format) {
    case ProjectionFormat::standard: return {roundedToEven(double(height) * 16 / 9), height};
    case ProjectionFormat::equirectangular: return {std::max<std::int64_t>(2 * height, 128), height};
    case ProjectionFormat::halfEquirectangular:
    case ProjectionFormat::domemaster: return {height, height};
    case ProjectionFormat::cubemap:
    case ProjectionFormat::eac: return cubeSheet(height < 128 ? 64 : evenedUp(height / 2));
    case ProjectionFormat::mirrorDome: {
        const auto width = evenedUp(std::min(widthForHeight(aspect, height), largestSide));
        return {width, heightForWidth(aspect, width)};
    }
    }
    return {height, height};
}

} // namespace

StereoVideoLayout ExportSettings::effectiveStereoLayout() const {
    if (outputFormat == ProjectionFormat::mirrorDome)
        return StereoVideoLayout::mono;
    return isMultiview(codec) ? StereoVideoLayout::sideBySide : stereoLayout;
}

OutputResolution ExportSettings::validatedResolution() const {
    return OutputResolution::validated(outputFormat, effectiveStereoLayout(), largestSide, customWidth, customHeight);
}

void ExportSettings::setResolution(OutputResolution resolution) {
    customWidth = resolution.width;
    customHeight = resolution.height;
}

void ExportSettings::normalizeResolution() {
    if (outputFormat == ProjectionFormat::mirrorDome)
        stereoLayout = StereoVideoLayout::mono;
    setResolution(validatedResolution());
}

OutputResolution ExportSettings::validatedEyeResolution() const {
    return validatedResolution().eyeResolution(effectiveStereoLayout());
}

void ExportSettings::repack(OutputResolution eye) {
    setResolution(packed(eye, effectiveStereoLayout()));
    normalizeResolution();
}

void ExportSettings::setStereoLayout(StereoVideoLayout layout) {
    const auto eye = validatedEyeResolution();
    stereoLayout = outputFormat == ProjectionFormat::mirrorDome ? StereoVideoLayout::mono : layout;
    codec = codecForLayout(codec, stereoLayout);
    repack(eye);
}

void ExportSettings::setCodec(ExportCodec newCodec) {
    const auto eye = validatedEyeResolution();
    codec = newCodec;
    if (isMultiview(codec) && outputFormat != ProjectionFormat::mirrorDome)
        stereoLayout = StereoVideoLayout::sideBySide;
    repack(eye);
}

void ExportSettings::setWidth(std::int64_t width) {
    const auto layout = effectiveStereoLayout();
    const auto frameWidth = sideInRange(width, 128);
    const auto eyeWidth = layout == StereoVideoLayout::sideBySide ? halvedToEven(frameWidth) : frameWidth;
    const auto aspect = matchingProjectorAspect(validatedResolution());
    setResolution(packed(eyeSizeForWidth(outputFormat, eyeWidth, aspect), layout));
}

void ExportSettings::setHeight(std::int64_t height) {
    const auto layout = effectiveStereoLayout();
    const auto frameHeight = sideInRange(height, 72);
    const auto eyeHeight = layout == StereoVideoLayout::overUnder ? halvedToEven(frameHeight) : frameHeight;
    const auto aspect = matchingProjectorAspect(validatedResolution());
    setResolution(packed(eyeSizeForHeight(outputFormat, eyeHeight, aspect), layout));
}

void ExportSettings::applyPreset(const ExportResolutionPreset& preset) {
    outputFormat = preset.format;
    setResolution(preset.resolution);
    stereoLayout = preset.stereoLayout.value_or(StereoVideoLayout::mono);
    codec = codecForLayout(preset.codec.value_or(codec), stereoLayout);
}

void ExportSettings::applyPreset(ExportDeliveryPreset preset) {
    applyPreset(exportPreset(preset));
    vrMetadataMode = recipe(preset).vrMetadataMode;
}

std::optional<double> ExportSettings::singleMovieTargetFrameRate(std::span<const double> sourceFrameRates) const {
    if (mode != ExportMode::singleMovie)
        return std::nullopt;
    const ExportFrameRateSummary summary(sourceFrameRates);
    // A uniform source needs no retiming and keeps its own rate, even when a custom one is set.
    if (summary.distinctFrameRates().size() < 2)
        return std::nullopt;
    return frameRateMode == ExportFrameRateMode::custom ? customFrameRate : summary.highestFrameRate();
}

std::string ExportSettings::effectiveFrameRateText(std::span<const double> sourceFrameRates) const {
    auto rate = singleMovieTargetFrameRate(sourceFrameRates);
    if (const ExportFrameRateSummary summary(sourceFrameRates); !rate && summary.distinctFrameRates().size() == 1)
        rate = summary.highestFrameRate();
    return rate ? std::format("{:.2f} fps", *rate) : localized("export.frame_rate.source");
}

std::optional<double> ExportSettings::automaticBitrateMbps(double frameRate) const {
    const auto& rule = properties(codec).bitrate;
    if (!rule)
        return std::nullopt;
    const auto size = validatedResolution();
    const double pixels = double(size.width) * double(size.height);
    const double rate = std::clamp(std::isfinite(frameRate) && frameRate > 0 ? frameRate : 30.0, 1.0, 240.0);
    const double base = std::max(rule->factor * pixels / 1000000, rule->floor);
    return limitedMbps(rate / 30 * base);
}

std::optional<double> ExportSettings::bitrateMbps(double frameRate) const {
    if (properties(codec).isProRes())
        return std::nullopt;
    return bitrateMode == ExportBitrateMode::custom ? limitedMbps(customBitrateMbps) : automaticBitrateMbps(frameRate);
}

std::string ExportSettings::mirrorDomeWarpMeshDisplayName() const {
    if (mirrorDomeWarpMeshURL)
        return mirrorDomeWarpMeshURL->lastPathComponent();
    const auto aspect = matchingProjectorAspect(validatedResolution());
    return localized("mirror_dome.warp_mesh.standard_named",
                     aspect == MirrorDomeProjectorAspect::sixteenTen ? "16:10" : "16:9");
}

} // namespace panoveer
