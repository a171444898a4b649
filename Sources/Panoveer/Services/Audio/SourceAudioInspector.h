#pragma once

#include "Panoveer/Services/Audio/SourceAudioTrack.h"
#include "Panoveer/Services/Intake/FFmpegRuntime.h"
#include "Platform/Core/URL.h"
#include "Platform/Media/MediaAsset.h"

#include <optional>
#include <span>
#include <vector>

namespace panoveer {

// Finds out what the audio tracks of a file are: speakers, a sound field or unrelated channels. Stateless, any thread;
// blocking where a file is read.
struct SourceAudioInspector {
    struct Classification {
        SourceAudioTrack::Kind kind = SourceAudioTrack::Discrete{};
        std::vector<int> canonicalOrder;
        friend bool operator==(const Classification&, const Classification&) = default;
    };

    // The tracks in file order, for the road by which the file's picture is decoded, without those that no decoder
    // opens. Never throws: a file whose sound cannot be read has no tracks.
    static std::vector<SourceAudioTrack> tracks(const URL& url, bool usesFFmpegDecode) noexcept;

    static SourceAudioTrack inspect(const FFmpegAudioStreamInfo& stream);
    // A track of the native road, with the streams that FFmpeg sees in the file beside it.
    static SourceAudioTrack inspect(const AudioTrack& track, std::span<const FFmpegAudioStreamInfo> ffmpegStreams);

    // What the channels of a native track are, by the layout that the container states and by what FFmpeg sees. A sound
    // field that FFmpeg recognises, by an "SA3D" box say, is one whatever the layout says.
    static Classification classify(int channelCount, const std::optional<AudioChannelLayout>& layout,
                                   std::optional<int> ffmpegAmbisonicOrder, bool isLinearPCM);
};

} // namespace panoveer
