#include "Panoveer/Services/Diagnostics/GenerationFailureDescriber.h"
#include "Panoveer/Services/Export/AlphaMaskExporter.h"
#include "PanoveerTool/Commands.h"
#include "PanoveerTool/ConversionOptions.h"
#include "PanoveerTool/DetectionText.h"
#include "PanoveerTool/ExportStart.h"
#include "PanoveerTool/JSONText.h"
#include "PanoveerTool/ProgressDisplay.h"
#include "PanoveerTool/RenderEngine.h"
#include "PanoveerTool/Sources.h"
#include "Platform/Core/Error.h"

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <iostream>

namespace panoveer::tool {

namespace fs = std::filesystem;

namespace {

struct MasksArguments {
    std::vector<std::string> inputs;
    std::string output;
    std::optional<std::string> progress;
    bool json = false;
    ConversionOptions conversion;
};

void printResult(const URL& folder, bool json) {
    std::vector<std::string> masks;
    for (const auto& entry : fs::directory_iterator(folder.path()))
        masks.push_back(entry.path().string());
    std::ranges::sort(masks);
    if (json) {
        std::cout << jsonText({{"folder", folder.path().string()}, {"masks", masks}}, 2) << '\n';
        return;
    }
    for (const auto& mask : masks)
        std::cout << mask << '\n';
}

void exportMasks(const MasksArguments& arguments, const std::stop_token& stop) {
    std::error_code ignored;
    if (fs::exists(arguments.output, ignored) && !fs::is_directory(arguments.output, ignored))
        throw Error(arguments.output + " is not a folder. Masks are written into a folder: choose another name.");
    const auto settings = arguments.conversion.settings();
    std::vector<VRClipSegment> clips;
    const auto stated = arguments.conversion.statedFormat();
    for (const auto& asset : readSources(arguments.inputs, stated, stop)) {
        announce(asset, stated, ProgressDisplay::styleNamed(arguments.progress));
        clips.push_back(arguments.conversion.clip(asset, settings));
    }

    const auto style = ProgressDisplay::styleNamed(arguments.progress);
    const auto output = URL::fromFilePath(arguments.output);
    recoverStaleExports(output, style);
    const auto renderer = makeRenderer(arguments.conversion.renderer);
    URL folder;
    {
        ProgressDisplay display(style);
        const auto show = [&](const ExportProgress& progress) {
            display.show(progress, std::llround(progress.fraction * double(clips.size())));
        };
        try {
            folder = AlphaMaskExporter(*renderer).exportAlphaMasks(clips, settings, output, show, stop);
        } catch (const Cancelled& end) {
            display.showEnd(end);
            throw;
        } catch (const std::exception& failure) {
            const Error told(GenerationFailureDescriber::message(failure));
            display.showEnd(told);
            throw told;
        }
    }
    printResult(folder, arguments.json);
}

} // namespace

void declareMasks(CLI::App& program, std::stop_token stop) {
    auto arguments = std::make_shared<MasksArguments>();
    auto* command = program.add_subcommand("masks", "Write masks of what clips cover of the output, as PNGs");
    command->add_option("INPUT", arguments->inputs, "Movies, or folders of movies")->required();
    command->add_option("-o,--output", arguments->output, "The folder in which to make a folder of masks")->required();
    command->add_flag("--json", arguments->json, "Print the result as JSON");
    command->add_option("--progress", arguments->progress, "bar, json or none")
        ->check(CLI::IsMember({"bar", "json", "none"}));
    arguments->conversion.declare(*command);
    command->callback([arguments, stop] { exportMasks(*arguments, stop); });
}

} // namespace panoveer::tool
