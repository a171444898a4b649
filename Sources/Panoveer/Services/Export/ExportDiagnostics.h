#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace panoveer {

using DiagnosticValue = std::variant<bool, std::int64_t, double, std::string, std::vector<std::string>>;
using DiagnosticFields = std::map<std::string, DiagnosticValue>;

// The trace of one export: stages and events with their fields. Any thread may record; nothing here throws or stops
// an export. The fields of a record are named in snake case and carry numbers in the unit that their name ends with.
class ExportDiagnostics {
public:
    virtual ~ExportDiagnostics() = default;

    virtual void record(std::string_view event, const DiagnosticFields& fields = {}) = 0;

    // Enters a stage: remembers its name and records "stage_changed" with it.
    void markStage(std::string_view name, DiagnosticFields fields = {});
    std::string stage() const;

private:
    mutable std::mutex mutex_;
    std::string stage_; // guarded by mutex_
};

// Writes the trace into the program's log, at debug level.
class LoggedExportDiagnostics final : public ExportDiagnostics {
public:
    void record(std::string_view event, const DiagnosticFields& fields) override;
};

} // namespace panoveer
