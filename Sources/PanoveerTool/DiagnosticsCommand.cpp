#include "Panoveer/Services/Diagnostics/AppDiagnosticsCollector.h"
#include "Panoveer/Services/Export/ExportDiagnosticsRecorder.h"
#include "PanoveerTool/Commands.h"
#include "Platform/Core/StandardFolders.h"

#include <CLI/CLI.hpp>

#include <iostream>

namespace panoveer::tool {

void declareDiagnostics(CLI::App& program) {
    auto* command = program.add_subcommand(
        "diagnostics", "Print a report to send along with a complaint, without names of people, files and places");
    command->callback([] {
        AppDiagnosticsCollector collector(
            {.version = PANOVEER_VERSION,
             .recentReports =
                 [](std::size_t maximumBytes) { return ExportDiagnosticsRecorder::recentReports(maximumBytes); },
             .logFile = logFile()});
        std::cout << collector.collect() << '\n';
    });
}

} // namespace panoveer::tool
