#pragma once

#include "Panoveer/Model/Records/VRClipSegment.h"
#include "Panoveer/Services/Audio/AudioBlockSource.h"
#include "Panoveer/Services/Audio/AudioChannelMatrix.h"
#include "Panoveer/Services/Audio/AudioSegmentSink.h"
#include "Panoveer/Services/Audio/ExportAudioTrackPlan.h"
#include "Panoveer/Services/Audio/SourceAudioTrack.h"
#include "Panoveer/Services/Export/ExportDiagnostics.h"
#include "Platform/Core/Error.h"
#include "Platform/Media/AssetWriter.h"

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <stop_token>
#include <variant>
#include <vector>

namespace panoveer {

// The audio tracks of each source of an export.
using SourceAudioTracks = std::map<URL, std::vector<SourceAudioTrack>>;

// Fills one audio track of a movie: decodes the segments' sound one after the other, conforms it to the track's plan
// and puts silence wherever a source runs short, so that the sound stays in step with the picture whatever the sources
// do.
//
// Made for one track, run once, on a thread of its own. Source trouble becomes silence; what ends the run is a source
// that neither road can read, a failing writer, or a stop.
class ExportAudioTrackFeeder {
public:
    // `waitUntilReady` returns when the input has room, and throws when there will never be any. Input and
    // diagnostics (which may be null) outlive this.
    ExportAudioTrackFeeder(ExportAudioTrackPlan plan, AudioInput& input, int trackIndex,
                           std::function<void()> waitUntilReady, ExportDiagnostics* diagnostics, AudioRoads roads);

    // Throws Cancelled, VRExportError::soundUnreadable, VRExportError::audioAppendFailed, or what waitUntilReady
    // throws.
    void run(std::span<const VRClipSegment> segments, const SourceAudioTracks& sources, const std::stop_token& stop);

    std::int64_t framesWritten() const { return framesWritten_; }

private:
    struct Silence {
        std::int64_t frames = 0;
    };
    struct Samples {
        std::vector<float> values; // interleaved, as the plan has its channels
        std::int64_t frames = 0;
    };
    using Piece = std::variant<Silence, Samples>;

    using Open = std::function<std::unique_ptr<AudioBlockSource>()>;

    std::int64_t append(const SourceAudioTrack& track, const VRClipSegment& segment, std::int64_t frameLimit);
    std::optional<Error> readAVFoundation(std::int32_t trackID, const VRClipSegment& segment,
                                          const AudioChannelMatrix::Conformed& conformed, AudioSegmentSink& sink);
    std::optional<Error> readFFmpeg(std::int32_t streamIndex, const VRClipSegment& segment,
                                    const AudioChannelMatrix::Conformed& conformed, AudioSegmentSink& sink);
    void recordFallback(const VRClipSegment& segment, const Error& failure) const;
    std::optional<Error> read(const Open& open, const AudioChannelMatrix& matrix, AudioSegmentSink& sink);
    std::vector<Piece> conform(AudioBlock block, const AudioChannelMatrix& matrix, AudioSegmentSink& sink);
    void append(Piece piece);
    void appendSilence(std::int64_t frames);
    void appendSamples(std::vector<float> samples, std::int64_t frames);
    void throwIfStopped() const;

    ExportAudioTrackPlan plan_;
    AudioInput& input_;
    int trackIndex_;
    std::shared_ptr<const AudioFormatDescription> formatDescription_;
    std::function<void()> waitUntilReady_;
    ExportDiagnostics* diagnostics_;
    AudioRoads roads_;
    std::stop_token stop_;
    std::int64_t framesWritten_ = 0;
};

} // namespace panoveer
