#pragma once

#include "Platform/Media/AssetAudioReader.h"
#include "Platform/Media/MediaAsset.h"

#include <cstdint>
#include <filesystem>
#include <optional>
#include <vector>

namespace panoveer::test {

// Sound that was read: interleaved, without a gap from `seconds` on.
struct ReadSound {
    std::vector<float> samples;
    int channelCount = 0;
    double seconds = 0;

    std::int64_t frames() const { return channelCount > 0 ? std::int64_t(samples.size()) / channelCount : 0; }
    float at(std::int64_t frame, int channel) const { return samples.at(std::size_t(frame * channelCount + channel)); }
};

// Through AssetAudioReader, from a start to the end. Blocks stand where their times say; what no block brings is 0.
// Throws what the reader reports.
ReadSound readSound(const std::filesystem::path& movie, std::size_t track = 0, double startSeconds = 0,
                    const std::optional<AudioChannelLayout>& convertTo = std::nullopt);

// Through the `ffmpeg` program. Throws with its words when it finds anything to complain about.
ReadSound decodeSound(const std::filesystem::path& movie, int track, int channelCount);

// The frame around another one, at most `reach` away, at which a channel is loudest.
std::int64_t loudestFrame(const ReadSound& sound, int channel, std::int64_t around, std::int64_t reach);

} // namespace panoveer::test
