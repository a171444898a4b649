#pragma once

#include <chrono>
#include <cstddef>
#include <filesystem>
#include <functional>
#include <mutex>
#include <string>
#include <string_view>

namespace panoveer {

// Puts together the one report of the application that a person can send along with a complaint: what runs where, the
// latest traces of exports, and the last hour of the log; all of it without names of people, files and places.
//
// Any thread; reports are made one after the other. Blocking, as reading the log can take a moment. Never fails: what
// cannot be read becomes a line of the report.
class AppDiagnosticsCollector {
public:
    struct Sources {
        std::string version = "unknown";
        std::string build = "unknown";
        // At most so many bytes of the latest traces, newest first.
        std::function<std::string(std::size_t maximumBytes)> recentReports;
        std::filesystem::path logFile; // the newest file of the rotating log
        std::function<std::chrono::system_clock::time_point()> now = std::chrono::system_clock::now;
    };

    explicit AppDiagnosticsCollector(Sources sources) : sources_(std::move(sources)) {}

    std::string collect();

    // A text of at most 262,144 bytes as it is; of a longer one the end, which tells what just went wrong, with a line
    // that says so in front.
    static std::string limited(std::string text);

private:
    std::string header() const;
    std::string exportReports() const;
    std::string applicationLog() const;

    const Sources sources_;
    std::mutex mutex_; // held while a report is made
};

} // namespace panoveer
