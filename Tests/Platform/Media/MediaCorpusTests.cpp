#include "Platform/Media/AssetReader.h"
#include "SoundInspection.h"
#include "Support/MediaFactory.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <cmath>
#include <limits>

namespace panoveer::test {
namespace {

struct CorpusCase {
    const char* file;
    int videoTracks, audioTracks;
    bool isDecodable = true;
};

class Corpus : public testing::TestWithParam<CorpusCase> {
protected:
    void SetUp() override {
        const auto file = corpusFile(GetParam().file);
        if (!file)
            GTEST_SKIP() << "PANOVEER_CORPUS names no folder";
        path_ = *file;
    }

    std::filesystem::path path_;
};

TEST_P(Corpus, IsListedAndDecodedAsFfprobeSees) {
    const auto& expected = GetParam();
    const auto asset = MediaAsset::load(URL::fromFilePath(path_));
    ASSERT_EQ(int(asset->videoTracks().size()), expected.videoTracks);
    EXPECT_EQ(int(asset->audioTracks().size()), expected.audioTracks);
    EXPECT_EQ(asset->isPlayable(), expected.videoTracks > 0);
    if (expected.videoTracks == 0)
        return;
    const auto& track = asset->videoTracks()[0];
    EXPECT_EQ(track.isDecodable, expected.isDecodable);
    EXPECT_EQ(track.formatDescriptions[0].hasLeftStereoEyeView, !expected.isDecodable);
    EXPECT_EQ(track.formatDescriptions[0].hasRightStereoEyeView, !expected.isDecodable);
    if (!expected.isDecodable)
        return;

    const auto probe = ffprobeJSON(path_, {"-select_streams", "v:0", "-show_frames"});
    const double start = std::stod(probe["format"]["start_time"].get<std::string>());
    std::vector<double> times;
    for (const auto& frame : probe["frames"])
        times.push_back(std::stod(frame["best_effort_timestamp_time"].get<std::string>()) - start);

    AssetReader reader(asset, 0, std::numeric_limits<double>::infinity());
    reader.addOutput(track, "420v");
    ASSERT_TRUE(reader.startReading());
    std::size_t count = 0;
    while (const auto sample = reader.copyNextSampleBuffer()) {
        ASSERT_LT(count, times.size());
        ASSERT_NEAR(sample->presentationSeconds, times[count], 2e-6) << "frame " << count;
        ++count;
    }
    EXPECT_EQ(reader.status(), AssetReader::Status::completed);
    EXPECT_EQ(count, times.size());
    EXPECT_NEAR(asset->durationSeconds(), times.back() + 1 / track.nominalFrameRate, 0.15);
}

TEST_P(Corpus, SoundsTheSameFromAnyStart) {
    const auto asset = MediaAsset::load(URL::fromFilePath(path_));
    for (std::size_t track = 0; track < asset->audioTracks().size(); ++track) {
        const auto whole = readSound(path_, track);
        ASSERT_GT(whole.frames(), 0);
        for (const double part : {0.2, 0.55, 0.9}) {
            const auto rest = readSound(path_, track, whole.seconds + part * double(whole.frames()) / 48000);
            const std::int64_t skipped = std::llround((rest.seconds - whole.seconds) * 48000);
            // Time stamps that wander put the same sound some frames to the side.
            constexpr std::int64_t jitter = 480;
            ASSERT_NEAR(rest.frames(), whole.frames() - skipped, jitter);
            if (rest.frames() != whole.frames() - skipped)
                continue;
            double signal = 0, difference = 0;
            for (std::int64_t i = 0; i < rest.frames() * rest.channelCount; ++i) {
                const double expected = whole.samples.at(std::size_t(skipped * whole.channelCount + i));
                signal += expected * expected;
                difference += std::pow(rest.samples.at(std::size_t(i)) - expected, 2);
            }
            // Decoders that fill up with noise make it anew.
            EXPECT_LE(difference, 0.1 * signal) << part << ' ' << asset->audioTracks()[track].codecDescription;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(
    Files, Corpus,
    testing::Values(CorpusCase{"bear-vp9.webm", 0, 0}, CorpusCase{"bt601.mov", 1, 1},
                    CorpusCase{"hlg10-color-test.mp4", 1, 1},
                    CorpusCase{"internal_emulator_transformer_output_270_rotated.mp4", 1, 1},
                    CorpusCase{"invalid-bitstream.webm", 0, 0}, CorpusCase{"richoh1_0_3.mp4", 1, 0},
                    CorpusCase{"roadtrip-vp92-10bit.webm", 0, 0}, CorpusCase{"sample.avi", 1, 1},
                    CorpusCase{"sample.mkv", 1, 1}, CorpusCase{"sample.mp4", 1, 1}, CorpusCase{"sample_av1.mp4", 0, 1},
                    CorpusCase{"sample_dthd.mp4", 0, 1}, CorpusCase{"sample_eac3.mp4", 0, 1},
                    CorpusCase{"sample_edit_list.mp4", 1, 1}, CorpusCase{"sample_fragmented.mp4", 1, 1},
                    CorpusCase{"sample_missing_stsd.mp4", 1, 0}, CorpusCase{"sample_shorter_audio.mp4", 1, 1},
                    CorpusCase{"sample_with_colr_mdcv_and_clli.mp4", 0, 1}, CorpusCase{"sowt-with-video.mov", 1, 1},
                    CorpusCase{"testRoom1_1080Stereo.mp4", 1, 0}, CorpusCase{"testRoom1_1920Mono.mp4", 1, 0},
                    CorpusCase{"water_180_mvhevc_5frames.mov", 1, 0, false}),
    [](const auto& test) { return testName(test.param.file); });

class ForeignContainer : public Corpus {};

TEST_P(ForeignContainer, IsLeftToTheOtherRoad) { EXPECT_THROW(MediaAsset::load(URL::fromFilePath(path_)), Error); }

INSTANTIATE_TEST_SUITE_P(Files, ForeignContainer,
                         testing::Values(CorpusCase{"bbb_2500ms.ts", 0, 0},
                                         CorpusCase{"third_order_ambisonic_ch0-7.wav", 0, 0}),
                         [](const auto& test) { return test.index == 0 ? "TransportStream" : "Wave"; });

} // namespace
} // namespace panoveer::test
