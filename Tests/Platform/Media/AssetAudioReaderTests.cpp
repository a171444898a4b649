#include "Platform/Media/AssetAudioReader.h"
#include "SoundInspection.h"
#include "Support/MediaFactory.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <format>
#include <thread>

namespace panoveer {
namespace {

using namespace test;

constexpr std::int64_t clickDistance = 7919; // frames
constexpr std::int64_t firstClick = 1234;

struct ClickFile {
    std::string name;
    AudioSpec audio;
    double toleranceFrames = 0;
    int tailFrames = 0; // that the codec adds and the container does not take away
};

void PrintTo(const ClickFile& file, std::ostream* out) { *out << file.name << ' ' << file.audio.codec; }

class SoundOfManyKinds : public testing::TestWithParam<ClickFile> {};

TEST_P(SoundOfManyKinds, ComesOutAtItsTimeFromAnyStart) {
    const TemporaryFolder folder;
    auto audio = GetParam().audio;
    audio.expression = std::format("0.9*eq(mod(n,{}),{})", clickDistance, firstClick);
    const auto movie = makeMovie(folder, {.name = GetParam().name, .frameCount = 90, .audio = {audio}});
    const double rateRatio = 48000.0 / audio.sampleRate;
    for (const double start : {0.0, 0.01, 0.5, 1.23456, 2.05}) {
        const auto sound = readSound(movie, 0, start);
        ASSERT_GT(sound.frames(), 0) << start;
        EXPECT_NEAR(sound.seconds, start, 0.6 / 48000);
        const double excess = double(sound.frames()) - (3 - start) * 48000;
        EXPECT_GE(excess, -0.6);
        EXPECT_LE(excess, 0.6 + GetParam().toleranceFrames + GetParam().tailFrames);
        int count = 0;
        for (auto click = firstClick; click * rateRatio < 2.98 * 48000; click += clickDistance) {
            const double frame = double(click) * rateRatio - sound.seconds * 48000;
            if (frame < 1)
                continue;
            const auto found = loudestFrame(sound, 1, std::llround(frame), 1500);
            EXPECT_NEAR(double(found), frame, 0.5 + GetParam().toleranceFrames)
                << "click " << click << " from " << start;
            ++count;
        }
        EXPECT_GE(count, 4);
    }
}

INSTANTIATE_TEST_SUITE_P(
    All, SoundOfManyKinds,
    testing::Values(ClickFile{"aac.mp4", {.codec = "aac"}}, ClickFile{"aac.mov", {.codec = "aac"}},
                    ClickFile{"aac.mkv", {.codec = "aac"}, 0, 1023}, ClickFile{"pcm.mov", {.codec = "pcm_s16le"}},
                    ClickFile{"pcm.mp4", {.codec = "pcm_s24le"}}, ClickFile{"pcm.mkv", {.codec = "pcm_s16le"}},
                    ClickFile{"pcm.avi", {.codec = "pcm_s16le"}}, ClickFile{"ac3.mp4", {.codec = "ac3"}, 0, 1535},
                    ClickFile{"ac3.mov", {.codec = "ac3"}, 0, 1535}, ClickFile{"ac3.mkv", {.codec = "ac3"}, 0, 1535},
                    ClickFile{"opus.mp4", {.codec = "libopus"}}, ClickFile{"opus.mkv", {.codec = "libopus"}},
                    ClickFile{"mp3.mp4", {.codec = "libmp3lame"}, 0, 2304}, ClickFile{"alac.mov", {.codec = "alac"}},
                    ClickFile{"flac.mkv", {.codec = "flac"}},
                    ClickFile{"cd.mp4", {.codec = "aac", .sampleRate = 44100}, 0.6},
                    ClickFile{"cd.mkv", {.codec = "aac", .sampleRate = 44100}, 0.6, 1114}));

TEST(AssetAudioReader, MixesToTheLayoutThatIsAskedFor) {
    const TemporaryFolder folder;
    const auto movie = makeMovie(
        folder,
        {.frameCount = 30,
         .audio = {{.codec = "pcm_s16le", .layout = "stereo", .expression = "0.25|0.5"},
                   {.codec = "pcm_s16le", .layout = "5.1", .expression = "0.1|0.2|0.3|0.4|0.5|0.6"},
                   {.codec = "pcm_s16le", .layout = "FC+FL+FR+BL+BR+LFE", .expression = "0.1|0.2|0.3|0.4|0.5|0.6"},
                   {.codec = "pcm_s16le", .layout = "FR+FL", .expression = "0.1|0.2"},
                   {.codec = "pcm_s16le", .layout = "BL+BR", .expression = "0.1|0.2"}}});
    const auto layout = [](AudioChannelLayoutTag tag) { return AudioChannelLayout{tag, 0, {}}; };
    const auto mono = readSound(movie, 0, 0, layout(AudioChannelLayoutTags::mono));
    ASSERT_EQ(mono.channelCount, 1);
    EXPECT_NEAR(mono.at(1000, 0), 0.75 * std::sqrt(0.5), 1e-3);
    const auto moved = readSound(movie, 1, 0.1, layout(AudioChannelLayoutTags::mpeg51D));
    ASSERT_EQ(moved.channelCount, 6);
    for (int channel = 0; const float level : {0.3f, 0.1f, 0.2f, 0.5f, 0.6f, 0.4f})
        EXPECT_NEAR(moved.at(1000, channel++), level, 1e-4) << channel;
    // Orders and sets of loudspeakers that libswresample has no mix for.
    struct {
        int track;
        AudioChannelLayoutTag tag;
        std::vector<float> levels;
    } const rows[] = {{2, AudioChannelLayoutTags::mpeg51D, {0.1f, 0.2f, 0.3f, 0.4f, 0.5f, 0.6f}},
                      {3, AudioChannelLayoutTags::stereo, {0.2f, 0.1f}},
                      {4, AudioChannelLayoutTags::stereo, {0.1f, 0.2f}},
                      {4, AudioChannelLayoutTags::mono, {0.15f}}};
    for (const auto& row : rows) {
        const auto sound = readSound(movie, row.track, 0, layout(row.tag));
        ASSERT_EQ(sound.channelCount, int(row.levels.size())) << row.track;
        for (int channel = 0; const float level : row.levels)
            EXPECT_NEAR(sound.at(1000, channel++), level, 1e-3) << row.track << ", " << channel;
    }
    EXPECT_THROW(readSound(movie, 1, 0, layout(AudioChannelLayoutTags::discreteInOrder | 2)), Error);
}

TEST(AssetAudioReader, TellsOfTheGapThatADamagedPacketLeaves) {
    const TemporaryFolder folder;
    const auto movie =
        makeMovie(folder, {.name = "a.mov", .frameCount = 0, .audio = {{.codec = "alac"}}, .audioSeconds = 3});
    const auto whole = readSound(movie);
    // A packet of ALAC that begins with an element that does not exist.
    const auto packets = ffprobeJSON(movie, {"-show_packets"}).at("packets");
    auto bytes = readFile(movie);
    const auto& packet = packets.at(10);
    const auto offset = std::stoul(packet.at("pos").get<std::string>());
    std::fill_n(bytes.begin() + std::ptrdiff_t(offset), 64, std::uint8_t(0xFF));
    writeFile(movie, bytes);
    const auto damaged = readSound(movie);
    ASSERT_EQ(damaged.frames(), whole.frames());
    const auto first = packet.at("pts").get<std::int64_t>(), length = packet.at("duration").get<std::int64_t>();
    for (std::int64_t frame = 0; frame < whole.frames(); ++frame)
        if (frame < first || frame >= first + length) {
            ASSERT_EQ(damaged.at(frame, 0), whole.at(frame, 0)) << frame;
        }
}

TEST(AssetAudioReader, SaysWhenTheFileCannotBeRead) {
    const TemporaryFolder folder;
    const auto movie = makeMovie(folder, {.name = "a.mov",
                                          .frameCount = 0,
                                          .audio = {{.codec = "pcm_s16le"}},
                                          .audioSeconds = 3,
                                          .outputOptions = {"-movflags", "+faststart"}});
    const auto asset = MediaAsset::load(URL::fromFilePath(movie));
    std::filesystem::resize_file(movie, std::filesystem::file_size(movie) / 2);
    AssetAudioReader cut(asset, asset->audioTracks().front(), 0);
    ASSERT_TRUE(cut.startReading());
    while (cut.copyNextBlock()) {
    }
    EXPECT_EQ(cut.status(), AssetAudioReader::Status::failed);
    EXPECT_TRUE(cut.error());

    std::filesystem::remove(movie);
    AssetAudioReader gone(asset, asset->audioTracks().front(), 0);
    EXPECT_FALSE(gone.startReading());
    ASSERT_TRUE(gone.error());
    EXPECT_EQ(gone.error()->domain(), posixErrorDomain);
}

TEST(AssetAudioReader, StopsWhenAnotherThreadCancelsIt) {
    const TemporaryFolder folder;
    const auto movie = makeMovie(folder, {.frameCount = 0, .audio = {{.codec = "pcm_s16le"}}, .audioSeconds = 60});
    const auto asset = MediaAsset::load(URL::fromFilePath(movie));
    AssetAudioReader reader(asset, asset->audioTracks().front(), 0);
    ASSERT_TRUE(reader.startReading() && reader.copyNextBlock());
    std::jthread([&] { reader.cancelReading(); }).join();
    EXPECT_FALSE(reader.copyNextBlock());
    EXPECT_EQ(reader.status(), AssetAudioReader::Status::cancelled);
    EXPECT_FALSE(reader.error());
}

TEST(MediaAsset, ListsWhatTheContainerSaysOfEachAudioTrack) {
    const TemporaryFolder folder;
    const auto movie =
        makeMovie(folder, {.name = "a.mkv",
                           .frameCount = 30,
                           .audio = {{.codec = "libopus",
                                      .layout = "ambisonic 1",
                                      .options = {"-mapping_family", "2", "-metadata:s:a:0", "language=ger"}},
                                     {.codec = "aac", .layout = "5.1"},
                                     {.codec = "pcm_s24le", .layout = "mono"}}});
    const auto tracks = MediaAsset::load(URL::fromFilePath(movie))->audioTracks();
    ASSERT_EQ(tracks.size(), 3u);
    EXPECT_EQ(tracks[0].languageCode, "deu");
    EXPECT_FALSE(tracks[1].languageCode);
    EXPECT_EQ(tracks[0].layout.value().tag, AudioChannelLayoutTags::hoaACNSN3D | 4);
    EXPECT_EQ(tracks[1].layout.value().expandedLabels(),
              (AudioChannelLayout{AudioChannelLayoutTags::mpeg51A, 0, {}}).expandedLabels());
    EXPECT_EQ(tracks[2].layout.value().tag, AudioChannelLayoutTags::mono);
    EXPECT_TRUE(tracks[2].isLinearPCM && !tracks[1].isLinearPCM);
    EXPECT_EQ(tracks[1].codecDescription, "AAC (Advanced Audio Coding), LC");
    for (const auto& track : tracks)
        EXPECT_TRUE(track.isDecodable);
}

} // namespace
} // namespace panoveer
