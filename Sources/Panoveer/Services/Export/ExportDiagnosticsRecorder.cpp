#include "Panoveer/Services/Export/ExportDiagnosticsRecorder.h"

#include "Panoveer/Services/Diagnostics/DiagnosticPrivacyRedactor.h"
#include "Panoveer/Services/Export/ExportFileNaming.h"
#include "Panoveer/Services/Export/StagedName.h"
#include "Platform/Core/Error.h"
#include "Platform/Core/StandardFolders.h"
#include "Platform/Core/Text.h"

#include <fcntl.h>
#include <nlohmann/json.hpp>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <format>
#include <fstream>
#include <sstream>
#include <vector>

namespace panoveer {

namespace fs = std::filesystem;

namespace {

using std::chrono::system_clock;

// Longer than it takes somebody to come back to a failed night's work.
constexpr std::chrono::days retention(30);
constexpr std::string_view reportExtension = ".jsonl";

struct Report {
    fs::path path;
    fs::file_time_type modified;
};

std::vector<Report> reportsIn(const fs::path& folder) {
    std::vector<Report> reports;
    std::error_code failure;
    for (fs::directory_iterator entry(folder, failure), end; !failure && entry != end; entry.increment(failure)) {
        std::error_code unreadable;
        const auto modified = entry->last_write_time(unreadable);
        if (!unreadable && entry->path().extension() == reportExtension)
            reports.push_back({entry->path(), modified});
    }
    return reports;
}

void removeExpiredReports(const fs::path& folder, system_clock::time_point now) {
    const auto oldest = std::chrono::file_clock::from_sys(now) - retention;
    std::error_code ignored;
    for (const auto& report : reportsIn(folder))
        if (report.modified < oldest)
            fs::remove(report.path, ignored);
}

std::string contents(const fs::path& file) {
    std::ostringstream text;
    text << std::ifstream(file, std::ios::binary).rdbuf();
    return std::move(text).str();
}

// Whole lines from the end.
std::string_view lastLines(std::string_view text, std::size_t maximumBytes) {
    if (text.size() <= maximumBytes)
        return text;
    const auto tail = text.substr(text.size() - maximumBytes);
    const bool startsALine = text[text.size() - maximumBytes - 1] == '\n';
    const auto lineEnd = tail.find('\n');
    return startsALine ? tail : tail.substr(lineEnd == std::string_view::npos ? tail.size() : lineEnd + 1);
}

} // namespace

fs::path ExportDiagnosticsRecorder::reportsFolder() { return applicationSupportFolder() / "Export Diagnostics"; }

ExportDiagnosticsRecorder::ExportDiagnosticsRecorder(const URL& outputURL, const fs::path& folder, Clock now)
    : now_(std::move(now)) {
    std::error_code failure;
    fs::create_directories(folder, failure);
    if (failure)
        throw posixError(folder.string(), failure.value());
    removeExpiredReports(folder, now_());
    create(outputURL, folder);
    record("created");
}

// A number keeps exports of one name and one second apart.
void ExportDiagnosticsRecorder::create(const URL& outputURL, const fs::path& folder) {
    const auto base =
        localTimeText(now_(), "%Y%m%d-%H%M%S-") + ExportFileNaming::sanitizedCustomBaseName(outputURL.baseName());
    for (int number = 1;; ++number) {
        const auto suffix = (number == 1 ? "" : "-" + std::to_string(number)) + std::string(reportExtension);
        const auto path = folder / fittingFileName(base, suffix);
        handle_ = FileDescriptor(open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_APPEND | O_CLOEXEC, 0600));
        if (handle_) {
            url_ = URL::fromFilePath(path);
            return;
        }
        if (errno != EEXIST)
            throw posixError(path.string(), errno);
    }
}

void ExportDiagnosticsRecorder::record(std::string_view event, const DiagnosticFields& fields) {
    log_.record(event, fields);
    try {
        auto values = nlohmann::json::object();
        for (const auto& [name, value] : fields)
            std::visit([&](const auto& each) { values[name] = each; }, value);
        values = DiagnosticPrivacyRedactor::redactJSONObject(values);
        values["timestamp"] =
            std::format("{:%Y-%m-%dT%H:%M:%SZ}", std::chrono::floor<std::chrono::milliseconds>(now_()));
        values["event"] = event;
        const auto line = values.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) + '\n';

        std::lock_guard lock(mutex_);
        std::string_view rest = line;
        while (!rest.empty()) {
            const auto count = write(handle_.get(), rest.data(), rest.size());
            if (count < 0 && errno == EINTR)
                continue;
            if (count <= 0)
                return;
            rest.remove_prefix(std::size_t(count));
        }
        (void)fsync(handle_.get());
    } catch (const std::exception&) {
        // Diagnostics never stop an export.
    }
}

std::string ExportDiagnosticsRecorder::recentReports(std::size_t maximumBytes, const fs::path& folder) {
    auto reports = reportsIn(folder);
    std::ranges::sort(reports, [](const Report& left, const Report& right) {
        return std::tie(left.modified, left.path) > std::tie(right.modified, right.path);
    });
    std::string text;
    for (const auto& report : reports) {
        const auto heading = (text.empty() ? "" : "\n") + ("Report " + report.path.filename().string()) + "\n";
        if (text.size() + heading.size() >= maximumBytes)
            break;
        text += heading;
        text += lastLines(contents(report.path), maximumBytes - text.size());
    }
    return text;
}

} // namespace panoveer
