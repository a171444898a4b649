#pragma once

#include "Platform/Core/URL.h"

#include <optional>
#include <string_view>
#include <vector>

namespace panoveer {

// Looks after what exports left behind whose process was killed, or whose machine went down: staged movies, the copies
// that get their metadata, folders of masks. A movie that can be played gets its ".partial" name; the rest is removed.
//
// Only names that an export makes are touched, with their UUID, and only what no living process holds a FileLock on; so
// on network file systems, where locks tell nothing, everything is left alone. Any thread, blocking, does not throw.
struct StaleExportRecovery {
    // Returns the partial files that came of it.
    static std::vector<URL> recover(const URL& folder) noexcept;

    enum class Kind { movie, metadataCopy, maskFolder };
    struct StagedName {
        Kind kind = Kind::movie;
        std::string_view baseName;  // of a movie: "film"
        std::string_view extension; // of a movie: "mov"
        std::string_view movieName; // of a copy: the movie that it was made from
    };
    // What a name is among those that an export makes; no value for any other. Refers to `name`.
    static std::optional<StagedName> parse(std::string_view name);
};

} // namespace panoveer
