#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace panoveer::bench {

// What was measured in several runs. The median keeps a disturbed run out of the figure; the ends tell how much was
// disturbed.
struct Spread {
    double median = 0;
    double lowest = 0;
    double highest = 0;

    // All 0 without values.
    static Spread of(std::vector<double> values);
};

// What one side of a comparison took for its work.
struct Cost {
    std::string name;                       // engine or command
    Spread seconds;                         // by the clock, per unit
    std::optional<double> processorSeconds; // of all threads, per unit; median
    std::optional<double> peakMegabytes;    // of resident memory; median
};

// One comparison: how long the peer and this program took for the same work, in the same run.
struct Comparison {
    std::string name;
    std::string unit = "frame";
    Cost ours;
    Cost peer;
};

// How near a picture comes to the truth: peak signal to noise ratios in decibels.
struct PictureScore {
    std::string name;            // of who made it
    double picture = 0;          // the whole of it
    std::optional<double> poles; // what shows the surroundings of the poles; none where the picture does not
    std::optional<double> seam;  // the same where the source's left and right edges meet
};

// One conversion, as every program made it.
struct PictureComparison {
    std::string name;
    std::vector<PictureScore> scores;
};

struct Report {
    std::vector<Comparison> times;
    std::vector<PictureComparison> pictures;
};

// Seconds that a call takes.
double timed(const std::function<void()>& work);

void printTable(const Report& report);
void printJSON(const Report& report);

struct BenchmarkOptions {
    std::optional<int> runs; // measured runs of each side; a number that suits the benchmark when not given
    std::string engine;      // as makeEngines() takes it
    int shrink = 1;          // makes the pictures of the picture benchmark smaller, to try it out
};

std::vector<Comparison> reprojectBenchmark(const BenchmarkOptions& options);
std::vector<Comparison> exportBenchmark(const BenchmarkOptions& options);
std::vector<PictureComparison> pictureBenchmark(const BenchmarkOptions& options);

} // namespace panoveer::bench
