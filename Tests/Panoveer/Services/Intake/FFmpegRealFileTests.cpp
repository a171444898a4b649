#include "Panoveer/Services/Intake/FFmpegFrameReader.h"
#include "Panoveer/Services/Intake/FFmpegRuntime.h"
#include "Support/MediaFactory.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>

namespace panoveer::test {
namespace {

struct RealFile {
    const char* name;
    const char* codec;
    int width, height;
    VideoColorMetadata color;
    std::optional<ContainerImmersiveMetadata> immersive;
    SourceVideoOrientation orientation;
    bool requiresSoftwarePreview;
};

constexpr auto upright = SourceVideoOrientation::up;

const RealFile files[] = {
    {"water_180_mvhevc_5frames.mov", "hevc", 3868, 2160, VideoColorMetadata::rec709,
     ContainerImmersiveMetadata{ProjectionFormat::standard, StereoVideoLayout::sideBySide, false, true, 64.0, 19.24},
     upright, true},
    {"testRoom1_1080Stereo.mp4", "h264", 1080, 1080, VideoColorMetadata::rec709,
     ContainerImmersiveMetadata{.projection = ProjectionFormat::equirectangular,
                                .stereoLayout = StereoVideoLayout::overUnder},
     upright, false},
    {"testRoom1_1920Mono.mp4", "h264", 1920, 960, VideoColorMetadata::rec709, std::nullopt, upright, false},
    {"hlg10-color-test.mp4", "hevc", 1920, 1080,
     VideoColorMetadata{VideoColorPrimaries::bt2020, VideoTransferFunction::hlg, VideoYCbCrMatrix::bt2020, {}, {}},
     std::nullopt, upright, false},
    {"sample_av1.mp4", "libdav1d", 1080, 720, VideoColorMetadata::rec709, std::nullopt, upright, true},
    {"roadtrip-vp92-10bit.webm", "vp9", 426, 240,
     VideoColorMetadata{VideoColorPrimaries::bt709, VideoTransferFunction::bt709, VideoYCbCrMatrix::bt2020, {}, {}},
     std::nullopt, upright, true},
    {"bbb_2500ms.ts", "mpeg2video", 1920, 1080, VideoColorMetadata::rec709, std::nullopt, upright, true},
    {"internal_emulator_transformer_output_270_rotated.mp4", "h264", 1280, 720, VideoColorMetadata::rec709,
     std::nullopt, SourceVideoOrientation::left, false},
};

class RealIntakeFiles : public testing::TestWithParam<RealFile> {};

TEST_P(RealIntakeFiles, AreToldForWhatTheyAreAndRead) {
    const auto path = corpusFile(GetParam().name);
    if (!path)
        GTEST_SKIP() << "PANOVEER_CORPUS names no folder of real files";
    const auto url = URL::fromFilePath(*path);
    const auto found = FFmpegRuntime::probe(url);
    EXPECT_EQ(found.codecName, GetParam().codec);
    EXPECT_EQ(found.width, GetParam().width);
    EXPECT_EQ(found.height, GetParam().height);
    EXPECT_EQ(found.colorMetadata, GetParam().color);
    EXPECT_EQ(found.containerImmersiveMetadata, GetParam().immersive);
    EXPECT_EQ(found.sourceOrientation, GetParam().orientation);
    EXPECT_EQ(FFmpegRuntime::requiresSoftwarePreview(url), GetParam().requiresSoftwarePreview);

    for (const bool fastPreviewDecode : {false, true}) {
        FFmpegFrameReader reader(url, 0, std::nullopt, std::nullopt, fastPreviewDecode);
        const auto frame = reader.copyFrame();
        ASSERT_TRUE(frame);
        EXPECT_EQ(frame->pixelBuffer->width(), GetParam().width);
        EXPECT_EQ(frame->pixelBuffer->height(), GetParam().height);
    }
}

INSTANTIATE_TEST_SUITE_P(All, RealIntakeFiles, testing::ValuesIn(files), [](const auto& test) {
    std::string name = test.param.name;
    std::ranges::replace_if(
        name, [](char character) { return !std::isalnum(static_cast<unsigned char>(character)); }, '_');
    return name;
});

} // namespace
} // namespace panoveer::test
