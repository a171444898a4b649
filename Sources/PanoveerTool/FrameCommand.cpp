#include "Panoveer/Rendering/Projection/ProjectionRenderer.h"
#include "Panoveer/Services/Export/ExportDiagnostics.h"
#include "Panoveer/Services/Export/SegmentFrameSource.h"
#include "PanoveerTool/Commands.h"
#include "PanoveerTool/ConversionOptions.h"
#include "PanoveerTool/DetectionText.h"
#include "PanoveerTool/Exit.h"
#include "PanoveerTool/RenderEngine.h"
#include "PanoveerTool/Sources.h"
#include "PanoveerTool/Targets.h"
#include "Platform/Core/Error.h"
#include "Platform/Media/PictureFile.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <filesystem>
#include <format>
#include <iostream>

namespace panoveer::tool {

namespace fs = std::filesystem;

namespace {

// A picture that starts a little before the asked time is still on display then.
constexpr double longestDisplaySeconds = 1.0;

struct FrameArguments {
    std::string input;
    std::string output;
    double atSeconds = 0;
    bool overwrite = false;
    ConversionOptions conversion;
};

// The picture on display at the start of the clip, from the native road or else from FFmpeg's.
SegmentFrame frameAtStart(const VRClipSegment& clip, const std::stop_token& stop) {
    LoggedExportDiagnostics diagnostics;
    std::string reason;
    if (clip.videoDecodingBackend != VideoDecodingBackend::ffmpeg)
        if (auto source = openNativeSource(clip, stop, diagnostics, reason))
            if (auto frame = source->next())
                return std::move(*frame);
    if (auto frame = openFFmpegSource(clip, stop)->next())
        return std::move(*frame);
    throw Error(std::format("{} has no picture at {:.3f} s. Choose another second.", clip.sourceURL.lastPathComponent(),
                            clip.start));
}

void writeFrame(const FrameArguments& arguments, const std::stop_token& stop) {
    const fs::path target = arguments.output;
    checkTarget(target, arguments.overwrite);
    if (const auto folder = fs::absolute(target).parent_path(); !fs::is_directory(folder))
        throw Error("There is no folder " + folder.string() + ". Make it, or choose another.");
    auto settings = arguments.conversion.settings();
    settings.colorMode = ExportColorMode::convertToSDR; // a PNG of 8 bits has no room for more
    const auto stated = arguments.conversion.statedFormat();
    const auto asset = readSources({arguments.input}, stated, stop).front();
    announce(asset, stated, ProgressStyle::none);
    requirePictureAt(arguments.atSeconds, asset, "--at");
    auto clip = arguments.conversion.clip(asset, settings);
    clip.start = arguments.atSeconds;
    clip.end = std::min(asset.duration, arguments.atSeconds + longestDisplaySeconds);

    auto frame = frameAtStart(clip, stop);
    const auto size = clip.transform.outputResolution;
    auto output = PixelBuffer::make(pixelFormat::bgra, int(size.width), int(size.height));
    const auto renderer = makeRenderer(arguments.conversion.renderer);
    const bool keepsAlpha = frame.description.alphaMode != AlphaMode::opaque;
    renderer
        ->render(std::move(frame.picture), frame.description, clip.transform, output, VRColorOutputMode::sdr,
                 VRResamplingQuality::final, keepsAlpha)
        ->wait();
    writePNG(*output, target);
    std::cout << std::format("{}  {}x{}\n", target.string(), size.width, size.height);
}

} // namespace

void declareFrame(CLI::App& program, std::stop_token stop) {
    auto arguments = std::make_shared<FrameArguments>();
    auto* command = program.add_subcommand("frame", "Write one converted frame as a PNG");
    command->add_option("INPUT", arguments->input, "A movie")->required();
    command->add_option("--at", arguments->atSeconds, "Seconds from the start of the movie")->required();
    command->add_option("-o,--output", arguments->output, "The PNG to write")->required();
    command->add_flag("--overwrite", arguments->overwrite, "Replace a picture that exists");
    arguments->conversion.declare(*command);
    command->callback([arguments, stop] { writeFrame(*arguments, stop); });
}

} // namespace panoveer::tool
