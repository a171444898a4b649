#pragma once

#include "Panoveer/Services/Export/ExportDiagnostics.h"
#include "Platform/Core/FileDescriptor.h"
#include "Platform/Core/URL.h"

#include <chrono>
#include <cstddef>
#include <filesystem>
#include <functional>
#include <mutex>
#include <string>

namespace panoveer {

// Writes the trace of one export into a file of its own, one JSON object a line, without names of people and files.
// Every line is on the disk when record() returns, so that it outlives a crash; what cannot be written is left out.
// Any thread. The trace also goes into the program's log, at debug level.
class ExportDiagnosticsRecorder final : public ExportDiagnostics {
public:
    using Clock = std::function<std::chrono::system_clock::time_point()>;

    // Removes expired traces and begins a new one, for the movie or folder that is exported to. Throws Error in
    // posixErrorDomain.
    explicit ExportDiagnosticsRecorder(const URL& outputURL, const std::filesystem::path& folder = reportsFolder(),
                                       Clock now = std::chrono::system_clock::now);

    void record(std::string_view event, const DiagnosticFields& fields = {}) override;

    const URL& url() const { return url_; }

    // "Export Diagnostics" in the folder of what the program keeps for the user.
    static std::filesystem::path reportsFolder();

    // The latest traces, newest first, each under its name; of the last one that has room, the end. At most so many
    // bytes; empty when there are none.
    static std::string recentReports(std::size_t maximumBytes, const std::filesystem::path& folder = reportsFolder());

private:
    void create(const URL& outputURL, const std::filesystem::path& folder);

    Clock now_;
    URL url_;
    LoggedExportDiagnostics log_;
    std::mutex mutex_; // orders the lines
    FileDescriptor handle_;
};

} // namespace panoveer
