#include "Panoveer/Services/Diagnostics/AppDiagnosticsCollector.h"

#include "Panoveer/Services/Diagnostics/DiagnosticPrivacyRedactor.h"
#include "Platform/Core/Error.h"
#include "Platform/Core/Log.h"
#include "Platform/Core/Text.h"
#include "Platform/Core/TextPattern.h"

#include <sys/utsname.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <format>
#include <fstream>
#include <sstream>
#include <vector>

namespace panoveer {

namespace {

constexpr std::size_t maximumReportBytes = 262144;
constexpr std::size_t maximumExportReportBytes = 98304;
constexpr std::chrono::seconds logWindow(3600);
constexpr int keptLogFiles = 3; // older ones beside the newest

std::string environmentVariable(const char* name) {
    const char* value = std::getenv(name);
    return value ? value : "";
}

// The user's name for the system, and the kernel: "Debian GNU/Linux 13 (trixie), kernel 6.12.0".
std::string systemVersion(const utsname* system) {
    std::string name = "unknown";
    std::ifstream release("/etc/os-release");
    for (std::string line; std::getline(release, line);)
        if (constexpr std::string_view key = "PRETTY_NAME="; line.starts_with(key)) {
            name = line.substr(key.size());
            std::erase(name, '"');
        }
    return system ? name + ", kernel " + system->release : name;
}

std::string localeName() {
    for (const char* variable : {"LC_ALL", "LC_MESSAGES", "LANG"})
        if (auto value = environmentVariable(variable); !value.empty())
            return value;
    return "C";
}

// One entry of the log. Lines without a date of their own belong to the entry before them.
struct LogEntry {
    std::string date; // "2026-05-01 12:30:00.123", local time
    std::string category;
    std::string message;

    // The log's lines are "[date] [subsystem] [level] [category] message".
    static bool parse(const std::string& line, LogEntry& entry) {
        std::array<std::string, 4> fields;
        std::size_t position = 0;
        for (auto& field : fields) {
            const auto end = line.find("] ", position);
            if (position >= line.size() || line[position] != '[' || end == std::string::npos)
                return false;
            field = line.substr(position + 1, end - position - 1);
            position = end + 2;
        }
        entry = {fields[0], fields[3], line.substr(position)};
        return true;
    }

    std::string line() const { return date + " " + category + " " + message; }
};

void readLog(const std::filesystem::path& file, const std::string& since, std::vector<LogEntry>& entries) {
    std::ifstream stream(file);
    bool isWanted = false;
    for (std::string line; std::getline(stream, line);) {
        LogEntry entry;
        if (LogEntry::parse(line, entry)) {
            isWanted = entry.date >= since;
            if (isWanted)
                entries.push_back(std::move(entry));
        } else if (isWanted) {
            entries.back().message += "\n" + line;
        }
    }
}

} // namespace

std::string AppDiagnosticsCollector::collect() {
    std::lock_guard lock(mutex_);
    std::string report;
    for (const auto& block : {header(), exportReports(), applicationLog()})
        if (!block.empty())
            report += (report.empty() ? "" : "\n\n") + block;
    return limited(std::move(report));
}

std::string AppDiagnosticsCollector::header() const {
    utsname system{};
    const auto* known = uname(&system) == 0 ? &system : nullptr;
    return std::format("Application: Panoveer Studio\n"
                       "Version: {} ({})\n"
                       "Linux: {}\n"
                       "Architecture: {}\n"
                       "Locale: {}\n"
                       "Generated: {:%Y-%m-%dT%H:%M:%SZ}",
                       sources_.version, sources_.build, systemVersion(known), known ? known->machine : "unknown",
                       localeName(), std::chrono::floor<std::chrono::seconds>(sources_.now()));
}

std::string AppDiagnosticsCollector::exportReports() const {
    auto text = sources_.recentReports ? sources_.recentReports(maximumExportReportBytes) : std::string();
    // A trace is named after the time and its movie.
    if (const auto heading = TextPattern::ignoringCase(R"re(^(Report \d{8}-\d{6}-).*\.jsonl$)re"))
        text = heading->replacingMatches(text, "$1<REDACTED_FILE>.jsonl").value_or("");
    while (text.ends_with('\n'))
        text.pop_back();
    return DiagnosticPrivacyRedactor::redact(text);
}

std::string AppDiagnosticsCollector::applicationLog() const {
    flushLog();
    if (std::ifstream newest(sources_.logFile); !newest)
        return std::format("Application log unavailable ({})",
                           DiagnosticPrivacyRedactor::redact(posixError("panoveer.log", errno).what()));
    // As the log writes dates, so that they compare as texts.
    const auto since = localTimeText(sources_.now() - logWindow, "%Y-%m-%d %H:%M:%S");
    std::vector<LogEntry> entries;
    for (int age = keptLogFiles; age > 0; --age)
        readLog(sources_.logFile.parent_path() / std::format("{}.{}{}", sources_.logFile.stem().string(), age,
                                                             sources_.logFile.extension().string()),
                since, entries);
    readLog(sources_.logFile, since, entries);
    std::string text;
    for (const auto& entry : entries)
        text += (text.empty() ? "" : "\n") + DiagnosticPrivacyRedactor::redact(entry.line());
    return text;
}

std::string AppDiagnosticsCollector::limited(std::string text) {
    if (text.size() <= maximumReportBytes)
        return text;
    text.erase(0, text.size() - maximumReportBytes);
    // The cut may have split a character.
    const auto isContinuation = [](char c) { return (static_cast<unsigned char>(c) & 0xc0) == 0x80; };
    const auto whole = std::ranges::find_if_not(text, isContinuation);
    text.erase(text.begin(), whole);
    return "[Earlier log entries omitted]\n" + text;
}

} // namespace panoveer
