#include "Panoveer/Services/Export/ExportAudioTrackFeeder.h"

#include "Panoveer/Services/Audio/PCMSampleBuffers.h"
#include "Panoveer/Services/Diagnostics/GenerationFailureDescriber.h"
#include "Panoveer/Services/Export/SegmentDuration.h"
#include "Panoveer/Services/Export/VRExportError.h"

#include <algorithm>
#include <cmath>
#include <numeric>
#include <utility>

namespace panoveer {

namespace {

using Track = SourceAudioTrack;

// Small, so that an input never waits for one large buffer.
constexpr std::int64_t silenceFrames = 4096;

// A track of the native road as the FFmpeg road reads it.
Track onFFmpegRoad(Track track, std::int32_t streamIndex) {
    track.backend = Track::FFmpegBackend{streamIndex};
    track.ffmpegFallbackStreamIndex.reset();
    track.canonicalOrder.resize(std::size_t(std::max(track.channelCount, 0)));
    std::iota(track.canonicalOrder.begin(), track.canonicalOrder.end(), 0);
    return track;
}

} // namespace

ExportAudioTrackFeeder::ExportAudioTrackFeeder(ExportAudioTrackPlan plan, AudioInput& input, int trackIndex,
                                               std::function<void()> waitUntilReady, ExportDiagnostics* diagnostics,
                                               AudioRoads roads)
    : plan_(std::move(plan)),
      input_(input),
      trackIndex_(trackIndex),
      formatDescription_(PCMSampleBuffers::formatDescription(plan_.channelCount, plan_.bufferLayout)),
      waitUntilReady_(std::move(waitUntilReady)),
      diagnostics_(diagnostics),
      roads_(std::move(roads)) {}

void ExportAudioTrackFeeder::run(std::span<const VRClipSegment> segments, const SourceAudioTracks& sources,
                                 const std::stop_token& stop) {
    stop_ = stop;
    double timelineSeconds = 0;
    for (const auto& segment : segments) {
        throwIfStopped();
        const double length = segmentDuration(segment);
        // Each target is rounded from the running sum: errors do not pile up.
        const auto target = std::llround((timelineSeconds + length) * audioSampleRate);
        const auto frameLimit = std::max<std::int64_t>(target - framesWritten_, 0);
        const auto source = sources.find(segment.sourceURL);
        const bool hasTrack = source != sources.end() && std::size_t(trackIndex_) < source->second.size();
        const auto decoded =
            hasTrack ? append(source->second[std::size_t(trackIndex_)], segment, frameLimit) : std::int64_t(0);
        appendSilence(frameLimit - decoded);
        if (diagnostics_)
            diagnostics_->record("audio_segment_conformed", {{"track", std::int64_t(trackIndex_)},
                                                             {"source", segment.sourceURL.lastPathComponent()},
                                                             {"decoded_frames", decoded},
                                                             {"padded_frames", frameLimit - decoded}});
        timelineSeconds += length;
    }
}

// The frames that the segment's sound gave, silence within it counted.
std::int64_t ExportAudioTrackFeeder::append(const SourceAudioTrack& track, const VRClipSegment& segment,
                                            std::int64_t frameLimit) {
    AudioSegmentSink sink(frameLimit, segment.start);
    if (frameLimit < 1)
        return 0;
    const auto conformed = AudioChannelMatrix::conform(track, plan_);
    std::optional<Error> failure;
    if (const auto* ffmpeg = std::get_if<Track::FFmpegBackend>(&track.backend)) {
        failure = readFFmpeg(ffmpeg->streamIndex, segment, conformed, sink);
    } else {
        failure =
            readAVFoundation(std::get<Track::AVFoundationBackend>(track.backend).trackID, segment, conformed, sink);
        if (failure && track.ffmpegFallbackStreamIndex) {
            recordFallback(segment, *failure);
            const auto again = onFFmpegRoad(track, *track.ffmpegFallbackStreamIndex);
            // What the first road gave stays: the sink leaves out what is there already.
            failure =
                readFFmpeg(*track.ffmpegFallbackStreamIndex, segment, AudioChannelMatrix::conform(again, plan_), sink);
        }
    }
    if (failure)
        throw VRExportError::soundUnreadable(segment.sourceURL, *failure);
    return sink.written();
}

void ExportAudioTrackFeeder::recordFallback(const VRClipSegment& segment, const Error& failure) const {
    if (diagnostics_)
        diagnostics_->record("audio_ffmpeg_fallback",
                             {{"source", segment.sourceURL.lastPathComponent()},
                              {"avfoundation_diagnostic", GenerationFailureDescriber::diagnosticMessage(failure)}});
}

std::optional<Error> ExportAudioTrackFeeder::readAVFoundation(std::int32_t trackID, const VRClipSegment& segment,
                                                              const AudioChannelMatrix::Conformed& conformed,
                                                              AudioSegmentSink& sink) {
    const auto convertTo = conformed.decodesConverted ? std::optional(plan_.bufferLayout) : std::nullopt;
    return read([&] { return roads_.openNative(segment.sourceURL, trackID, segment.start, convertTo, stop_); },
                conformed.matrix, sink);
}

std::optional<Error> ExportAudioTrackFeeder::readFFmpeg(std::int32_t streamIndex, const VRClipSegment& segment,
                                                        const AudioChannelMatrix::Conformed& conformed,
                                                        AudioSegmentSink& sink) {
    const auto* speakers = std::get_if<ExportAudioTrackPlan::Speakers>(&plan_.content);
    const auto mask = conformed.decodesConverted && speakers ? speakers->ffmpegMask : 0;
    const double length = segmentDuration(segment);
    return read([&] { return roads_.openFFmpeg(segment.sourceURL, streamIndex, segment.start, length, mask, stop_); },
                conformed.matrix, sink);
}

// The failure of the source, if it failed; one of the writer is thrown.
std::optional<Error> ExportAudioTrackFeeder::read(const Open& open, const AudioChannelMatrix& matrix,
                                                  AudioSegmentSink& sink) {
    std::unique_ptr<AudioBlockSource> source;
    while (sink.room() > 0) {
        throwIfStopped();
        std::optional<AudioBlock> block;
        try {
            if (!source)
                source = open();
            block = source->next();
        } catch (const Error& failure) {
            return failure;
        }
        if (!block)
            break;
        for (auto& piece : conform(std::move(*block), matrix, sink))
            append(std::move(piece));
    }
    return std::nullopt;
}

std::vector<ExportAudioTrackFeeder::Piece>
ExportAudioTrackFeeder::conform(AudioBlock block, const AudioChannelMatrix& matrix, AudioSegmentSink& sink) {
    std::vector<Piece> pieces;
    const auto place = sink.place(block.seconds, block.frames);
    if (place.silence > 0)
        pieces.emplace_back(Silence{place.silence});
    if (place.taken < 1)
        return pieces;
    const auto channels = std::size_t(block.channelCount);
    const auto first = std::size_t(place.skipped) * channels, count = std::size_t(place.taken) * channels;
    if (matrix.isIdentity() && matrix.rows.size() == channels && plan_.channelCount == block.channelCount) {
        block.samples.resize(first + count);
        block.samples.erase(block.samples.begin(), block.samples.begin() + std::ptrdiff_t(first));
        pieces.emplace_back(Samples{std::move(block.samples), place.taken});
    } else {
        std::vector<float> mixed;
        matrix.apply(std::span(block.samples).subspan(first, count), block.channelCount, place.taken, mixed);
        pieces.emplace_back(Samples{std::move(mixed), place.taken});
    }
    return pieces;
}

void ExportAudioTrackFeeder::append(Piece piece) {
    if (const auto* silence = std::get_if<Silence>(&piece))
        return appendSilence(silence->frames);
    auto& samples = std::get<Samples>(piece);
    appendSamples(std::move(samples.values), samples.frames);
}

void ExportAudioTrackFeeder::appendSilence(std::int64_t frames) {
    while (frames > 0) {
        const auto count = std::min(frames, silenceFrames);
        appendSamples(std::vector<float>(std::size_t(count) * std::size_t(plan_.channelCount)), count);
        frames -= count;
    }
}

void ExportAudioTrackFeeder::appendSamples(std::vector<float> samples, std::int64_t frames) {
    waitUntilReady_();
    auto buffer =
        PCMSampleBuffers::make(std::move(samples), frames, formatDescription_, {framesWritten_, audioSampleRate});
    if (!input_.append(std::move(buffer)))
        throw VRExportError(VRExportError::Case::audioAppendFailed);
    framesWritten_ += frames;
}

void ExportAudioTrackFeeder::throwIfStopped() const {
    if (stop_.stop_requested())
        throw Cancelled();
}

} // namespace panoveer
