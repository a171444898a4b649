#include "Benchmarks/BenchmarkReport.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <chrono>
#include <format>
#include <iostream>

namespace panoveer::bench {

namespace {

using nlohmann::ordered_json;

void printCost(const Cost& cost, const std::string& unit) {
    std::cout << std::format("  {:60} {:9.2f} ms a {} ({:.2f} to {:.2f})", cost.name, cost.seconds.median * 1e3, unit,
                             cost.seconds.lowest * 1e3, cost.seconds.highest * 1e3);
    if (cost.processorSeconds)
        std::cout << std::format(", processor {:.2f} ms", *cost.processorSeconds * 1e3);
    if (cost.peakMegabytes)
        std::cout << std::format(", memory {:.0f} MB", *cost.peakMegabytes);
    std::cout << '\n';
}

std::string decibels(const std::optional<double>& value) { return value ? std::format("{:.1f}", *value) : "-"; }

template<class Value>
ordered_json orNull(const std::optional<Value>& value) {
    return value ? ordered_json(*value) : ordered_json();
}

ordered_json json(const Cost& cost) {
    return {{"name", cost.name},
            {"seconds", cost.seconds.median},
            {"lowestSeconds", cost.seconds.lowest},
            {"highestSeconds", cost.seconds.highest},
            {"processorSeconds", orNull(cost.processorSeconds)},
            {"peakMegabytes", orNull(cost.peakMegabytes)}};
}

double ratio(const Comparison& comparison) { return comparison.ours.seconds.median / comparison.peer.seconds.median; }

} // namespace

Spread Spread::of(std::vector<double> values) {
    if (values.empty())
        return {};
    std::ranges::sort(values);
    return {values[values.size() / 2], values.front(), values.back()};
}

double timed(const std::function<void()>& work) {
    const auto begin = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
}

void printTable(const Report& report) {
    for (const auto& comparison : report.times) {
        std::cout << comparison.name << '\n';
        printCost(comparison.ours, comparison.unit);
        printCost(comparison.peer, comparison.unit);
        std::cout << std::format("  ratio, ours over the peer's {:.3f}\n", ratio(comparison));
    }
    if (!report.pictures.empty())
        std::cout << std::format("{:64} {:>7} {:>7} {:>7}\n", "decibels from the truth", "picture", "poles", "seam");
    for (const auto& comparison : report.pictures) {
        std::cout << comparison.name << '\n';
        for (const auto& score : comparison.scores)
            std::cout << std::format("  {:62} {:7.1f} {:>7} {:>7}\n", score.name, score.picture, decibels(score.poles),
                                     decibels(score.seam));
    }
}

void printJSON(const Report& report) {
    auto times = ordered_json::array();
    for (const auto& comparison : report.times)
        times.push_back({{"name", comparison.name},
                         {"unit", comparison.unit},
                         {"ours", json(comparison.ours)},
                         {"peer", json(comparison.peer)},
                         {"ratio", ratio(comparison)}});
    auto pictures = ordered_json::array();
    for (const auto& comparison : report.pictures) {
        auto scores = ordered_json::array();
        for (const auto& score : comparison.scores)
            scores.push_back({{"name", score.name},
                              {"picture", score.picture},
                              {"poles", orNull(score.poles)},
                              {"seam", orNull(score.seam)}});
        pictures.push_back({{"name", comparison.name}, {"psnr", scores}});
    }
    std::cout << ordered_json{{"times", times}, {"pictures", pictures}}.dump(2) << '\n';
}

} // namespace panoveer::bench
