// Measures this program beside its peers, in one run on the same machine: times as ratios, pictures by how near they
// come to the truth.

#include "Benchmarks/BenchmarkEngines.h"
#include "Benchmarks/BenchmarkReport.h"
#include "Benchmarks/DetectionBenchmark.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <exception>
#include <iostream>
#include <iterator>
#include <set>

int main(int argc, char** argv) {
    using namespace panoveer::bench;
    CLI::App program("Measures Panoveer Studio beside FFmpeg's v360, in one run", "panoveer-bench");
    std::set<std::string> names;
    BenchmarkOptions options;
    bool json = false;
    program
        .add_option("NAME", names,
                    "export: whole conversions; reproject: the time of a frame; picture: its quality. All of these "
                    "when none is named. detect, by itself: how often formats are recognised")
        ->check(CLI::IsMember({"detect", "export", "picture", "reproject"}));
    program.add_option("--engine", options.engine, "For reproject and picture; else all but the scalar reference")
        ->check(CLI::IsMember(engineChoices()));
    program.add_option("--runs", options.runs, "Measured runs of each side, for export and reproject")
        ->check(CLI::Range(1, 1000));
    program
        .add_option("--shrink", options.shrink,
                    "For picture: everything smaller by this factor, with the same detail in a pixel")
        ->check(CLI::IsMember({1, 2, 4, 8}));
    program.add_flag("--json", json, "Print the report as JSON");
    try {
        program.parse(argc, argv);
    } catch (const CLI::ParseError& end) {
        return program.exit(end) == 0 ? 0 : 2;
    }

    const auto isWanted = [&](const char* name) { return names.empty() || names.contains(name); };
    try {
        if (names.contains("detect")) {
            if (names.size() > 1) {
                std::cerr << "panoveer-bench: detect has a report of its own: name it alone\n";
                return 2;
            }
            detectionBenchmark(json);
            return 0;
        }
        Report report;
        // First what measures the memory of other processes, while this one is small.
        if (isWanted("export"))
            report.times = exportBenchmark(options);
        if (isWanted("reproject"))
            std::ranges::move(reprojectBenchmark(options), std::back_inserter(report.times));
        if (isWanted("picture"))
            report.pictures = pictureBenchmark(options);
        json ? printJSON(report) : printTable(report);
        return 0;
    } catch (const std::exception& error) {
        std::cerr << "panoveer-bench: " << error.what() << '\n';
        return 1;
    }
}
