#pragma once

#include "Panoveer/Model/Records/ExportProgress.h"

#include <chrono>
#include <cstdint>
#include <exception>
#include <optional>
#include <string>

namespace panoveer::tool {

enum class ProgressStyle { none, bar, json };

// Shows how far an export is, on standard error: a bar that redraws itself on a terminal, or one JSON object a line.
// One thread.
class ProgressDisplay {
public:
    explicit ProgressDisplay(ProgressStyle style);
    ~ProgressDisplay();
    ProgressDisplay(const ProgressDisplay&) = delete;
    ProgressDisplay& operator=(const ProgressDisplay&) = delete;

    void show(const ExportProgress& progress, std::int64_t framesWritten);

    // The last line of an export that failed or was stopped: {"event":"cancelled","partial":PATH} or
    // {"event":"failed","message":TEXT,"partial":PATH}, without "partial" when nothing is kept. As JSON only; people
    // are told when the program ends.
    void showEnd(const std::exception& failure);

    // A bar where standard error is a terminal, nothing where it is not.
    static ProgressStyle automaticStyle();
    // What "bar", "json" and "none" ask for; automatic without a name.
    static ProgressStyle styleNamed(const std::optional<std::string>& name);

private:
    using Clock = std::chrono::steady_clock;

    void drawBar(const ExportProgress& progress, double elapsedSeconds);
    void printJSON(const ExportProgress& progress, double elapsedSeconds) const;

    ProgressStyle style_;
    Clock::time_point begin_ = Clock::now();
    std::optional<Clock::time_point> lastShown_;
    std::string lastMessage_;
    std::int64_t framesOfFinishedMovies_ = 0;
    std::int64_t framesOfThisMovie_ = 0;
    bool barIsOpen_ = false;
};

} // namespace panoveer::tool
