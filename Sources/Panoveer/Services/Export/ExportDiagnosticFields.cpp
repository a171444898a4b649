#include "Panoveer/Services/Export/ExportDiagnosticFields.h"

#include "Panoveer/Model/Records/RecordEnums.h"
#include "Panoveer/Services/Export/ExportVideoSettings.h"

#include <algorithm>
#include <string>
#include <thread>
#include <vector>

namespace panoveer {

DiagnosticFields exportDiagnosticFields(const ExportOutputDescriptor& descriptor, ExportOutputPosition position,
                                        const ProjectionRenderer& renderer, const ExportSystemReadings& readings) {
    std::vector<std::string> sources;
    for (const auto& segment : descriptor.segments)
        if (auto path = segment.sourceURL.path().string(); !std::ranges::contains(sources, path))
            sources.push_back(std::move(path));
    DiagnosticFields fields = {
        {"output_index", std::int64_t(position.index)},
        {"output_count", std::int64_t(position.count)},
        {"output_path", descriptor.url.path().string()},
        {"codec", std::string(rawValue(descriptor.codec))},
        {"format", std::string(rawValue(descriptor.outputFormat))},
        {"width", descriptor.resolution.width},
        {"height", descriptor.resolution.height},
        {"source_files", std::move(sources)},
        {"estimated_bytes", estimatedOutputBytes(descriptor)},
        {"processor_count", std::int64_t(std::thread::hardware_concurrency())},
        {"thermal_state", readings.thermalState()},
        {"metal_device", renderer.name()},
        {"metal_has_unified_memory", renderer.hasUnifiedMemory()},
        {"metal_recommended_working_set_bytes", std::int64_t(renderer.recommendedMaxWorkingSetSize())},
        {"metal_current_allocated_bytes", std::int64_t(renderer.currentAllocatedSize())},
        {"physical_memory_bytes", readings.physicalMemoryBytes()},
        {"duration_seconds", totalDurationSeconds(descriptor)},
        {"colorMode", std::string(rawValue(descriptor.colorMode))},
        {"vrMetadataMode", std::string(rawValue(descriptor.vrMetadataMode))}};
    if (descriptor.bitrateMbps)
        fields["configured_bitrate_mbps"] = *descriptor.bitrateMbps;
    if (descriptor.targetFrameRate)
        fields["target_frame_rate"] = *descriptor.targetFrameRate;
    return fields;
}

} // namespace panoveer
