#pragma once

#include "Panoveer/Services/Export/ExportReadiness.h"
#include "PanoveerTool/ProgressDisplay.h"

#include <vector>

// What the commands that export do before any work.
namespace panoveer::tool {

// Looks after what killed exports left in the folder, and tells of each movie that came of it: a line, or
// {"event":"recovered","partial":PATH}.
void recoverStaleExports(const URL& folder, ProgressStyle style);

// Tells everything that keeps the export from starting, one line each on standard error and with `json` as
// {"blockers":[…]} on standard output, and throws ToldFailure.
void throwIfBlocked(const std::vector<ExportReadinessBlocker>& blockers, bool json);

} // namespace panoveer::tool
