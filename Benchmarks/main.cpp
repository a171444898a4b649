// Measures this program beside its peers, in one run on the same machine, and prints ratios.

#include "Benchmarks/BenchmarkReport.h"
#include "Benchmarks/DetectionBenchmark.h"

#include <cstring>
#include <exception>
#include <iostream>
#include <string>

int main(int argc, char** argv) {
    using namespace panoveer::bench;
    bool json = false;
    int runs = 3;
    std::string name = "all";
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--json") == 0)
            json = true;
        else if (std::strcmp(argv[i], "--runs") == 0 && i + 1 < argc)
            runs = std::max(1, std::atoi(argv[++i]));
        else
            name = argv[i];
    }
    if (name != "all" && name != "reproject" && name != "export" && name != "detect") {
        std::cerr << "usage: panoveer-bench [reproject|export|detect] [--runs N] [--json]\n";
        return 2;
    }
    try {
        if (name == "detect") {
            detectionBenchmark(json);
            return 0;
        }
        std::vector<Comparison> comparisons;
        if (name != "export")
            comparisons = reprojectBenchmark(runs);
        if (name != "reproject")
            for (auto& comparison : exportBenchmark(runs))
                comparisons.push_back(std::move(comparison));
        json ? printJSON(comparisons) : printTable(comparisons);
        return 0;
    } catch (const std::exception& error) {
        std::cerr << "panoveer-bench: " << error.what() << '\n';
        return 1;
    }
}
