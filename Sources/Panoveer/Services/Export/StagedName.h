#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace panoveer {

// A file name made of a stem that a person chose and a suffix that must stay whole. Where both together are longer
// than file systems allow (255 bytes), the stem loses its end, at a character boundary. `reserved` bytes are
// left free behind the suffix.
std::string fittingFileName(std::string_view stem, std::string_view suffix, std::size_t reserved = 0);

} // namespace panoveer
