#include "Panoveer/Services/Export/ExportDiagnosticsRecorder.h"
#include "Panoveer/Services/Export/ExportPlanner.h"
#include "Panoveer/Services/Export/ExportReadiness.h"
#include "Panoveer/Services/Export/VRNativeExporter.h"
#include "Panoveer/Services/Intake/MediaFileSupport.h"
#include "PanoveerTool/Commands.h"
#include "PanoveerTool/ConversionOptions.h"
#include "PanoveerTool/DetectionText.h"
#include "PanoveerTool/Exit.h"
#include "PanoveerTool/ExportStart.h"
#include "PanoveerTool/JSONText.h"
#include "PanoveerTool/ProgressDisplay.h"
#include "PanoveerTool/RenderEngine.h"
#include "PanoveerTool/Sources.h"
#include "PanoveerTool/Targets.h"
#include "Platform/Core/Error.h"
#include "Platform/Core/Text.h"

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include <filesystem>
#include <format>
#include <iostream>

namespace panoveer::tool {

namespace fs = std::filesystem;

namespace {

struct ConvertArguments {
    std::vector<std::string> inputs;
    std::string output;
    std::optional<std::string> mode;
    std::optional<std::string> progress;
    bool overwrite = false;
    bool json = false;
    ConversionOptions conversion;
};

// Whether the output is one movie; otherwise it is a folder, made or to be made.
bool namesMovieFile(const std::string& output) {
    std::error_code ignored;
    if (output.ends_with('/') || fs::is_directory(output, ignored))
        return false;
    const auto extension = lowercased(URL::fromFilePath(output).pathExtension());
    if (extension == "mov" || extension == "mp4")
        return true;
    if (MediaFileSupport::importableVideoPathExtensions.contains(extension))
        throw UsageError(std::format("-o: movies are written as .mp4 or .mov, not as .{}", extension));
    return false;
}

ExportMode exportMode(const ConvertArguments& arguments) {
    if (arguments.output.empty())
        throw UsageError("-o names neither a file nor a folder");
    const bool isFile = namesMovieFile(arguments.output);
    if (!arguments.mode)
        return isFile ? ExportMode::singleMovie : ExportMode::separateClips;
    if (*arguments.mode == "separateClips") {
        if (isFile)
            throw UsageError("--mode separateClips writes several movies: -o must name a folder");
        return ExportMode::separateClips;
    }
    if (*arguments.mode != "singleMovie")
        throw UsageError(std::format("--mode: '{}' is none of: singleMovie, separateClips", *arguments.mode));
    if (std::error_code ignored; arguments.output.ends_with('/') || fs::is_directory(arguments.output, ignored))
        throw UsageError("--mode singleMovie writes one movie: -o must name a file");
    return ExportMode::singleMovie;
}

// A movie of the plan may stand on no file that somebody still needs.
void checkTargets(const std::vector<ExportOutputDescriptor>& plan, const std::vector<VRClipSegment>& clips,
                  bool overwrite) {
    VRNativeExporter::requireSourcesStay(plan, clips);
    for (const auto& movie : plan)
        checkTarget(movie.url.path(), overwrite);
}

void printResult(const std::vector<ExportOutputDescriptor>& plan, bool json) {
    nlohmann::ordered_json movies = nlohmann::ordered_json::array();
    for (const auto& movie : plan) {
        std::error_code ignored;
        const auto bytes = fs::file_size(movie.url.path(), ignored);
        if (json)
            movies.push_back({{"path", movie.url.path().string()},
                              {"width", movie.resolution.width},
                              {"height", movie.resolution.height},
                              {"bytes", bytes}});
        else
            std::cout << std::format("{}  {}x{}  {:.1f} MB\n", movie.url.path().string(), movie.resolution.width,
                                     movie.resolution.height, double(bytes) / 1e6);
    }
    if (json)
        std::cout << jsonText({{"movies", movies}}, 2) << '\n';
}

void convert(const ConvertArguments& arguments, std::stop_token stop) {
    auto settings = arguments.conversion.settings();
    const auto output = URL::fromFilePath(arguments.output);
    settings.mode = exportMode(arguments);

    const auto stated = arguments.conversion.statedFormat();
    const auto assets = readSources(arguments.inputs, stated, stop);
    std::vector<VRClipSegment> clips;
    SourceFrameRates frameRates;
    for (const auto& asset : assets) {
        announce(asset, stated, ProgressDisplay::styleNamed(arguments.progress));
        clips.push_back(arguments.conversion.clip(asset, settings));
        frameRates[asset.url] = asset.frameRate;
    }
    const auto style = ProgressDisplay::styleNamed(arguments.progress);
    recoverStaleExports(settings.mode == ExportMode::singleMovie ? output.deletingLastPathComponent() : output, style);
    throwIfBlocked(ExportReadiness::evaluate(clips, settings, output, frameRates), arguments.json);
    const auto plan = ExportPlanner::plan(clips, settings, output, frameRates);
    checkTargets(plan, clips, arguments.overwrite);

    const auto renderer = makeRenderer(arguments.conversion.renderer);
    VRNativeExporter exporter(
        *renderer, [](const URL& movieOrFolder) { return std::make_unique<ExportDiagnosticsRecorder>(movieOrFolder); });
    {
        ProgressDisplay display(style);
        try {
            exporter.exportClips(
                clips, settings, output, frameRates,
                [&](const ExportProgress& progress) { display.show(progress, exporter.framesWritten()); }, stop);
        } catch (const std::exception& end) {
            display.showEnd(end);
            throw;
        }
    }
    printResult(plan, arguments.json);
}

} // namespace

void declareConvert(CLI::App& program, std::stop_token stop) {
    auto arguments = std::make_shared<ConvertArguments>();
    auto* command = program.add_subcommand("convert", "Convert movies");
    command->add_option("INPUT", arguments->inputs, "Movies, or folders of movies")->required();
    command->add_option("-o,--output", arguments->output, "A file for one movie, a folder otherwise")->required();
    command->add_option("--mode", arguments->mode, "singleMovie or separateClips; else -o decides");
    command->add_flag("--overwrite", arguments->overwrite, "Replace movies that exist");
    command->add_flag("--json", arguments->json, "Print the result as JSON");
    command->add_option("--progress", arguments->progress, "bar, json or none")
        ->check(CLI::IsMember({"bar", "json", "none"}));
    arguments->conversion.declare(*command);
    command->callback([arguments, stop] { convert(*arguments, stop); });
}

} // namespace panoveer::tool
