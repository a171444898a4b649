#include "SoundInspection.h"

#include "Platform/Media/AssetAudioReader.h"
#include "Support/MediaFactory.h"

#include <gtest/gtest.h>

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
            EXPECT_NEAR(double(found), frame, 0.5 + GetParam().toleranceFrames) << "click " << click << " from " << start;
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
                    ClickFile{"alac.mov", {.codec = "alac"}}, ClickFile{"flac.mkv", {.codec = "flac"}},
                    ClickFile{"cd.mp4", {.codec = "aac", .sampleRate = 44100}, 0.6},
                    ClickFile{"cd.mkv", {.codec = "aac", .sampleRate = 44100}, 0.6, 1114}));

} // namespace
} // namespace panoveer
