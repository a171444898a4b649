#pragma once

#include <string>
#include <vector>

namespace panoveer::bench {

// What a program took from start to end.
struct ProcessCost {
    double seconds = 0;          // by the clock
    double processorSeconds = 0; // of all its threads, for itself and for the system on its behalf
    double peakMegabytes = 0;    // the most memory it had resident at a time
};

// Runs a program without its standard output. Throws std::runtime_error when it does not start or fails.
//
// The system counts the memory of a new program from that of this process: measure before it grows.
ProcessCost runMeasured(const std::vector<std::string>& command);

} // namespace panoveer::bench
