#pragma once

#include "Panoveer/Model/Records/ExportSettings.h"
#include "Panoveer/Model/Records/VRClipSegment.h"
#include "Panoveer/Model/Records/VideoAsset.h"
#include "Panoveer/Services/Intake/ImmersiveFormatDetector.h"

#include <optional>
#include <string>

namespace CLI {
class App;
}

namespace panoveer::tool {

// What `convert` and `frame` take: how the output is to be, and how the source is to be framed. Every field is as it
// was typed; absent means that the preset, the file or the default decides.
struct ConversionOptions {
    std::optional<std::string> preset;
    std::optional<std::string> format;
    std::optional<std::string> size;
    std::optional<std::string> codec;
    std::optional<std::string> stereo;
    std::optional<double> bitrateMbps;
    std::optional<double> framesPerSecond;
    std::optional<std::string> color;
    std::optional<std::string> vrMetadata;
    std::optional<std::string> warpMesh;

    std::optional<std::string> sourceFormat;
    std::optional<std::string> sourceStereo;
    std::optional<bool> swapEyes;
    std::optional<double> fovDegrees;
    std::optional<double> yawDegrees;
    std::optional<double> pitchDegrees;
    std::optional<double> rollDegrees;
    std::optional<double> thetaDegrees;
    std::optional<double> inSeconds;
    std::optional<double> outSeconds;

    std::string renderer = "auto";

    // Declares the options of both groups on a command.
    void declare(CLI::App& command);

    // The settings that the options describe, starting from the default export settings. Throws UsageError, and
    // MirrorDomeWarpMeshError for a warp mesh that cannot be used.
    ExportSettings settings() const;

    // What the options say of the source. Throws UsageError.
    StatedImmersiveFormat statedFormat() const;

    // A clip of the asset, whose format was detected, framed as asked for. Throws UsageError for a value that is out of
    // range.
    VRClipSegment clip(const VideoAsset& asset, const ExportSettings& settings) const;
};

} // namespace panoveer::tool
