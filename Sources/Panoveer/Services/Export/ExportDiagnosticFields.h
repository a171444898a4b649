#pragma once

#include "Panoveer/Rendering/Projection/ProjectionRenderer.h"
#include "Panoveer/Services/Export/ExportDiagnostics.h"
#include "Panoveer/Services/Export/ExportOutputDescriptor.h"
#include "Panoveer/Services/Export/ExportRuntimeMonitor.h"

#include <cstddef>

namespace panoveer {

// Which movie of an export it is.
struct ExportOutputPosition {
    std::size_t index = 0; // from 0
    std::size_t count = 1;
};

// What the first record of a movie says of it and of the machine that makes it.
DiagnosticFields exportDiagnosticFields(const ExportOutputDescriptor& descriptor, ExportOutputPosition position,
                                        const ProjectionRenderer& renderer, const ExportSystemReadings& readings);

} // namespace panoveer
