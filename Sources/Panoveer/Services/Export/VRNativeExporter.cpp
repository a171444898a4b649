#include "Panoveer/Services/Export/VRNativeExporter.h"

#include "Panoveer/Model/Records/RecordEnums.h"
#include "Panoveer/Services/Diagnostics/GenerationFailureDescriber.h"
#include "Panoveer/Services/Export/ExportPlanner.h"
#include "Panoveer/Services/Export/ExportVideoSettings.h"
#include "Panoveer/Services/Export/MovieExport.h"
#include "Panoveer/Services/Export/VRExportError.h"
#include "Platform/Core/Localization.h"
#include "Platform/Core/Log.h"

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <new>
#include <set>

namespace panoveer {

namespace {

constexpr Logger logger("Export");

class SilentDiagnostics final : public ExportDiagnostics {
public:
    void record(std::string_view, const DiagnosticFields&) override {}
};

std::set<UUID> allQueueItems(std::span<const VRClipSegment> segments) {
    std::set<UUID> ids;
    for (const auto& segment : segments)
        ids.insert(segment.queueItemID);
    return ids;
}

Error errorOf(const std::exception& failure) {
    if (const auto* error = dynamic_cast<const Error*>(&failure))
        return *error;
    if (dynamic_cast<const std::bad_alloc*>(&failure)) {
        VRExportError error(VRExportError::Case::pixelBufferCreationFailed, outOfMemoryStatus);
        error.setUnderlying(std::make_shared<Error>(posixError("Memory", ENOMEM)));
        return error;
    }
    return Error(failure.what());
}

// The failure of a movie, which it names.
VRExportError codecExportFailure(const ExportOutputDescriptor& descriptor, const std::exception& failure) {
    const auto error = errorOf(failure);
    const auto path = descriptor.url.path().string();
    const auto reason = GenerationFailureDescriber::message(error);
    const auto text = reason.starts_with(path) ? reason : path + ": " + reason;
    VRExportError wrapped(VRExportError::Case::codecExportFailed, descriptor.codec, text);
    wrapped.setUnderlying(std::make_shared<Error>(error));
    return wrapped;
}

[[noreturn]] void throwEnd(const ExportOutputDescriptor& descriptor, const std::exception& failure,
                           ExportDiagnostics& diagnostics) {
    const auto* kept = dynamic_cast<const VRExportError*>(&failure);
    if (kept && kept->which() == VRExportError::Case::cancelledPartialSaved) {
        diagnostics.record("export_cancelled_partial_saved",
                           {{"partial_path", kept->url().path().string()}, {"stage", diagnostics.stage()}});
        throw VRExportError(*kept);
    }
    const auto end = kept && kept->isEndOfExport() ? *kept : codecExportFailure(descriptor, failure);
    diagnostics.record("export_failed", {{"stage", diagnostics.stage()},
                                         {"diagnostic", GenerationFailureDescriber::diagnosticMessage(failure)},
                                         {"user_message", std::string(end.what())}});
    logger.error("export failed codec={} error={}", rawValue(descriptor.codec), failure.what());
    throw end;
}

// What a partial movie's finishing leaves of the way: it is not the export that gets done.
constexpr double mostOfPartial = 0.998;

} // namespace

VRNativeExporter::VRNativeExporter(ProjectionRenderer& renderer, DiagnosticsFactory makeDiagnostics,
                                   SegmentFrameRoads roads, ExportSystemReadings readings)
    : renderer_(renderer),
      makeDiagnostics_(std::move(makeDiagnostics)),
      roads_(std::move(roads)),
      readings_(std::move(readings)) {
    if (!makeDiagnostics_)
        makeDiagnostics_ = [](const URL&) { return std::make_unique<LoggedExportDiagnostics>(); };
}

void VRNativeExporter::requireSourcesStay(std::span<const ExportOutputDescriptor> movies,
                                          std::span<const VRClipSegment> segments) {
    std::set<URL> sources;
    for (const auto& segment : segments)
        sources.insert(segment.sourceURL);
    std::error_code ignored;
    for (const auto& movie : movies) {
        if (!std::filesystem::exists(movie.url.path(), ignored))
            continue;
        for (const auto& source : sources)
            if (std::filesystem::equivalent(movie.url.path(), source.path(), ignored))
                throw Error(localized("error.export.destination_is_source", movie.url.path().string()));
    }
}

std::vector<URL> VRNativeExporter::exportClips(std::span<const VRClipSegment> segments, const ExportSettings& settings,
                                               const URL& destination, const SourceFrameRates& sourceFrameRates,
                                               const ProgressHandler& progress, std::stop_token stop) {
    progress({.fraction = 0,
              .message = localized("export.progress.preparing"),
              .activeQueueItemIDs = allQueueItems(segments)});
    const auto descriptors = ExportPlanner::plan(segments, settings, destination, sourceFrameRates);
    requireSourcesStay(descriptors, segments);

    std::unique_ptr<ExportDiagnostics> diagnostics;
    try {
        diagnostics = makeDiagnostics_(destination);
    } catch (const std::exception& error) {
        logger.error("persistent export diagnostics unavailable error={}", error.what());
        diagnostics = std::make_unique<SilentDiagnostics>();
    }

    double totalDuration = 0;
    for (const auto& descriptor : descriptors)
        totalDuration += totalDurationSeconds(descriptor);

    std::vector<URL> written;
    double completedDuration = 0;
    for (const auto& descriptor : descriptors) {
        framesWritten_ = 0;
        try {
            MovieExport movie(renderer_, roads_, descriptor, *diagnostics, stop, {written.size(), descriptors.size()},
                              readings_);
            movie.run([&](double seconds, std::int64_t frames, const std::string& messageKey) {
                framesWritten_ = frames;
                const double fraction = totalDuration > 0 ? (completedDuration + seconds) / totalDuration : 0;
                const bool isPartial = messageKey == "export.progress.finalizing_partial";
                progress({.fraction = std::clamp(fraction, 0.0, isPartial ? mostOfPartial : 0.999),
                          .message = localized(messageKey),
                          .activeQueueItemIDs = allQueueItems(descriptor.segments)});
            });
        } catch (const Cancelled&) {
            diagnostics->record("export_cancelled");
            throw;
        } catch (const std::exception& failure) {
            throwEnd(descriptor, failure, *diagnostics);
        }
        completedDuration += totalDurationSeconds(descriptor);
        written.push_back(descriptor.url);
    }
    diagnostics->record("export_completed");
    progress({.fraction = 1, .message = localized("status.export_complete"), .activeQueueItemIDs = {}});
    return written;
}

} // namespace panoveer
