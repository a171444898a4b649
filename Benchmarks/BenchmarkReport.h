#pragma once

#include <functional>
#include <string>
#include <vector>

namespace panoveer::bench {

// One comparison: how long the peer and this program took for the same work, in the same run.
struct Comparison {
    std::string name;
    std::string ours; // engine or command
    std::string peer;
    double oursSeconds = 0; // median, per unit
    double peerSeconds = 0; // median, per unit
    std::string unit = "frame";
};

// Medians keep a disturbed run out of the figure.
double median(std::vector<double> values);

// Seconds that a call takes.
double timed(const std::function<void()>& work);

void printTable(const std::vector<Comparison>& comparisons);
void printJSON(const std::vector<Comparison>& comparisons);

std::vector<Comparison> reprojectBenchmark(int runs);
std::vector<Comparison> exportBenchmark(int runs);

} // namespace panoveer::bench
