#pragma once

#include <nlohmann/json_fwd.hpp>

#include <string>

namespace panoveer::tool {

// JSON as this program prints it. A file name may hold bytes that are no UTF-8, which JSON cannot; they become U+FFFD.
// An indent of -1 gives one line.
std::string jsonText(const nlohmann::ordered_json& value, int indent = -1);

} // namespace panoveer::tool
