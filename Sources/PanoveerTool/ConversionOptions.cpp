#include "PanoveerTool/ConversionOptions.h"

#include "Panoveer/Model/Records/ClipDefaults.h"
#include "Panoveer/Model/Records/ExportDeliveryPreset.h"
#include "Panoveer/Model/Records/RecordEnums.h"
#include "Panoveer/Rendering/Projection/MirrorDomeWarpMesh.h"
#include "PanoveerTool/Exit.h"
#include "PanoveerTool/Sources.h"
#include "Platform/Core/Processors.h"

#include <CLI/CLI.hpp>

#include <charconv>
#include <format>
#include <map>

namespace panoveer::tool {

namespace {

template<class Enumeration>
std::string rawValues() {
    std::string list;
    for (auto value : allCases<Enumeration>)
        list += (list.empty() ? "" : ", ") + std::string(rawValue(value));
    return list;
}

template<class Enumeration>
Enumeration parse(const std::string& text, std::string_view option) {
    if (const auto value = fromRawValue<Enumeration>(text))
        return *value;
    throw UsageError(std::format("{}: '{}' is none of: {}", option, text, rawValues<Enumeration>()));
}

OutputResolution parseSize(const std::string& text) {
    OutputResolution size;
    const auto* end = text.data() + text.size();
    const auto width = std::from_chars(text.data(), end, size.width);
    if (width.ec == std::errc{} && width.ptr != end && *width.ptr == 'x') {
        const auto height = std::from_chars(width.ptr + 1, end, size.height);
        if (height.ec == std::errc{} && height.ptr == end && size.width > 0 && size.height > 0)
            return size;
    }
    throw UsageError(std::format("--size: '{}' is not a size such as 3840x1920", text));
}

ExportColorMode parseColor(const std::string& text) {
    static const std::map<std::string, ExportColorMode> modes = {{"sdr", ExportColorMode::convertToSDR},
                                                                 {"hdr", ExportColorMode::preserveHDR},
                                                                 {"hlg", ExportColorMode::hdrHLG}};
    if (const auto found = modes.find(text); found != modes.end())
        return found->second;
    throw UsageError(std::format("--color: '{}' is none of: sdr, hdr, hlg", text));
}

VRMetadataMode parseMetadataMode(const std::string& text) {
    if (text == "automatic")
        return VRMetadataMode::automatic;
    if (text == "off")
        return VRMetadataMode::off;
    throw UsageError(std::format("--vr-metadata: '{}' is none of: automatic, off", text));
}

void applyInRange(double& field, const std::optional<double>& value, double lower, double upper,
                  std::string_view option) {
    if (!value)
        return;
    if (!(*value >= lower && *value <= upper))
        throw UsageError(std::format("{}: {} is not within {} to {}", option, *value, lower, upper));
    field = *value;
}

} // namespace

void ConversionOptions::declare(CLI::App& command) {
    const auto* output = "Output";
    command.add_option("--preset", preset, "Delivery preset; see `panoveer presets`")->group(output);
    command.add_option("--format", format, "Projection: " + rawValues<ProjectionFormat>())->group(output);
    command.add_option("--size", size, "WxH of the whole frame, both eyes included")->group(output);
    command.add_option("--codec", codec, "Codec: " + rawValues<ExportCodec>())->group(output);
    command.add_option("--stereo", stereo, "Layout: " + rawValues<StereoVideoLayout>())->group(output);
    command.add_option("--bitrate", bitrateMbps, "Megabits per second (1 to 2000); else chosen from size and rate")
        ->group(output);
    command.add_option("--fps", framesPerSecond, "Rate of a single movie made from sources of differing rates")
        ->group(output);
    command.add_option("--color", color, "sdr, hdr (PQ) or hlg")->group(output);
    command.add_option("--vr-metadata", vrMetadata, "automatic or off")->group(output);
    command.add_option("--warp-mesh", warpMesh, "Mesh file of a mirror dome; else the standard one")->group(output);

    const auto* source = "Source and framing";
    command.add_option("--source-format", sourceFormat, "Projection of the source; else detected")->group(source);
    command
        .add_option("--source-stereo", sourceStereo,
                    "Layout of the source: " + rawValues<StereoVideoLayout>() + "; else detected")
        ->group(source);
    command
        .add_flag("--swap-eyes,!--no-swap-eyes", swapEyes,
                  "Whether the source's left or upper image is the right eye; else detected")
        ->group(source);
    command.add_option("--fov", fovDegrees, "Field of view of the output, degrees")->group(source);
    command.add_option("--yaw", yawDegrees, "Degrees; positive looks to the right")->group(source);
    command.add_option("--pitch", pitchDegrees, "Degrees, -90 to 90; positive looks down")->group(source);
    command.add_option("--roll", rollDegrees, "Degrees")->group(source);
    command.add_option("--theta", thetaDegrees, "Aperture of a fisheye source, 1 to 360 degrees")->group(source);
    command.add_option("--in", inSeconds, "First second of the source to take")->group(source);
    command.add_option("--out", outSeconds, "Second of the source to stop at")->group(source);

    command.add_option("--renderer", renderer, "auto, gpu or cpu")
        ->check(CLI::IsMember({"auto", "gpu", "cpu"}))
        ->group("Processing");
    // In force as soon as it is read, before the work starts a thread.
    command
        .add_option_function<int>("--threads", limitProcessors,
                                  "Processors that decoding, projection and encoding share; 0 for all")
        ->check(CLI::Range(0, 1024))
        ->group("Processing");
}

void ConversionOptions::declareSound(CLI::App& command) {
    command.add_option("--audio", audio, "automatic (as the sources have it), stereo or none")->group("Output");
}

ExportSettings ConversionOptions::settings() const {
    ExportSettings result;
    if (preset) {
        const auto named = fromRawValue<ExportDeliveryPreset>(*preset);
        if (!named)
            throw UsageError(std::format("--preset: '{}' is none of: {}", *preset, rawValues<ExportDeliveryPreset>()));
        result.applyPreset(exportPreset(*named));
        result.vrMetadataMode = recipe(*named).vrMetadataMode;
    }
    // In this order: the format decides what sizes mean, the codec may force a layout, and the size is of the whole
    // frame.
    if (format)
        result.outputFormat = parse<ProjectionFormat>(*format, "--format");
    if (codec)
        result.setCodec(parse<ExportCodec>(*codec, "--codec"));
    if (stereo)
        result.setStereoLayout(parse<StereoVideoLayout>(*stereo, "--stereo"));
    if (size) {
        const auto wanted = parseSize(*size);
        result.customWidth = wanted.width;
        result.customHeight = wanted.height;
    }
    result.normalizeResolution();
    if (bitrateMbps) {
        result.bitrateMode = ExportBitrateMode::custom;
        applyInRange(result.customBitrateMbps, bitrateMbps, 1, 2000, "--bitrate");
    }
    if (framesPerSecond) {
        result.frameRateMode = ExportFrameRateMode::custom;
        applyInRange(result.customFrameRate, framesPerSecond, 1, 240, "--fps");
    }
    if (color)
        result.colorMode = parseColor(*color);
    if (vrMetadata)
        result.vrMetadataMode = parseMetadataMode(*vrMetadata);
    if (audio)
        result.audioMode = parse<ExportAudioMode>(*audio, "--audio");
    if (warpMesh) {
        if (result.outputFormat != ProjectionFormat::mirrorDome)
            throw UsageError("--warp-mesh: only --format mirrorDome is drawn through a mesh");
        result.mirrorDomeWarpMeshURL = URL::fromFilePath(*warpMesh);
        MirrorDomeWarpMesh::load(*result.mirrorDomeWarpMeshURL); // what is wrong with it shows before anything starts
    }
    return result;
}

StatedImmersiveFormat ConversionOptions::statedFormat() const {
    StatedImmersiveFormat stated;
    if (sourceFormat)
        stated.projection = parse<ProjectionFormat>(*sourceFormat, "--source-format");
    if (stated.projection == ProjectionFormat::mirrorDome)
        throw UsageError("--source-format: mirrorDome is an output only");
    if (sourceStereo)
        stated.stereoLayout = parse<StereoVideoLayout>(*sourceStereo, "--source-stereo");
    stated.eyesSwapped = swapEyes;
    return stated;
}

VRClipSegment ConversionOptions::clip(const VideoAsset& asset, const ExportSettings& settings) const {
    auto result = makeClip(asset, settings);
    auto& transform = result.transform;
    const auto range = VRTransform::editableFOVRange(transform.outputFormat, transform.sourceFormat);
    applyInRange(transform.fovDegrees, fovDegrees, range.lower, range.upper, "--fov");
    applyInRange(transform.yawDegrees, yawDegrees, -360, 360, "--yaw");
    applyInRange(transform.pitchDegrees, pitchDegrees, -90, 90, "--pitch");
    applyInRange(transform.rollDegrees, rollDegrees, -360, 360, "--roll");
    applyInRange(transform.domemasterThetaDegrees, thetaDegrees, 1, 360, "--theta");
    transform = transform.normalized();

    if (inSeconds) {
        requirePictureAt(*inSeconds, asset, "--in");
        result.start = *inSeconds;
    }
    if (outSeconds) {
        if (!(*outSeconds >= 0))
            throw UsageError(std::format("--out: {} is no time in seconds", *outSeconds));
        result.end = std::min(result.end, *outSeconds);
    }
    if (!(result.end > result.start))
        throw UsageError(std::format("--in and --out leave nothing of {}, which is {:.3f} s long",
                                     asset.url.lastPathComponent(), asset.duration));
    return result;
}

} // namespace panoveer::tool
