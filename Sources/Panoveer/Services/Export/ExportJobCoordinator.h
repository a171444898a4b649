#pragma once

#include "Platform/Core/UUID.h"

#include <optional>

namespace panoveer {

// Sees to it that one job at a time owns the exporter. One thread: that of whoever starts jobs.
class ExportJobCoordinator {
public:
    // True when the exporter is free, or this job's already.
    bool begin(const UUID& id) {
        if (activeJobID_ && activeJobID_ != id)
            return false;
        activeJobID_ = id;
        return true;
    }

    bool isCurrent(const UUID& id) const { return activeJobID_ == id; }

    // False for a job that does not own the exporter; the one that does keeps it.
    bool finish(const UUID& id) {
        if (activeJobID_ != id)
            return false;
        activeJobID_.reset();
        return true;
    }

    const std::optional<UUID>& activeJobID() const { return activeJobID_; }

private:
    std::optional<UUID> activeJobID_;
};

} // namespace panoveer
