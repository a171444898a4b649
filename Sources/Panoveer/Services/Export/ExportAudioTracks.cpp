#include "Panoveer/Services/Export/ExportAudioTracks.h"

#include "Panoveer/Services/Audio/ExportAudioPlanner.h"
#include "Panoveer/Services/Audio/SourceAudioInspector.h"
#include "Panoveer/Services/Export/SegmentDuration.h"
#include "Panoveer/Services/Export/VRExportError.h"
#include "Platform/Core/Error.h"
#include "Platform/Core/Log.h"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <set>
#include <span>
#include <utility>

namespace panoveer {

namespace {

constexpr Logger logger("Export");

using Plan = ExportAudioTrackPlan;

struct ContentFields {
    DiagnosticFields& fields;

    void operator()(const Plan::Speakers& speakers) const {
        fields["output_content"] = std::string("speakers");
        fields["output_ffmpeg_mask"] = std::int64_t(speakers.ffmpegMask);
    }
    void operator()(const Plan::Ambisonic& field) const {
        fields["output_content"] = std::string("ambisonic");
        fields["output_ambisonic_order"] = std::int64_t(field.order);
        fields["output_head_locked_channels"] = std::int64_t(field.extraChannels);
    }
    void operator()(const Plan::Discrete&) const { fields["output_content"] = std::string("discrete"); }
};

DiagnosticFields trackFields(const Plan& plan, std::size_t index) {
    auto fields = diagnosticFields(plan);
    fields["track"] = std::int64_t(index);
    return fields;
}

std::string whatWentWrong(const std::exception_ptr& failure) {
    try {
        std::rethrow_exception(failure);
    } catch (const std::exception& error) {
        return error.what();
    } catch (...) {
        return "unknown";
    }
}

} // namespace

DiagnosticFields diagnosticFields(const ExportAudioTrackPlan& plan) {
    DiagnosticFields fields = {{"output_channels", std::int64_t(plan.channelCount)},
                               {"output_sample_rate", std::int64_t(audioSampleRate)},
                               {"output_spatial_audio_metadata", plan.spatialAudio.has_value()}};
    if (const auto* aac = std::get_if<Plan::AAC>(&plan.encoding)) {
        fields["output_codec"] = std::string("aac");
        fields["output_bitrate"] = aac->bitRate;
    } else {
        fields["output_codec"] = std::string("lpcm_s24le");
    }
    std::visit(ContentFields{fields}, plan.content);
    return fields;
}

ExportAudioTracks::ExportAudioTracks(const ExportOutputDescriptor& descriptor, ExportDiagnostics& diagnostics,
                                     AudioRoads roads)
    : descriptor_(descriptor), diagnostics_(diagnostics), roads_(std::move(roads)) {}

void ExportAudioTracks::configure(AssetWriter& writer, const std::stop_token& stop) {
    std::vector<std::vector<SourceAudioTrack>> trackLists;
    if (descriptor_.audioMode != ExportAudioMode::none)
        trackLists = inspectAudioSources(stop);
    configureAudioTracks(writer, ExportAudioPlanner::plan(trackLists, descriptor_.codec, descriptor_.audioMode));
    if (tracks_.empty())
        diagnostics_.record("audio_not_present");
}

// The tracks of each source, in timeline order.
std::vector<std::vector<SourceAudioTrack>> ExportAudioTracks::inspectAudioSources(const std::stop_token& stop) {
    std::set<URL> readThroughFFmpeg;
    for (const auto& segment : descriptor_.segments)
        if (segment.videoDecodingBackend == VideoDecodingBackend::ffmpeg)
            readThroughFFmpeg.insert(segment.sourceURL);
    std::vector<std::vector<SourceAudioTrack>> trackLists;
    for (const auto& segment : descriptor_.segments) {
        const auto& url = segment.sourceURL;
        if (sources_.contains(url))
            continue;
        if (stop.stop_requested())
            throw Cancelled();
        auto tracks = SourceAudioInspector::tracks(url, readThroughFFmpeg.contains(url));
        diagnostics_.record("audio_source_inspected",
                            {{"source", url.lastPathComponent()}, {"tracks", std::int64_t(tracks.size())}});
        trackLists.push_back(tracks);
        sources_.emplace(url, std::move(tracks));
    }
    return trackLists;
}

void ExportAudioTracks::configureAudioTracks(AssetWriter& writer, std::vector<ExportAudioTrackPlan> plans) {
    const auto frames = std::llround(totalDuration(descriptor_.segments) * audioSampleRate);
    for (auto& plan : plans) {
        std::string reason;
        if (!writer.canApply(plan.writerSettings(), &reason)) {
            auto fields = trackFields(plan, tracks_.size());
            fields["reason"] = reason;
            diagnostics_.record("audio_writer_configuration_rejected", fields);
            logger.error("audio configuration refused track={} reason={}", tracks_.size(), reason);
            plan = ExportAudioPlanner::stereoFallback(plan);
            if (writer.canApply(plan.writerSettings(), &reason))
                diagnostics_.record("audio_writer_configuration_fallback", trackFields(plan, tracks_.size()));
        }
        auto* input = writer.addAudioInput(plan.writerSettings(), frames);
        if (!input) {
            VRExportError refusal(VRExportError::Case::cannotAddAudioInput);
            if (!reason.empty())
                refusal.setUnderlying(std::make_shared<Error>(reason));
            throw refusal;
        }
        diagnostics_.record("audio_writer_configured", trackFields(plan, tracks_.size()));
        tracks_.push_back({.plan = std::move(plan), .input = input, .thread = {}});
    }
}

void ExportAudioTracks::start(const ExportWriterStatus& writer, const URL& staged, const std::stop_token& stop) {
    writer_ = writer;
    staged_ = staged;
    forwardStop_.emplace(stop, [ending = ending_]() mutable { ending.request_stop(); });
    int index = 0;
    for (auto& track : tracks_)
        track.thread = std::jthread([this, &track, number = index++] { feed(track, number); });
}

void ExportAudioTracks::feed(Track& track, int index) {
    const DiagnosticFields fields = {{"track", std::int64_t(index)}};
    diagnostics_.record("audio_encoding_started", fields);
    try {
        auto completed = fields;
        completed["frames_written"] = run(track, index);
        diagnostics_.record("audio_encoding_completed", completed);
    } catch (const Cancelled&) {
    } catch (...) {
        // A writer that was cancelled refuses what still comes.
        if (!ending_.stop_requested()) {
            auto failed = fields;
            failed["diagnostic"] = whatWentWrong(std::current_exception());
            diagnostics_.record("audio_encoding_failed", failed);
            failure_.record(std::current_exception());
        }
    }
    track.input->markAsFinished();
    logger.info("audio input {} marked as finished", index);
}

// The frames written.
std::int64_t ExportAudioTracks::run(Track& track, int index) {
    ExportAudioTrackFeeder feeder(
        track.plan, *track.input, index, [&] { waitForRoom(*track.input); }, &diagnostics_, roads_);
    try {
        feeder.run(descriptor_.segments, sources_, ending_.get_token());
    } catch (const VRExportError& error) {
        // What the writer itself says tells more.
        if (const auto cause = writer_.error(); cause && error.which() == VRExportError::Case::audioAppendFailed)
            throw Error(*cause);
        throw;
    }
    return feeder.framesWritten();
}

// Sound waits while the writer is far ahead with it, which is no news while the picture goes on. Its patience is
// measured from the last sign of life of the picture: large frames may take long to render and to encode.
void ExportAudioTracks::waitForRoom(const AudioInput& input) const {
    if (ending_.stop_requested())
        throw Cancelled();
    if (input.isReadyForMoreMediaData())
        return;
    constexpr double usualSeconds = 1;
    auto clock = ExportWaitClock::system();
    clock.uptimeSeconds = [this, uptime = clock.uptimeSeconds, seen = progress(),
                           since = clock.uptimeSeconds()]() mutable {
        if (const auto now = progress(); now != seen) {
            seen = now;
            since = uptime();
        }
        return std::max(uptime() - since - usualSeconds, 0.0);
    };
    waitUntilReady([&] { return input.isReadyForMoreMediaData(); }, "audio", writer_, ending_.get_token(), clock);
}

std::uint64_t ExportAudioTracks::progress() const {
    std::error_code ignored;
    const auto bytes = std::filesystem::file_size(staged_.path(), ignored);
    return videoProgress_.load() + (ignored ? 0 : std::uint64_t(bytes));
}

void ExportAudioTracks::finish() {
    for (auto& track : tracks_)
        if (track.thread.joinable())
            track.thread.join();
    failure_.rethrow();
    if (ending_.stop_requested())
        throw Cancelled();
}

void ExportAudioTracks::cancel() noexcept {
    ending_.request_stop();
    for (auto& track : tracks_)
        if (track.thread.joinable())
            track.thread.join();
}

std::vector<std::optional<SpatialAudioDescriptor>> ExportAudioTracks::spatialAudio() const {
    std::vector<std::optional<SpatialAudioDescriptor>> descriptors;
    for (const auto& track : tracks_)
        descriptors.push_back(track.plan.spatialAudio);
    return descriptors;
}

} // namespace panoveer
