#include "Benchmarks/BenchmarkReport.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <chrono>
#include <format>
#include <iostream>

namespace panoveer::bench {

double median(std::vector<double> values) {
    if (values.empty())
        return 0;
    const auto middle = values.begin() + std::ptrdiff_t(values.size() / 2);
    std::ranges::nth_element(values, middle);
    return *middle;
}

double timed(const std::function<void()>& work) {
    const auto begin = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
}

void printTable(const std::vector<Comparison>& comparisons) {
    for (const auto& item : comparisons)
        std::cout << std::format(
            "{}\n  {:44} {:9.2f} ms a {}\n  {:44} {:9.2f} ms a {}\n  ratio, ours over the peer's {:.3f}\n", item.name,
            item.ours, item.oursSeconds * 1e3, item.unit, item.peer, item.peerSeconds * 1e3, item.unit,
            item.oursSeconds / item.peerSeconds);
}

void printJSON(const std::vector<Comparison>& comparisons) {
    nlohmann::ordered_json list = nlohmann::ordered_json::array();
    for (const auto& item : comparisons)
        list.push_back({{"name", item.name},
                        {"ours", item.ours},
                        {"peer", item.peer},
                        {"unit", item.unit},
                        {"oursSeconds", item.oursSeconds},
                        {"peerSeconds", item.peerSeconds},
                        {"ratio", item.oursSeconds / item.peerSeconds}});
    std::cout << list.dump(2) << '\n';
}

} // namespace panoveer::bench
