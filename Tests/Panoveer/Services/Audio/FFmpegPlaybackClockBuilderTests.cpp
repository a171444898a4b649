#include "Panoveer/Services/Audio/FFmpegAudioReader.h"
#include "Panoveer/Services/Audio/FFmpegPlaybackClockBuilder.h"
#include "Panoveer/Services/Intake/VideoMetadataReader.h"
#include "Platform/Core/Error.h"
#include "Platform/Media/MediaAsset.h"
#include "Support/MediaFactory.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <set>
#include <thread>

namespace panoveer {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::UnorderedElementsAre;

class PlaybackClockTest : public testing::Test {
protected:
    PlaybackClockTest() { setenv("XDG_DATA_HOME", (folder / "data").c_str(), 1); }
    ~PlaybackClockTest() override { unsetenv("XDG_DATA_HOME"); }

    URL source(const test::MovieSpec& spec) { return URL::fromFilePath(test::makeMovie(folder, spec)); }

    std::set<std::string> files() const {
        std::set<std::string> names;
        for (const auto& entry : fs::directory_iterator(clocks))
            names.insert(entry.path().filename().string());
        return names;
    }

    // The loudest sample of each tenth of a second, to one digit.
    static std::vector<double> loudness(const URL& clock) {
        FFmpegAudioReader reader(clock, 0, 0);
        std::vector<double> result;
        std::int64_t frame = 0;
        while (const auto block = reader.copyNextFrame()) {
            EXPECT_EQ(block->channelCount, 2);
            for (std::int64_t index = 0; index < block->sampleCount; ++index, ++frame) {
                result.resize(std::size_t(frame / 4800) + 1);
                const double sample = std::abs(block->samples[std::size_t(index) * 2]);
                result.back() = std::max(result.back(), std::round(sample * 10) / 10);
            }
        }
        return result;
    }

    test::TemporaryFolder folder;
    fs::path clocks = folder / "data" / "Panoveer Studio" / "FFmpeg Playback";
    test::AudioSpec tone = {.codec = "mp2", .expression = "0.5*sin(2*PI*500*t)"};
};

TEST_F(PlaybackClockTest, SoundsAsTheSourceAndIsSilentWhereItIs) {
    struct Case {
        const char* name;
        test::MovieSpec movie;
        std::size_t firstLoud, silentFrom; // tenths of a second
        double duration = 1, length = 1;   // of the picture, as far as it is known; of the clock
    };
    const std::vector<std::string> late = {"-af", "asetpts=PTS+0.5/TB"},
                                   jump = {"-af", "asetpts=PTS+gt(T\\,0.5)*90/TB"};
    for (const auto& given :
         {Case{"short", {.name = "short.ts", .audio = {tone}, .audioSeconds = 0.6}, 0, 6},
          Case{"late", {.name = "late.mkv", .audio = {tone}, .audioSeconds = 0.3, .outputOptions = late}, 5, 8},
          Case{"long", {.name = "long.ts", .audio = {tone}, .audioSeconds = 3}, 0, 10},
          Case{"unknown",
               {.name = "unknown.mkv", .audio = {tone}, .audioSeconds = 1.5, .outputOptions = jump},
               0,
               15,
               0,
               1.5},
          Case{"none", {.name = "none.ts", .audio = {}}, 0, 0}}) {
        SCOPED_TRACE(given.name);
        const auto clock =
            FFmpegPlaybackClockBuilder::build(source(given.movie), given.duration, !given.movie.audio.empty());
        const auto asset = MediaAsset::load(clock);
        EXPECT_GE(asset->durationSeconds(), given.length);
        EXPECT_LT(asset->durationSeconds(), given.length + 0.05);
        const auto tenths = loudness(clock);
        const auto count = std::size_t(given.length * 10);
        ASSERT_GE(tenths.size(), count);
        for (std::size_t tenth = 0; tenth < count; ++tenth) {
            const bool isEdge = tenth == given.firstLoud || tenth + 1 == given.firstLoud || tenth == given.silentFrom ||
                                tenth + 1 == given.silentFrom; // codecs ring
            if (!isEdge) {
                EXPECT_EQ(tenths[tenth], tenth > given.firstLoud && tenth < given.silentFrom ? 0.5 : 0) << tenth;
            }
        }
    }
}

TEST_F(PlaybackClockTest, IsMadeOnceForASourceThatStaysAsItIs) {
    const auto movie = source({.name = "a.ts", .audio = {tone}});
    const auto clock = FFmpegPlaybackClockBuilder::build(movie, 1, true);
    EXPECT_THAT(files(), UnorderedElementsAre(clock.lastPathComponent()));
    const auto written = fs::last_write_time(clock.path());
    EXPECT_EQ(FFmpegPlaybackClockBuilder::build(movie, 1, true), clock);
    EXPECT_EQ(fs::last_write_time(clock.path()), written);

    fs::last_write_time(movie.path(), fs::last_write_time(movie.path()) + 1ms);
    EXPECT_NE(FFmpegPlaybackClockBuilder::build(movie, 1, true), clock);
    EXPECT_EQ(files().size(), 2u);
    EXPECT_THROW(FFmpegPlaybackClockBuilder::build(URL::fromFilePath(folder / "gone.ts"), 1, true), Error);
}

TEST_F(PlaybackClockTest, IsCompleteWhenTwoBuildItAtOnce) {
    const auto movie = source({.name = "a.ts", .audio = {tone}});
    std::vector<URL> built(4);
    {
        std::vector<std::jthread> builders;
        for (auto& url : built)
            builders.emplace_back([&] { url = FFmpegPlaybackClockBuilder::build(movie, 1, true); });
    }
    EXPECT_THAT(built, testing::Each(built.front()));
    EXPECT_THAT(files(), UnorderedElementsAre(built.front().lastPathComponent()));
    EXPECT_GE(MediaAsset::load(built.front())->durationSeconds(), 1);
}

TEST_F(PlaybackClockTest, RemovesWhatAKilledBuildLeftAndNotWhatAnotherOneWrites) {
    const auto movie = source({.name = "a.ts", .audio = {tone}});
    const auto name = FFmpegPlaybackClockBuilder::destinationURL(movie).baseName();
    fs::create_directories(clocks);
    for (const auto* part : {".old.partial.m4a", ".new.partial.m4a"})
        test::writeFile(clocks / (name + part), {});
    fs::last_write_time(clocks / (name + ".old.partial.m4a"), fs::file_time_type::clock::now() - 2h);
    FFmpegPlaybackClockBuilder::build(movie, 1, true);
    EXPECT_THAT(files(), UnorderedElementsAre(name + ".m4a", name + ".new.partial.m4a"));
}

TEST_F(PlaybackClockTest, LeavesNothingWhenItIsStopped) {
    const auto movie = source({.name = "a.ts", .audio = {tone}});
    std::stop_source stop;
    stop.request_stop();
    EXPECT_THROW(FFmpegPlaybackClockBuilder::build(movie, 1, true, stop.get_token()), Cancelled);
    EXPECT_THAT(files(), testing::IsEmpty());
}

TEST_F(PlaybackClockTest, GoesWithTheAssetOfAFileThatFFmpegReads) {
    const auto movie = source({.name = "a.ts", .audio = {tone}});
    EXPECT_EQ(VideoMetadataReader::readStreams(movie).ffmpegPlaybackClockURL, std::nullopt);
    const auto asset = VideoMetadataReader::readStreams(movie, {}, FFmpegPlaybackClockBuilder::build);
    EXPECT_EQ(asset.ffmpegPlaybackClockURL, FFmpegPlaybackClockBuilder::destinationURL(movie));
    EXPECT_TRUE(fs::exists(asset.ffmpegPlaybackClockURL.value().path()));
    const auto native = source({.name = "a.mp4"});
    EXPECT_EQ(VideoMetadataReader::readStreams(native, {}, FFmpegPlaybackClockBuilder::build).ffmpegPlaybackClockURL,
              std::nullopt);
}

} // namespace
} // namespace panoveer
