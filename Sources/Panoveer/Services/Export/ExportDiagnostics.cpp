#include "Panoveer/Services/Export/ExportDiagnostics.h"

#include "Platform/Core/Log.h"

namespace panoveer {

namespace {

constexpr Logger logger("Export");

struct ValueText {
    std::string operator()(bool value) const { return value ? "true" : "false"; }
    std::string operator()(std::int64_t value) const { return std::to_string(value); }
    std::string operator()(double value) const { return std::format("{:.6g}", value); }
    std::string operator()(const std::string& value) const { return value; }
    std::string operator()(const std::vector<std::string>& values) const {
        std::string text;
        for (const auto& value : values)
            text += (text.empty() ? "" : ",") + value;
        return text;
    }
};

} // namespace

void ExportDiagnostics::markStage(std::string_view name, DiagnosticFields fields) {
    {
        std::lock_guard lock(mutex_);
        stage_ = name;
    }
    fields["stage"] = std::string(name);
    record("stage_changed", fields);
}

std::string ExportDiagnostics::stage() const {
    std::lock_guard lock(mutex_);
    return stage_;
}

void LoggedExportDiagnostics::record(std::string_view event, const DiagnosticFields& fields) {
    std::string line(event);
    for (const auto& [name, value] : fields)
        line += " " + name + "=" + std::visit(ValueText{}, value);
    logger.debug("{}", line);
}

} // namespace panoveer
