#pragma once

#include "Panoveer/Services/Audio/AudioBlockSource.h"
#include "Panoveer/Services/Audio/ExportAudioTrackPlan.h"
#include "Panoveer/Services/Audio/SpatialAudioDescriptor.h"
#include "Panoveer/Services/Export/ConcurrentExportFailure.h"
#include "Panoveer/Services/Export/ExportAudioTrackFeeder.h"
#include "Panoveer/Services/Export/ExportOutputDescriptor.h"
#include "Panoveer/Services/Export/ExportWaits.h"
#include "Platform/Media/AssetWriter.h"

#include <atomic>
#include <cstdint>
#include <functional>
#include <list>
#include <optional>
#include <stop_token>
#include <thread>
#include <vector>

namespace panoveer {

// The sound of one movie of an export. Called from the export's thread, in this order:
//
//   configure   looks into the sources, plans the tracks, gives the writer an input for each    before it starts
//   start       one thread for each track decodes, conforms and appends                         once its session has
//   throwIfFailed, noteVideoProgress                                                            from the frame loop
//   finish      waits until every track is complete                                            before the writer ends
//
// or cancel() at any time. Descriptor and diagnostics outlive this, and the writer outlives its threads.
class ExportAudioTracks {
public:
    ExportAudioTracks(const ExportOutputDescriptor& descriptor, ExportDiagnostics& diagnostics, AudioRoads roads = {});
    ~ExportAudioTracks() { cancel(); }

    // Throws Cancelled, and VRExportError::cannotAddAudioInput when the writer takes neither a planned track nor the
    // stereo one in its place.
    void configure(AssetWriter& writer, const std::stop_token& stop);
    // `staged` is the file that the writer writes.
    void start(const ExportWriterStatus& writer, const URL& staged, const std::stop_token& stop);
    // Throws the first failure of any track.
    void throwIfFailed() const { failure_.rethrow(); }
    // A picture was appended: a writer that takes pictures may let sound wait.
    void noteVideoProgress() { ++videoProgress_; }
    // Throws the first failure of any track, and Cancelled.
    void finish();
    // Stops the tracks and waits for their threads. Tracks that were not complete stay as long as they got.
    void cancel() noexcept;

    std::int64_t count() const { return std::int64_t(tracks_.size()); }
    // What the tracks are to be marked as, in file order.
    std::vector<std::optional<SpatialAudioDescriptor>> spatialAudio() const;

private:
    struct Track {
        ExportAudioTrackPlan plan;
        AudioInput* input = nullptr; // the writer's
        std::jthread thread;
    };

    std::vector<std::vector<SourceAudioTrack>> inspectAudioSources(const std::stop_token& stop);
    void configureAudioTracks(AssetWriter& writer, std::vector<ExportAudioTrackPlan> plans);
    void feed(Track& track, int index);
    std::int64_t run(Track& track, int index);
    void waitForRoom(const AudioInput& input) const;
    std::uint64_t progress() const;

    const ExportOutputDescriptor& descriptor_;
    ExportDiagnostics& diagnostics_;
    AudioRoads roads_;
    SourceAudioTracks sources_;
    ConcurrentExportFailure failure_;
    std::atomic<std::uint64_t> videoProgress_ = 0;
    ExportWriterStatus writer_;
    URL staged_;
    std::stop_source ending_;
    std::optional<std::stop_callback<std::function<void()>>> forwardStop_; // from the export's stop to ending_
    std::list<Track> tracks_; // in file order; its threads see all of the above
};

// The fields of a plan in an export's trace.
DiagnosticFields diagnosticFields(const ExportAudioTrackPlan& plan);

} // namespace panoveer
