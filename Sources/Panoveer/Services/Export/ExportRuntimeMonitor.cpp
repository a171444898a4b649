#include "Panoveer/Services/Export/ExportRuntimeMonitor.h"

#include "Panoveer/Services/Export/ExportDestinationPreflight.h"
#include "Panoveer/Services/Export/ExportSizeEstimator.h"
#include "Panoveer/Services/Export/ExportWaits.h"
#include "Platform/Core/Localization.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <filesystem>
#include <fstream>

namespace panoveer {

namespace fs = std::filesystem;

namespace {

constexpr double sampleIntervalSeconds = 5.0;
constexpr double shortestIntervalSeconds = 0.001;
// What is needed before the size of the whole is projected from what is written.
constexpr double leastProgress = 0.01;
constexpr double leastElapsedSeconds = 10.0;

std::string sizeText(double bytes) { return ExportSizeEstimator::formattedDecimalSize(bytes); }

// The field of /proc/self/statm at the index, as proc(5) numbers them.
std::optional<double> processMemory(int index) {
    std::ifstream statm("/proc/self/statm");
    double pages = 0;
    for (int i = 0; i <= index; ++i)
        if (!(statm >> pages))
            return std::nullopt;
    return pages * double(sysconf(_SC_PAGE_SIZE));
}

template<class Value>
std::optional<Value> firstWord(const fs::path& file) {
    Value value{};
    return std::ifstream(file) >> value ? std::optional(value) : std::nullopt;
}

// Severity of a zone: which of its trip points the temperature has reached.
int severity(const fs::path& zone) {
    constexpr std::array<std::string_view, 4> points = {"active", "passive", "hot", "critical"};
    const auto temperature = firstWord<double>(zone / "temp");
    int reached = 0;
    for (int i = 0; temperature; ++i) {
        const auto point = zone / ("trip_point_" + std::to_string(i));
        const auto type = firstWord<std::string>(point.string() + "_type");
        if (!type)
            break;
        const auto limit = firstWord<double>(point.string() + "_temp");
        if (const auto found = std::ranges::find(points, *type);
            found != points.end() && limit && *limit > 0 && *temperature >= *limit)
            reached = std::max(reached, int(found - points.begin()));
    }
    return reached;
}

std::string thermalStateOfZones() {
    constexpr std::array<const char*, 4> names = {"nominal", "fair", "serious", "critical"};
    int worst = -1;
    std::error_code failure;
    for (fs::directory_iterator zone("/sys/class/thermal", failure), end; !failure && zone != end;
         zone.increment(failure))
        if (zone->path().filename().string().starts_with("thermal_zone"))
            worst = std::max(worst, severity(zone->path()));
    return worst < 0 ? "unknown" : names[std::size_t(worst)];
}

} // namespace

ExportRuntimeMonitorError::ExportRuntimeMonitorError(double current, double remaining, double required,
                                                     double available)
    : Error(localized("error.export.space_exhausting_during_export", sizeText(remaining), sizeText(required),
                      sizeText(available))),
      currentFileBytes(current),
      estimatedRemainingBytes(remaining),
      requiredFreeBytes(required),
      availableBytes(available) {}

ExportSystemReadings ExportSystemReadings::system() {
    return {.uptimeSeconds = ExportWaitClock::system().uptimeSeconds,
            .fileSize =
                [](const URL& url) {
                    std::error_code failure;
                    const auto bytes = fs::file_size(url.path(), failure);
                    return failure ? 0.0 : double(bytes);
                },
            .freeDiskBytes = [](const URL& url) -> std::optional<double> {
                try {
                    return double(ExportDestinationPreflight::availableCapacity(url));
                } catch (const Error&) {
                    return std::nullopt;
                }
            },
            .residentMemoryBytes = [] { return processMemory(1); },
            .virtualMemoryBytes = [] { return processMemory(0); },
            .thermalState = thermalStateOfZones,
            .physicalMemoryBytes = [] { return double(sysconf(_SC_PHYS_PAGES)) * double(sysconf(_SC_PAGE_SIZE)); }};
}

ExportRuntimeMonitor::ExportRuntimeMonitor(Subject subject, ExportDiagnostics* diagnostics,
                                           const ProjectionRenderer& renderer, ExportSystemReadings readings)
    : subject_(std::move(subject)),
      diagnostics_(diagnostics),
      metalDevice_(renderer),
      readings_(std::move(readings)),
      startedAt_(readings_.uptimeSeconds()) {}

void ExportRuntimeMonitor::sampleIfNeeded(std::optional<std::int64_t> framesWritten,
                                          std::optional<double> presentationTimeSeconds, int writerStatus,
                                          std::string_view context, bool force) {
    std::lock_guard lock(mutex_);
    if (framesWritten)
        latestFrameCount_ = *framesWritten;
    if (presentationTimeSeconds && std::isfinite(*presentationTimeSeconds))
        latestPresentationTimeSeconds_ = *presentationTimeSeconds;
    const double now = readings_.uptimeSeconds();
    if (!force && lastSampleAt_ != 0 && now - lastSampleAt_ < sampleIntervalSeconds)
        return;

    const double interval = std::max(now - (lastSampleAt_ != 0 ? lastSampleAt_ : startedAt_), shortestIntervalSeconds);
    const auto sizes = readSizes(now - startedAt_);
    if (diagnostics_) {
        DiagnosticFields fields = {
            {"context", std::string(context)},
            {"frames_written", latestFrameCount_},
            {"last_presentation_time_seconds", latestPresentationTimeSeconds_},
            {"elapsed_seconds", now - startedAt_},
            {"recent_frames_per_second", double(latestFrameCount_ - lastSampleFrameCount_) / interval},
            {"current_file_bytes", sizes.current},
            {"estimated_output_bytes", subject_.estimatedOutputBytes},
            {"projected_output_bytes", sizes.projected},
            {"writer_status", std::int64_t(writerStatus)},
            {"thermal_state", readings_.thermalState()},
            {"physical_memory_bytes", readings_.physicalMemoryBytes()},
            {"metal_current_allocated_bytes", std::int64_t(metalDevice_.currentAllocatedSize())},
            {"metal_recommended_working_set_bytes", std::int64_t(metalDevice_.recommendedMaxWorkingSetSize())}};
        if (sizes.free)
            fields["destination_free_bytes"] = *sizes.free;
        if (const auto bytes = readings_.residentMemoryBytes())
            fields["process_resident_memory_bytes"] = *bytes;
        if (const auto bytes = readings_.virtualMemoryBytes())
            fields["process_virtual_memory_bytes"] = *bytes;
        diagnostics_->record("runtime_sample", fields);
    }
    guardSpace(sizes);
    lastSampleAt_ = now;
    lastSampleFrameCount_ = latestFrameCount_;
}

ExportRuntimeMonitor::Sizes ExportRuntimeMonitor::readSizes(double elapsedSeconds) const {
    Sizes sizes{.current = readings_.fileSize(subject_.outputURL),
                .free = readings_.freeDiskBytes(subject_.outputURL.deletingLastPathComponent())};
    const double progress = subject_.expectedDurationSeconds > 0
                                ? std::min(latestPresentationTimeSeconds_ / subject_.expectedDurationSeconds, 1.0)
                                : 0.0;
    if (progress > leastProgress && elapsedSeconds >= leastElapsedSeconds)
        sizes.projected = sizes.current / progress;
    return sizes;
}

void ExportRuntimeMonitor::guardSpace(const Sizes& sizes) const {
    const double total = std::max(sizes.projected, subject_.estimatedOutputBytes);
    if (!(total > 0) || !sizes.free)
        return;
    const double remaining = std::max(total - sizes.current, 0.0);
    const double required = ExportDestinationPreflight::requiredBytes(remaining);
    if (required > *sizes.free)
        throw ExportRuntimeMonitorError(sizes.current, remaining, required, *sizes.free);
}

} // namespace panoveer
