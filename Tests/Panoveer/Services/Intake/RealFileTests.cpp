#include "Panoveer/Services/Intake/VideoMetadataReader.h"
#include "Support/MediaFactory.h"
#include "Support/Thrown.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace panoveer {
namespace {

using Backend = VideoDecodingBackend;
using Orientation = SourceVideoOrientation;
using Primaries = VideoColorPrimaries;
using Transfer = VideoTransferFunction;
using Matrix = VideoYCbCrMatrix;

constexpr Backend native = Backend::avFoundation;
constexpr const char* skipped = "PANOVEER_CORPUS names no folder of real files";

struct RealFile {
    std::string name;
    Backend backend;
    CGSizeValue size;
    double frameRate;
    Orientation orientation = Orientation::up;
    VideoColorMetadata color = {};
};

void PrintTo(const RealFile& file, std::ostream* stream) { *stream << file.name; }

// What another reader of the file says; a Matroska file states where it ends, not how long it runs.
double durationByFFprobe(const std::filesystem::path& file) {
    const auto format = test::ffprobeJSON(file)["format"];
    const double end = std::stod(format["duration"].get<std::string>());
    const bool isMatroska = format["format_name"].get<std::string>().starts_with("matroska");
    return isMatroska ? end - std::max(std::stod(format["start_time"].get<std::string>()), 0.0) : end;
}

class RealFiles : public testing::TestWithParam<RealFile> {};

TEST_P(RealFiles, AreReadForWhatTheyAre) {
    const auto& expected = GetParam();
    const auto file = test::corpusFile(expected.name);
    if (!file)
        GTEST_SKIP() << skipped;
    const auto asset = VideoMetadataReader::readStreams(URL::fromFilePath(*file));
    EXPECT_EQ(asset.videoDecodingBackend, expected.backend);
    EXPECT_EQ(asset.naturalSize, expected.size);
    // Time stamps in milliseconds do not tell 30 from 30000/1001.
    EXPECT_NEAR(asset.frameRate, expected.frameRate, 0.0011 * expected.frameRate);
    EXPECT_NEAR(asset.duration, durationByFFprobe(*file), 0.001);
    EXPECT_EQ(asset.sourceOrientation, expected.orientation);
    EXPECT_EQ(asset.colorMetadata.primaries, expected.color.primaries);
    EXPECT_EQ(asset.colorMetadata.transferFunction, expected.color.transferFunction);
    EXPECT_EQ(asset.colorMetadata.yCbCrMatrix, expected.color.yCbCrMatrix);
}

const VideoColorMetadata bt601{Primaries::bt709, Transfer::bt709, Matrix::bt601, {}, {}};
const VideoColorMetadata hlg{Primaries::bt2020, Transfer::hlg, Matrix::bt2020, {}, {}};
const VideoColorMetadata pq{Primaries::bt2020, Transfer::pq, Matrix::bt2020, {}, {}};
const VideoColorMetadata matrixAlone{Primaries::bt709, Transfer::bt709, Matrix::bt2020, {}, {}};

INSTANTIATE_TEST_SUITE_P(
    Intake, RealFiles,
    testing::Values(RealFile("bbb_2500ms.ts", Backend::ffmpeg, {1920, 1080}, 24),
                    RealFile("bear-vp9.webm", Backend::ffmpeg, {320, 240}, 30000.0 / 1001),
                    RealFile("bt601.mov", native, {640, 428}, 300000.0 / 10201, Orientation::up, bt601),
                    RealFile("hlg10-color-test.mp4", native, {1920, 1080}, 90000.0 / 3001, Orientation::up, hlg),
                    RealFile("internal_emulator_transformer_output_270_rotated.mp4", native, {720, 1280},
                             30000.0 / 1001, Orientation::left),
                    // Its pictures are broken, its description is whole.
                    RealFile("invalid-bitstream.webm", Backend::ffmpeg, {320, 240}, 25),
                    // Stored as 640 by 322 with pixels that are a little wide, which makes a sphere of it.
                    RealFile("richoh1_0_3.mp4", native, {644, 322}, 30),
                    RealFile("roadtrip-vp92-10bit.webm", Backend::ffmpeg, {426, 240}, 24000.0 / 1001, Orientation::up,
                             matrixAlone),
                    RealFile("sample.avi", native, {960, 400}, 24000.0 / 1001),
                    RealFile("sample.mkv", native, {1080, 720}, 30000.0 / 1001),
                    RealFile("sample.mp4", native, {1080, 720}, 30000.0 / 1001),
                    RealFile("sample_av1.mp4", Backend::ffmpeg, {1080, 720}, 30000.0 / 1001),
                    RealFile("sample_edit_list.mp4", native, {1080, 1920}, 51600.0 / 1841, Orientation::right, hlg),
                    RealFile("sample_fragmented.mp4", native, {1080, 720}, 30000.0 / 1001),
                    RealFile("sample_h262_mpeg_audio.ts", Backend::ffmpeg, {640, 426}, 30000.0 / 1001),
                    RealFile("sample_missing_stsd.mp4", native, {1080, 720}, 30000.0 / 1001),
                    RealFile("sample_shorter_audio.mp4", native, {320, 240}, 60, Orientation::up, bt601),
                    RealFile("sample_with_colr_mdcv_and_clli.mp4", Backend::ffmpeg, {1920, 1080}, 60000.0 / 1001,
                             Orientation::up, pq),
                    RealFile("sowt-with-video.mov", native, {1920, 1080}, 50),
                    RealFile("testRoom1_1080Stereo.mp4", native, {1080, 1080}, 30),
                    RealFile("testRoom1_1920Mono.mp4", native, {1920, 960}, 30),
                    // Multiview is decoded by FFmpeg; the size is one eye's.
                    RealFile("water_180_mvhevc_5frames.mov", Backend::ffmpeg, {1934, 2160}, 90)),
    [](const auto& parameter) { return test::testName(parameter.param.name); });

struct RealFormat {
    std::string name;
    ProjectionFormat projection;
    StereoVideoLayout layout;
    ImmersiveFormatDetection::Source source;
};

void PrintTo(const RealFormat& file, std::ostream* stream) { *stream << file.name; }

class RealFormats : public testing::TestWithParam<RealFormat> {};

TEST_P(RealFormats, AreDetected) {
    const auto& expected = GetParam();
    const auto file = test::corpusFile(expected.name);
    if (!file)
        GTEST_SKIP() << skipped;
    const auto asset =
        VideoMetadataReader::withFormatDetection(VideoMetadataReader::readStreams(URL::fromFilePath(*file)));
    ASSERT_TRUE(asset.formatDetection);
    EXPECT_EQ(asset.formatDetection->projection, expected.projection);
    EXPECT_EQ(asset.formatDetection->stereoLayout, expected.layout);
    EXPECT_EQ(asset.formatDetection->source, expected.source);
    EXPECT_FALSE(asset.formatDetection->eyesSwapped);
    EXPECT_FALSE(asset.formatDetection->isDualFisheyeLens);
}

using Source = ImmersiveFormatDetection::Source;
constexpr auto flat = ProjectionFormat::standard;
constexpr auto sphere = ProjectionFormat::equirectangular;
constexpr auto mono = StereoVideoLayout::mono;

INSTANTIATE_TEST_SUITE_P(
    Intake, RealFormats,
    testing::Values(RealFormat{"bbb_2500ms.ts", flat, mono, Source::imageAnalysis},
                    RealFormat{"bear-vp9.webm", flat, mono, Source::imageAnalysis},
                    RealFormat{"hlg10-color-test.mp4", flat, mono, Source::imageAnalysis},
                    RealFormat{"internal_emulator_transformer_output_270_rotated.mp4", flat, mono,
                               Source::imageAnalysis},
                    // None of its pictures can be decoded.
                    RealFormat{"invalid-bitstream.webm", flat, mono, Source::aspectRatio},
                    RealFormat{"richoh1_0_3.mp4", sphere, mono, Source::imageAnalysis},
                    RealFormat{"sample.avi", flat, mono, Source::imageAnalysis},
                    RealFormat{"sample_edit_list.mp4", flat, mono, Source::imageAnalysis},
                    RealFormat{"sowt-with-video.mov", flat, mono, Source::imageAnalysis},
                    RealFormat{"testRoom1_1080Stereo.mp4", sphere, StereoVideoLayout::overUnder, Source::metadata},
                    RealFormat{"water_180_mvhevc_5frames.mov", flat, StereoVideoLayout::sideBySide, Source::metadata},
                    // Two that pictures and shape mistake: a flat film in the shape of six cube faces, and a sphere
                    // that shows nearly the same room in front as behind, which is what two eyes see.
                    RealFormat{"sample.mp4", ProjectionFormat::eac, mono, Source::imageAnalysis},
                    RealFormat{"testRoom1_1920Mono.mp4", ProjectionFormat::halfEquirectangular,
                               StereoVideoLayout::sideBySide, Source::imageAnalysis}),
    [](const auto& parameter) { return test::testName(parameter.param.name); });

TEST(RealFormatsInPart, AreDetectedForWhatIsNotStated) {
    const auto file = test::corpusFile("testRoom1_1920Mono.mp4");
    if (!file)
        GTEST_SKIP() << skipped;
    const auto asset = VideoMetadataReader::withFormatDetection(
        VideoMetadataReader::readStreams(URL::fromFilePath(*file)), {}, {.stereoLayout = mono});
    EXPECT_EQ(asset.detectedFormat, sphere);
}

TEST(RealFilesWithoutVideo, EndInAnErrorThatSaysSo) {
    struct Row {
        const char* name;
        bool isMovie;
    };
    for (const auto& row : {Row{"sample_dthd.mp4", true}, Row{"sample_eac3.mp4", true},
                            Row{"third_order_ambisonic_ch0-7.wav", false}, Row{"SOURCES.md", false}}) {
        const auto file = test::corpusFile(row.name);
        if (!file)
            GTEST_SKIP() << skipped;
        const auto read = [&] { VideoMetadataReader::readStreams(URL::fromFilePath(*file)); };
        if (row.isMovie)
            EXPECT_THROW(read(), VideoMetadataError) << row.name;
        else
            EXPECT_EQ(test::thrown<Error>(read).value().domain(), mediaErrorDomain) << row.name;
    }
}

} // namespace
} // namespace panoveer
