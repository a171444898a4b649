#pragma once

#include "Panoveer/Rendering/Projection/ProjectionRenderer.h"
#include "Panoveer/Services/Export/ExportDiagnostics.h"
#include "Platform/Core/Error.h"
#include "Platform/Core/URL.h"

#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

namespace panoveer {

// The destination is about to fill up. Sizes are bytes.
class ExportRuntimeMonitorError : public Error {
public:
    enum class Case { destinationSpaceExhausting };

    ExportRuntimeMonitorError(double currentFileBytes, double estimatedRemainingBytes, double requiredFreeBytes,
                              double availableBytes);

    double currentFileBytes = 0;
    double estimatedRemainingBytes = 0;
    double requiredFreeBytes = 0;
    double availableBytes = 0;
};

// What a running export reads of the machine; tests bring their own. Sizes are bytes.
struct ExportSystemReadings {
    std::function<double()> uptimeSeconds;
    std::function<double(const URL&)> fileSize; // 0 when it cannot be read
    std::function<std::optional<double>(const URL&)> freeDiskBytes;
    std::function<std::optional<double>()> residentMemoryBytes;
    std::function<std::optional<double>()> virtualMemoryBytes;
    std::function<std::string()> thermalState; // "nominal", "fair", "serious", "critical" or "unknown"
    std::function<double()> physicalMemoryBytes;

    static ExportSystemReadings system();
};

// Watches one movie while it is written: leaves a sample in the diagnostics every 5 seconds, and ends the export before
// the destination is full. Any thread.
class ExportRuntimeMonitor {
public:
    struct Subject {
        URL outputURL; // the file that grows
        double estimatedOutputBytes = 0;
        double expectedDurationSeconds = 0;
    };

    // `diagnostics` may be null. All that is referred to outlives this.
    ExportRuntimeMonitor(Subject subject, ExportDiagnostics* diagnostics, const ProjectionRenderer& renderer,
                         ExportSystemReadings readings = ExportSystemReadings::system());

    // `context` names the stage. Throws ExportRuntimeMonitorError.
    void sampleIfNeeded(std::optional<std::int64_t> framesWritten, std::optional<double> presentationTimeSeconds,
                        int writerStatus, std::string_view context, bool force = false);

private:
    struct Sizes {
        double current = 0;
        double projected = 0; // when the movie is complete; 0 as long as too little is known
        std::optional<double> free;
    };

    Sizes readSizes(double elapsedSeconds) const;
    void guardSpace(const Sizes& sizes) const;

    const Subject subject_;
    ExportDiagnostics* const diagnostics_;
    const ProjectionRenderer& metalDevice_;
    const ExportSystemReadings readings_;
    const double startedAt_; // uptime seconds

    std::mutex mutex_;        // guards what follows
    double lastSampleAt_ = 0; // uptime seconds; 0 before the first
    std::int64_t lastSampleFrameCount_ = 0;
    std::int64_t latestFrameCount_ = 0;
    double latestPresentationTimeSeconds_ = 0;
};

} // namespace panoveer
