#pragma once

#include <string>
#include <string_view>

namespace panoveer {

// The SHA-256 of bytes, in lowercase hexadecimal.
std::string sha256(std::string_view bytes);

} // namespace panoveer
