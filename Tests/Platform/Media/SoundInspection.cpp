#include "SoundInspection.h"

#include "Support/MediaFactory.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <format>
#include <stdexcept>

namespace panoveer::test {

ReadSound readSound(const std::filesystem::path& movie, std::size_t track, double startSeconds,
                    const std::optional<AudioChannelLayout>& convertTo) {
    const auto asset = MediaAsset::load(URL::fromFilePath(movie));
    AssetAudioReader reader(asset, asset->audioTracks().at(track), startSeconds, convertTo);
    reader.startReading();
    ReadSound sound;
    std::int64_t end = 0;
    while (const auto block = reader.copyNextBlock()) {
        if (sound.channelCount == 0) {
            sound.channelCount = block->channelCount;
            sound.seconds = block->presentationSeconds.value();
        }
        const auto position =
            block->presentationSeconds ? std::llround((*block->presentationSeconds - sound.seconds) * 48000) : end;
        if (position < end || block->channelCount != sound.channelCount ||
            std::int64_t(block->samples.size()) != block->frames * block->channelCount)
            throw std::runtime_error(std::format("A block at {} behind {}", position, end));
        end = position + block->frames;
        sound.samples.resize(std::size_t(end * sound.channelCount));
        std::ranges::copy(block->samples, sound.samples.begin() + position * sound.channelCount);
    }
    if (reader.error())
        throw *reader.error();
    return sound;
}

ReadSound decodeSound(const std::filesystem::path& movie, int track, int channelCount) {
    const auto result = runProgram({"ffmpeg", "-nostdin", "-v", "error", "-i", movie.string(), "-map",
                                    std::format("0:a:{}", track), "-f", "f32le", "-"});
    if (result.exitCode != 0 || !result.standardError.empty())
        throw std::runtime_error(result.standardError);
    ReadSound sound{std::vector<float>(result.standardOutput.size() / sizeof(float)), channelCount, 0};
    std::memcpy(sound.samples.data(), result.standardOutput.data(), sound.samples.size() * sizeof(float));
    return sound;
}

std::int64_t loudestFrame(const ReadSound& sound, int channel, std::int64_t around, std::int64_t reach) {
    auto loudest = around;
    for (auto frame = std::max<std::int64_t>(around - reach, 0); frame <= around + reach; ++frame)
        if (frame < sound.frames() &&
            std::abs(sound.at(frame, channel)) > std::abs(loudest < sound.frames() ? sound.at(loudest, channel) : 0))
            loudest = frame;
    return loudest;
}

} // namespace panoveer::test
