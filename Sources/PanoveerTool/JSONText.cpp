#include "PanoveerTool/JSONText.h"

#include <nlohmann/json.hpp>

namespace panoveer::tool {

std::string jsonText(const nlohmann::ordered_json& value, int indent) {
    return value.dump(indent, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

} // namespace panoveer::tool
