#pragma once

#include <nlohmann/json_fwd.hpp>

#include <string>
#include <string_view>

namespace panoveer {

// Takes out of log text and JSON records whatever could name a person, a file or a place, before they go into a report
// that is shared. Stateless; any thread.
struct DiagnosticPrivacyRedactor {
    static std::string redact(std::string_view text);

    // Line by line: the values of JSON objects and arrays are redacted by their keys, other lines stay.
    static std::string redactJSONLines(std::string_view text);

    // A value that stands under `key`; empty at the top and for the elements of an array.
    static nlohmann::json redactJSONObject(const nlohmann::json& value, std::string_view key = {});

    // What takes the place of a value that must go: a list of texts keeps its length.
    static nlohmann::json redactedShape(const nlohmann::json& value);

    // Whether values under the key name files or places: "source_files", "partial_path".
    static bool isSensitiveKey(std::string_view key);
};

} // namespace panoveer
