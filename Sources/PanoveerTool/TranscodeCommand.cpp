#include "Panoveer/Model/Records/ExportProgress.h"
#include "Panoveer/Services/Diagnostics/GenerationFailurePresentation.h"
#include "Panoveer/Services/Intake/FFmpegReaderError.h"
#include "Panoveer/Services/Live/SyphonTranscodeService.h"
#include "PanoveerTool/Commands.h"
#include "PanoveerTool/Exit.h"
#include "PanoveerTool/ExportStart.h"
#include "PanoveerTool/JSONText.h"
#include "PanoveerTool/ProgressDisplay.h"
#include "PanoveerTool/Targets.h"
#include "Platform/Core/Error.h"
#include "Platform/Core/Localization.h"
#include "Platform/Core/Processors.h"
#include "Platform/Core/Text.h"

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include <filesystem>
#include <iostream>

namespace panoveer::tool {

namespace fs = std::filesystem;

namespace {

struct TranscodeArguments {
    std::string input;
    std::optional<std::string> output;
    std::optional<std::string> progress;
    bool overwrite = false;
    bool json = false;
};

void checkSource(const std::string& input) {
    std::error_code unknown;
    const auto status = fs::status(input, unknown);
    if (!fs::exists(status))
        throw Error(input + " does not exist. Check the name.");
    if (!fs::is_regular_file(status))
        throw Error(input + " is no file. Name one movie.");
}

URL destination(const TranscodeArguments& arguments) {
    if (!arguments.output)
        return SyphonTranscodeService::defaultDestination(URL::fromFilePath(arguments.input));
    const auto url = URL::fromFilePath(*arguments.output);
    if (lowercased(url.pathExtension()) != "mp4")
        throw UsageError("-o: a working copy is an .mp4 file");
    checkTarget(url.path(), arguments.overwrite);
    return url;
}

std::string messageOf(const std::exception& failure, const std::string& input) {
    const auto shown = GenerationFailurePresentation::of(failure, localized("error.syphon_transcode.failed.title"));
    const auto subject = dynamic_cast<const FFmpegReaderError*>(&failure) ? input + ": " : "";
    return shown.title + ": " + subject + shown.message;
}

void transcode(const TranscodeArguments& arguments, std::stop_token stop) {
    checkSource(arguments.input);
    const auto style = ProgressDisplay::styleNamed(arguments.progress);
    const auto target = destination(arguments);
    recoverStaleExports(target.deletingLastPathComponent(), style);
    std::int64_t frameCount = 0;
    {
        ProgressDisplay display(style);
        try {
            SyphonTranscodeService::transcode(
                URL::fromFilePath(arguments.input), target,
                [&](double fraction, const std::string& text, std::int64_t framesWritten) {
                    frameCount = framesWritten;
                    display.show({.fraction = fraction, .message = text, .activeQueueItemIDs = {}}, framesWritten);
                },
                stop);
        } catch (const Cancelled& end) {
            display.showEnd(end);
            throw;
        } catch (const std::exception& failure) {
            const Error told(messageOf(failure, arguments.input));
            display.showEnd(told);
            throw told;
        }
    }
    const auto path = target.path().string();
    if (arguments.json)
        std::cout << jsonText({{"path", path}, {"frames", frameCount}, {"bytes", fs::file_size(target.path())}}, 2)
                  << '\n';
    else
        std::cout << path << '\n';
}

} // namespace

void declareTranscode(CLI::App& program, std::stop_token stop) {
    auto arguments = std::make_shared<TranscodeArguments>();
    auto* command = program.add_subcommand("transcode", "Make a working copy of a movie that decodes too slowly");
    command->add_option("FILE", arguments->input, "A movie")->required();
    command->add_option("-o,--output", arguments->output,
                        "The copy, an .mp4 file; else \"NAME Syphon.mp4\" beside FILE");
    command->add_flag("--overwrite", arguments->overwrite, "Replace a file of that name");
    command->add_flag("--json", arguments->json, "Print the result as JSON");
    command->add_option("--progress", arguments->progress, "bar, json or none")
        ->check(CLI::IsMember({"bar", "json", "none"}));
    // In force as soon as it is read, before the work starts a thread.
    command
        ->add_option_function<int>("--threads", limitProcessors,
                                   "Processors that decoding and encoding share; 0 for all")
        ->check(CLI::Range(0, 1024));
    command->callback([arguments, stop] { transcode(*arguments, stop); });
}

} // namespace panoveer::tool
