#include "Panoveer/Services/Export/StagedName.h"

#include <algorithm>
#include <climits>

namespace panoveer {

std::string fittingFileName(std::string_view stem, std::string_view suffix, std::size_t reserved) {
    const auto room = std::size_t(NAME_MAX) - std::min<std::size_t>(NAME_MAX, suffix.size() + reserved);
    if (stem.size() > room) {
        const auto isContinuation = [](char c) { return (static_cast<unsigned char>(c) & 0xc0) == 0x80; };
        auto end = room;
        while (end > 0 && isContinuation(stem[end]))
            --end;
        stem = stem.substr(0, end);
    }
    return std::string(stem).append(suffix);
}

} // namespace panoveer
