#pragma once

#include <stop_token>

namespace CLI {
class App;
}

namespace panoveer::tool {

// Each declares one command on the program; the command runs while the command line is parsed, on the main thread.
// Failures pass out as exceptions: UsageError, Cancelled, Error.
void declareTranscode(CLI::App& program, std::stop_token stop);
void declareProbe(CLI::App& program, std::stop_token stop);
void declareConvert(CLI::App& program, std::stop_token stop);
void declareFrame(CLI::App& program, std::stop_token stop);
void declareMasks(CLI::App& program, std::stop_token stop);
void declareInspect(CLI::App& program);
void declarePresets(CLI::App& program);
void declareDoctor(CLI::App& program);
void declareDiagnostics(CLI::App& program);
void declareSample(CLI::App& program, std::stop_token stop);

} // namespace panoveer::tool
