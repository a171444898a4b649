#include "Platform/Core/Log.h"

#include "Platform/Core/StandardFolders.h"

#include <spdlog/sinks/rotating_file_sink.h>
#include <spdlog/sinks/stdout_sinks.h>
#include <spdlog/spdlog.h>

#include <cstdlib>
#include <filesystem>
#include <memory>

namespace panoveer {

namespace {

constexpr std::size_t maximumLogBytes = 4 << 20;
constexpr std::size_t keptLogFiles = 3;
constexpr const char* subsystem = "com.fernhollow.panoveer";

spdlog::level::level_enum spdlogLevel(LogLevel level) {
    switch (level) {
    case LogLevel::debug: return spdlog::level::debug;
    case LogLevel::info: return spdlog::level::info;
    case LogLevel::warning: return spdlog::level::warn;
    case LogLevel::error: return spdlog::level::err;
    }
    return spdlog::level::info;
}

std::shared_ptr<spdlog::logger> makeLogger() {
    std::vector<spdlog::sink_ptr> sinks;
    try {
        std::filesystem::create_directories(logFile().parent_path());
        auto file =
            std::make_shared<spdlog::sinks::rotating_file_sink_mt>(logFile().string(), maximumLogBytes, keptLogFiles);
        file->set_level(spdlog::level::info);
        sinks.push_back(std::move(file));
    } catch (const std::exception&) {
        // A read-only home keeps no log; the program goes on without one.
    }
    if (const char* wanted = std::getenv("PANOVEER_LOG"); wanted && *wanted) {
        auto console = std::make_shared<spdlog::sinks::stderr_sink_mt>();
        console->set_level(spdlog::level::from_str(wanted));
        sinks.push_back(std::move(console));
    }
    auto logger = std::make_shared<spdlog::logger>(subsystem, sinks.begin(), sinks.end());
    logger->set_level(spdlog::level::debug);
    logger->flush_on(spdlog::level::warn);
    return logger;
}

spdlog::logger& sharedLogger() {
    static const auto logger = makeLogger();
    return *logger;
}

} // namespace

void flushLog() noexcept {
    try {
        sharedLogger().flush();
    } catch (...) {
        // As below.
    }
}

void logMessage(LogLevel level, std::string_view category, const std::string& message) noexcept {
    try {
        sharedLogger().log(spdlogLevel(level), "[{}] {}", category, message);
    } catch (...) {
        // Logging must never take the program down.
    }
}

} // namespace panoveer
