#include "PanoveerTool/CommandLine.h"

#include <gtest/gtest.h>

namespace panoveer::test {
namespace {

struct RealFile {
    const char* name;
    bool converts;

    friend std::ostream& operator<<(std::ostream& stream, const RealFile& file) { return stream << file.name; }
};

class RealFiles : public testing::TestWithParam<RealFile> {};

// A strangers' file ends as a movie of its own length, or with one clear line and nothing left behind.
TEST_P(RealFiles, ConvertOrSayWhyNot) {
    const auto source = corpusFile(GetParam().name);
    if (!source)
        GTEST_SKIP() << "PANOVEER_CORPUS names no folder of real files";
    TemporaryFolder folder;
    const auto target = folder / "made.mp4";
    const auto result = panoveer({"convert", source->string(), "-o", target.string(), "--format", "standard", "--size",
                                  "320x180", "--codec", "h264", "--out", "0.5"});
    if (GetParam().converts) {
        ASSERT_EQ(result.exitCode, 0) << result.standardError;
        EXPECT_EQ(namesIn(folder.path()), std::set<std::string>{"made.mp4"});
        const auto stream = videoStream(target);
        EXPECT_EQ(stream["width"], 320);
        EXPECT_EQ(stream["height"], 180);
        EXPECT_GT(std::stoi(stream["nb_frames"].get<std::string>()), 0);
    } else {
        EXPECT_EQ(result.exitCode, 1);
        // A file that can be opened is told for what it is before its pictures fail.
        const bool isOpened = result.standardError.contains("(from its ");
        EXPECT_EQ(std::ranges::count(result.standardError, '\n'), isOpened ? 2 : 1) << result.standardError;
        EXPECT_TRUE(namesIn(folder.path()).empty());
    }
}

INSTANTIATE_TEST_SUITE_P(
    Corpus, RealFiles,
    testing::Values(RealFile{"bbb_2500ms.ts", true}, RealFile{"bear-vp9.webm", true}, RealFile{"bt601.mov", true},
                    RealFile{"hlg10-color-test.mp4", true},
                    RealFile{"internal_emulator_transformer_output_270_rotated.mp4", true},
                    RealFile{"invalid-bitstream.webm", false}, RealFile{"richoh1_0_3.mp4", true},
                    RealFile{"roadtrip-vp92-10bit.webm", true}, RealFile{"sample.avi", true},
                    RealFile{"sample.mkv", true}, RealFile{"sample.mp4", true}, RealFile{"sample_av1.mp4", true},
                    RealFile{"sample_dthd.mp4", false}, RealFile{"sample_eac3.mp4", false},
                    RealFile{"sample_edit_list.mp4", true}, RealFile{"sample_fragmented.mp4", true},
                    RealFile{"sample_h262_mpeg_audio.ts", true}, RealFile{"sample_missing_stsd.mp4", true},
                    RealFile{"sample_shorter_audio.mp4", true}, RealFile{"sample_with_colr_mdcv_and_clli.mp4", true},
                    RealFile{"sowt-with-video.mov", true}, RealFile{"testRoom1_1080Stereo.mp4", true},
                    RealFile{"testRoom1_1920Mono.mp4", true}, RealFile{"water_180_mvhevc_5frames.mov", true}),
    [](const auto& test) { return testName(test.param.name); });

} // namespace
} // namespace panoveer::test
