#include "FFmpegBridge/BridgeFixture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <span>

namespace panoveer::test {
namespace {

using testing::ElementsAre;
using Bytes = std::vector<std::uint8_t>;

struct AudioOptions {
    int stream = -1;
    std::uint64_t mask = 0;
    double start = 0, duration = 0;
};

// A whole stream as it comes out: the samples, and the time of the first of them.
struct Sound {
    int channels = 0;
    double firstSeconds = -1;
    double largestGap = 0; // seconds between the end of a block and the start of the next
    std::vector<float> samples = {};

    std::size_t length() const { return samples.size() / std::size_t(channels); }
    double seconds() const { return double(length()) / 48000; }
    float at(std::size_t frame, int channel = 0) const {
        return samples[frame * std::size_t(channels) + std::size_t(channel)];
    }
};

Sound readSound(const std::filesystem::path& path, const AudioOptions& options = {}) {
    char error[1024] = {};
    PNVFFmpegAudioReader* opened = nullptr;
    if (PNVFFmpegOpenAudioStream(path.c_str(), options.stream, options.mask, &opened, error, sizeof error,
                                 options.start, options.duration) < 0)
        throw std::runtime_error(error);
    const std::unique_ptr<PNVFFmpegAudioReader, decltype(&PNVFFmpegCloseAudio)> reader(opened, PNVFFmpegCloseAudio);
    Sound sound{.channels = PNVFFmpegAudioReaderChannelCount(opened)};
    PNVFFmpegAudioFrame block{};
    int result;
    while ((result = PNVFFmpegReadAudio(opened, &block, error, sizeof error)) == 1) {
        EXPECT_EQ(block.channelCount, sound.channels);
        EXPECT_EQ(block.sampleRate, 48000);
        if (sound.firstSeconds < 0)
            sound.firstSeconds = block.ptsSeconds;
        const double expected = sound.firstSeconds + sound.seconds();
        sound.largestGap = std::max(sound.largestGap, std::abs(block.ptsSeconds - expected));
        sound.samples.insert(sound.samples.end(), block.samples,
                             block.samples + std::ptrdiff_t(block.sampleCount) * block.channelCount);
    }
    EXPECT_EQ(result, 0) << error;
    EXPECT_EQ(PNVFFmpegReadAudio(opened, &block, error, sizeof error), 0);
    return sound;
}

std::vector<PNVFFmpegAudioStreamInfo> probeSound(const std::filesystem::path& path, int capacity = 8) {
    std::vector<PNVFFmpegAudioStreamInfo> streams(std::size_t(std::max(capacity, 0)));
    std::int32_t count = 0;
    char error[1024] = {};
    if (PNVFFmpegProbeAudioStreams(path.c_str(), streams.data(), capacity, &count, error, sizeof error) < 0)
        throw std::runtime_error(error);
    streams.resize(std::size_t(std::min(count, capacity)));
    return streams;
}

// An audio track whose every sample tells its own time: t / 20.
MovieSpec clockSound(const std::string& name, const AudioSpec& audio, double seconds) {
    MovieSpec spec{.name = name, .frameCount = 0, .audio = {audio}, .audioSeconds = seconds};
    spec.audio[0].expression = "t/20";
    return spec;
}

TEST(FFmpegAudioReader, CutsItsWindowToTheSample) {
    const TemporaryFolder folder;
    const auto movie = makeMovie(folder, clockSound("clock.mov", {.codec = "pcm_f32le", .layout = "mono"}, 12));
    const auto window = readSound(movie, {.start = 10, .duration = 0.5});
    EXPECT_EQ(window.firstSeconds, 10);
    EXPECT_EQ(window.length(), 24000u);
    EXPECT_LT(window.largestGap, 1e-9);
    for (const std::size_t sample : {std::size_t(0), std::size_t(12000), std::size_t(23999)})
        EXPECT_NEAR(window.at(sample) * 20, 10 + double(sample) / 48000, 1e-5);

    EXPECT_EQ(readSound(movie, {.start = 11.5}).length(), 24000u);
    EXPECT_NEAR(readSound(movie, {.start = 10.000009}).firstSeconds, 10, 1e-9); // the nearest sample
    EXPECT_EQ(readSound(movie, {.start = 50}).length(), 0u);
}

TEST(FFmpegAudioReader, ResamplesToOneRateWithoutLosingTime) {
    const TemporaryFolder folder;
    const auto movie =
        makeMovie(folder, clockSound("clock.mov", {.codec = "pcm_f32le", .layout = "stereo", .sampleRate = 44100}, 4));
    const auto all = readSound(movie);
    EXPECT_NEAR(double(all.length()), 4 * 48000, 2);
    EXPECT_LT(all.largestGap, 1.0 / 48000);
    for (const std::size_t sample : {std::size_t(1000), std::size_t(90000), std::size_t(190000)})
        EXPECT_NEAR(all.at(sample, 1) * 20, double(sample) / 48000, 1e-3);

    const auto late = readSound(movie, {.start = 2, .duration = 1});
    EXPECT_NEAR(late.firstSeconds, 2, 1.0 / 48000);
    EXPECT_NEAR(double(late.length()), 48000, 1);
    EXPECT_NEAR(late.at(24000) * 20, 2.5, 1e-3);
}

TEST(FFmpegAudioReader, MixesNativeLayoutsAndPassesOthersThrough) {
    const TemporaryFolder folder;
    const auto surround =
        makeMovie(folder, {.name = "surround.mov",
                           .frameCount = 0,
                           .audio = {{.codec = "pcm_f32le", .layout = "5.1", .expression = "0.1|0.2|0.3|0.4|0.5|0.6"}},
                           .audioSeconds = 0.5});
    const auto native = readSound(surround);
    ASSERT_EQ(native.channels, 6);
    for (int channel = 0; channel < 6; ++channel)
        EXPECT_NEAR(native.at(1000, channel), 0.1f * float(channel + 1), 1e-6);
    constexpr std::uint64_t stereoMask = 3;
    EXPECT_EQ(readSound(surround, {.mask = stereoMask}).channels, 2);

    const auto discrete =
        makeMovie(folder, {.name = "discrete.au",
                           .frameCount = 0,
                           .audio = {{.codec = "pcm_s16be", .layout = "5.0", .expression = "0.1|0.2|0.3|0.4|0.5"}},
                           .audioSeconds = 0.5});
    const auto through = readSound(discrete);
    ASSERT_EQ(through.channels, 5);
    for (int channel = 0; channel < 5; ++channel)
        EXPECT_NEAR(through.at(1000, channel), 0.1f * float(channel + 1), 1e-4);
    EXPECT_EQ(probeSound(discrete)[0].channelMask, 0u);
}

TEST(FFmpegAudioReader, GoesOnWhenABroadcastChangesItsChannels) {
    const TemporaryFolder folder;
    Bytes broadcast;
    for (const auto& audio :
         {AudioSpec{.codec = "mp2", .layout = "stereo"}, AudioSpec{.codec = "mp2", .layout = "mono"},
          AudioSpec{.codec = "mp2", .layout = "stereo", .sampleRate = 44100}}) {
        const auto part =
            readFile(makeMovie(folder, {.name = "part.ts", .frameCount = 0, .audio = {audio}, .audioSeconds = 0.5}));
        broadcast.insert(broadcast.end(), part.begin(), part.end());
    }
    writeFile(folder / "all.ts", broadcast);
    const auto sound = readSound(folder / "all.ts");
    EXPECT_EQ(sound.channels, 2);
    EXPECT_GT(sound.seconds(), 1.3);
}

TEST(FFmpegAudioProbe, ListsEveryStreamAndCountsBeyondTheCapacity) {
    const TemporaryFolder folder;
    const auto movie = makeMovie(folder, {.name = "tracks.mov",
                                          .frameCount = 10,
                                          .audio = {{.codec = "aac", .options = {"-disposition:a:0", "0"}},
                                                    {.layout = "5.1", .sampleRate = 44100},
                                                    {.layout = "mono"}},
                                          .outputOptions = {"-disposition:a:1", "default", "-disposition:a:2", "0"}});
    const auto streams = probeSound(movie);
    ASSERT_EQ(streams.size(), 3u);
    EXPECT_EQ(streams[0].streamIndex, 1);
    EXPECT_EQ(streams[0].streamID, 2);
    EXPECT_STREQ(streams[0].codecName, "aac");
    EXPECT_EQ(streams[0].channelMask, 3u);
    EXPECT_EQ(streams[1].channelCount, 6);
    EXPECT_EQ(streams[1].sampleRate, 44100);
    EXPECT_EQ(streams[1].ambisonicOrder, -1);
    EXPECT_EQ(streams[1].isDefault, 1);
    EXPECT_EQ(streams[2].isDefault, 0);
    EXPECT_EQ(streams[2].channelIDs[0], 2); // front centre
    EXPECT_EQ(probeSound(movie, 2).size(), 2u);

    std::int32_t count = -1;
    EXPECT_EQ(PNVFFmpegProbeAudioStreams(movie.c_str(), nullptr, 0, &count, nullptr, 0), 0);
    EXPECT_EQ(count, 3);
}

TEST(FFmpegAudioProbe, KeepsAnAmbisonicOrderThatTheDecoderForgets) {
    const TemporaryFolder folder;
    // SA3D: version 0, periphonic, order 1, ACN, SN3D, four channels in order.
    Bytes ambisonic{0, 0, 0, 0, 0, 1, 0, 0, 0, 0, 0, 4};
    for (std::uint8_t channel = 0; channel < 4; ++channel)
        ambisonic.insert(ambisonic.end(), {0, 0, 0, channel});

    for (const std::string codec : {"aac", "pcm_s16le"}) {
        const auto movie = makeMovie(folder, {.name = codec == "aac" ? "ambisonic.mp4" : "ambisonic.mov",
                                              .frameCount = 0,
                                              .audio = {{.codec = codec, .layout = "quad"}},
                                              .audioSeconds = 0.5});
        appendBox(movie, {"moov", "trak", "mdia", "minf", "stbl", "stsd", codec == "aac" ? "mp4a" : "sowt"}, "SA3D",
                  ambisonic);
        const auto streams = probeSound(movie);
        ASSERT_EQ(streams.size(), 1u);
        EXPECT_EQ(streams[0].channelCount, 4) << codec;
        EXPECT_EQ(streams[0].ambisonicOrder, 1) << codec;
        EXPECT_EQ(streams[0].channelMask, 0u) << codec;
        EXPECT_EQ(readSound(movie).channels, 4) << codec;
    }
}

} // namespace
} // namespace panoveer::test
