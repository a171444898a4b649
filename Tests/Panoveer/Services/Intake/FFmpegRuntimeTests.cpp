#include "Panoveer/Services/Intake/FFmpegRuntime.h"
#include "Panoveer/Services/Intake/MediaFileSupport.h"
#include "Support/MediaFactory.h"
#include "Support/Thrown.h"

#include <gtest/gtest.h>

#include <tuple>

namespace panoveer::test {
namespace {

URL urlOf(const std::filesystem::path& path) { return URL::fromFilePath(path); }

TEST(FFmpegRuntime, TellsAFileByItsVideo) {
    const TemporaryFolder folder;
    const auto found = FFmpegRuntime::probe(urlOf(makeMovie(folder, {.name = "tall.mov",
                                                                     .frameRate = "25",
                                                                     .frameCount = 25,
                                                                     .codec = "qtrle",
                                                                     .pixelFormat = "argb",
                                                                     .rotationDegrees = 270,
                                                                     .audio = {{}}})));
    EXPECT_EQ(found.width, 160);
    EXPECT_EQ(found.height, 96);
    EXPECT_NEAR(found.duration, 1, 1e-6);
    EXPECT_EQ(found.frameRate, 25);
    EXPECT_EQ(found.codecName, "qtrle");
    EXPECT_EQ(found.pixelFormatName, "argb");
    EXPECT_TRUE(found.containsAlphaChannel);
    EXPECT_TRUE(found.hasAudioStream);
    EXPECT_EQ(found.sourceOrientation, SourceVideoOrientation::left);
    EXPECT_EQ(found.containerImmersiveMetadata, std::nullopt);

    const auto error = thrown<FFmpegReaderError>([&] { FFmpegRuntime::probe(urlOf(folder / "missing.mov")); });
    ASSERT_TRUE(error);
    EXPECT_EQ(error->reason(), FFmpegReaderError::Case::probeFailed);
    EXPECT_EQ(error->errorDescription(),
              "FFmpeg could not inspect the video: Could not open media: No such file or directory");
}

TEST(FFmpegRuntime, TurnsRotationsToTheNearestQuarter) {
    using enum SourceVideoOrientation;
    for (const auto& [degrees, expected] :
         {std::pair(0, up), std::pair(44, up), std::pair(45, right), std::pair(134, right), std::pair(135, down),
          std::pair(224, down), std::pair(225, left), std::pair(314, left), std::pair(315, up), std::pair(-90, left),
          std::pair(-44, up), std::pair(810, right)})
        EXPECT_EQ(FFmpegRuntime::sourceOrientation(degrees), expected) << degrees;
}

TEST(FFmpegRuntime, TellsTheColoursThatTheProgramKnowsApart) {
    using Primaries = VideoColorPrimaries;
    using Transfer = VideoTransferFunction;
    using Matrix = VideoYCbCrMatrix;
    for (const auto& [code, expected] :
         {std::pair(9, Primaries::bt2020), std::pair(12, Primaries::p3D65), std::pair(1, Primaries::bt709),
          std::pair(11, Primaries::bt709), std::pair(2, Primaries::bt709)})
        EXPECT_EQ(FFmpegRuntime::colorMetadata(code, 2, 2).primaries, expected) << code;
    for (const auto& [code, expected] :
         {std::pair(16, Transfer::pq), std::pair(18, Transfer::hlg), std::pair(13, Transfer::sRGB),
          std::pair(8, Transfer::linear), std::pair(1, Transfer::bt709), std::pair(14, Transfer::bt709)})
        EXPECT_EQ(FFmpegRuntime::colorMetadata(2, code, 2).transferFunction, expected) << code;
    for (const auto& [code, expected] :
         {std::pair(5, Matrix::bt601), std::pair(6, Matrix::bt601), std::pair(9, Matrix::bt2020),
          std::pair(10, Matrix::bt2020), std::pair(1, Matrix::bt709), std::pair(0, Matrix::bt709)})
        EXPECT_EQ(FFmpegRuntime::colorMetadata(2, 2, code).yCbCrMatrix, expected) << code;

    const TemporaryFolder folder;
    const auto found = FFmpegRuntime::probe(urlOf(
        makeMovie(folder, {.frameCount = 2, .primaries = "smpte432", .transfer = "smpte2084", .matrix = "smpte170m"})));
    EXPECT_EQ(found.colorMetadata, (VideoColorMetadata{Primaries::p3D65, Transfer::pq, Matrix::bt601, {}, {}}));
}

TEST(FFmpegRuntime, TakesHalfASphereForHalfEquirectangular) {
    constexpr double sphere = 4294967296.0;
    for (const auto& [left, right, expected] : {std::tuple(0.25, 0.25, ProjectionFormat::halfEquirectangular),
                                                std::tuple(0.24, 0.24, ProjectionFormat::halfEquirectangular),
                                                std::tuple(0.5, 0.0, ProjectionFormat::halfEquirectangular),
                                                std::tuple(0.2, 0.2, ProjectionFormat::equirectangular),
                                                std::tuple(0.0, 0.0, ProjectionFormat::equirectangular)}) {
        const TemporaryFolder folder;
        const auto movie = makeMovie(folder, {.name = "sphere.mp4", .frameCount = 2});
        appendEquirectangularMapping(movie,
                                     {.left = std::uint32_t(left * sphere), .right = std::uint32_t(right * sphere)});
        const auto metadata = FFmpegRuntime::probe(urlOf(movie)).containerImmersiveMetadata;
        ASSERT_TRUE(metadata);
        EXPECT_EQ(metadata->projection, expected) << left << " and " << right;
        EXPECT_EQ(metadata->stereoLayout, std::nullopt);
    }
}

TEST(FFmpegRuntime, ReadsThePackingOfTheEyes) {
    const TemporaryFolder folder;
    const auto mono = makeMovie(folder, {.name = "mono.mp4", .frameCount = 2});
    appendStereoLayout(mono, 0);
    const auto saysMono = FFmpegRuntime::probe(urlOf(mono)).containerImmersiveMetadata;
    EXPECT_EQ(saysMono,
              (ContainerImmersiveMetadata{.projection = std::nullopt, .stereoLayout = StereoVideoLayout::mono}));

    const auto swapped = FFmpegRuntime::probe(urlOf(makeMovie(
        folder,
        {.name = "swapped.mkv", .frameCount = 2, .outputOptions = {"-metadata:s:v", "stereo_mode=right_left"}})));
    ASSERT_TRUE(swapped.containerImmersiveMetadata);
    EXPECT_EQ(swapped.containerImmersiveMetadata->stereoLayout, StereoVideoLayout::sideBySide);
    EXPECT_TRUE(swapped.containerImmersiveMetadata->eyesSwapped);
}

TEST(FFmpegRuntime, PreviewsInSoftwareWhatThePlatformCannot) {
    const TemporaryFolder folder;
    // By name alone: nothing is there to probe.
    EXPECT_TRUE(FFmpegRuntime::requiresSoftwarePreview(urlOf(folder / "missing.MTS")));
    EXPECT_FALSE(FFmpegRuntime::requiresSoftwarePreview(urlOf(folder / "missing.mp4")));

    const auto ordinary = makeMovie(folder, {.name = "ordinary.mp4", .frameCount = 2});
    EXPECT_FALSE(FFmpegRuntime::requiresSoftwarePreview(urlOf(ordinary)));
    EXPECT_TRUE(FFmpegRuntime::requiresSoftwarePreview(
        urlOf(makeMovie(folder, {.name = "open.mp4", .frameCount = 2, .codec = "libvpx-vp9"}))));

    FFmpegRuntime::addExplicitSoftwarePreviewURL(urlOf(folder / "sub/../ordinary.mp4"));
    EXPECT_TRUE(FFmpegRuntime::requiresSoftwarePreview(urlOf(ordinary)));
}

TEST(MediaFileSupport, KnowsExtensionsAndWhatIsSentLiveAsItIs) {
    EXPECT_TRUE(MediaFileSupport::importableVideoPathExtensions.contains("crm"));
    EXPECT_TRUE(MediaFileSupport::importableVideoPathExtensions.contains("3g2"));
    EXPECT_FALSE(MediaFileSupport::importableVideoPathExtensions.contains("insv"));
    for (const auto extension : MediaFileSupport::ffmpegContainerPathExtensions)
        EXPECT_TRUE(MediaFileSupport::importableVideoPathExtensions.contains(extension)) << extension;

    using enum LiveSyphonCompatibility;
    const auto compatibility = [](const char* name, bool requiresFFmpeg) {
        return MediaFileSupport::liveSyphonCompatibility(URL::fromFilePath(name), requiresFFmpeg);
    };
    EXPECT_EQ(compatibility("/a.mov", false), compatible);
    EXPECT_EQ(compatibility("/a.mov", true), transcodeRecommended);
    EXPECT_EQ(compatibility("/a.MKV", false), transcodeRecommended);
    EXPECT_EQ(compatibility("/a.mxf", false), compatible);
}

} // namespace
} // namespace panoveer::test
