#pragma once

#include "Platform/Core/UUID.h"

#include <set>
#include <string>

namespace panoveer {

// How far an export is. The default value is that of no export.
struct ExportProgress {
    double fraction = 0; // 0 to 1
    std::string message;
    std::set<UUID> activeQueueItemIDs;

    // 0 to 100; 100 only once the export is really done.
    int displayedPercent() const;

    friend bool operator==(const ExportProgress&, const ExportProgress&) = default;
};

} // namespace panoveer
