#pragma once

#include <format>
#include <string>
#include <string_view>

namespace panoveer {

enum class LogLevel { debug, info, warning, error };

// Writes one line to the log of the subsystem "com.fernhollow.panoveer" under a category. The log is a rotating
// file, $XDG_STATE_HOME/Panoveer Studio/panoveer.log; lines of at least the level that PANOVEER_LOG names
// ("debug", "info", "warning", "error") also go to standard error. Never fails, never throws; any thread.
void logMessage(LogLevel level, std::string_view category, const std::string& message) noexcept;

// Brings into the file what waits to be written. Never fails, never throws; any thread.
void flushLog() noexcept;

// A category, held by the code that logs under it.
class Logger {
public:
    explicit constexpr Logger(std::string_view category) : category_(category) {}

    template<class... Args>
    void debug(std::format_string<Args...> format, Args&&... args) const {
        logMessage(LogLevel::debug, category_, std::format(format, std::forward<Args>(args)...));
    }
    template<class... Args>
    void info(std::format_string<Args...> format, Args&&... args) const {
        logMessage(LogLevel::info, category_, std::format(format, std::forward<Args>(args)...));
    }
    template<class... Args>
    void warning(std::format_string<Args...> format, Args&&... args) const {
        logMessage(LogLevel::warning, category_, std::format(format, std::forward<Args>(args)...));
    }
    template<class... Args>
    void error(std::format_string<Args...> format, Args&&... args) const {
        logMessage(LogLevel::error, category_, std::format(format, std::forward<Args>(args)...));
    }

private:
    std::string_view category_;
};

} // namespace panoveer
