#include "Panoveer/Services/Intake/ImmersiveFrameSampler.h"
#include "Panoveer/Services/Intake/VideoMetadataReader.h"
#include "Support/MediaFactory.h"
#include "Support/SyntheticWorld.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>

namespace panoveer {
namespace {

namespace fs = std::filesystem;
using Projection = ProjectionFormat;
using Layout = StereoVideoLayout;
using Source = ImmersiveFormatDetection::Source;
using testing::DoubleNear;
using testing::ElementsAre;

// A film of two seconds of a clip.
fs::path film(const test::TemporaryFolder& folder, const test::SyntheticClip& clip, test::MovieSpec spec) {
    const auto frames = test::sampleFrames(clip, 1);
    spec.width = clip.width;
    spec.height = clip.height;
    spec.frameRate = "4";
    spec.frameCount = 8;
    spec.painter = [&](int, int, int, std::span<std::uint8_t> rgba) {
        for (std::size_t i = 0; i < rgba.size(); ++i)
            rgba[i] = i % 4 == 3 ? 255 : std::uint8_t(std::lround(frames[0].pixels()[i / 4] * 255));
    };
    return test::makeMovie(folder, spec);
}

VideoAsset detected(const fs::path& file) {
    return VideoMetadataReader::withFormatDetection(VideoMetadataReader::readStreams(URL::fromFilePath(file)));
}

const test::SyntheticClip sphere{21, Projection::equirectangular, Layout::mono, false, 512, 256};
const test::SyntheticClip crossedPair{33, Projection::halfEquirectangular, Layout::sideBySide, true, 768, 384};

TEST(FormatDetection, KnowsAMovieByItsPicturesOnBothRoads) {
    const test::TemporaryFolder folder;
    struct Road {
        const char* name;
        const char* codec;
        VideoDecodingBackend backend;
    };
    for (const auto& road : {Road{"a.mp4", "libx264", VideoDecodingBackend::avFoundation},
                             Road{"a.webm", "libvpx-vp9", VideoDecodingBackend::ffmpeg}}) {
        for (const auto& clip : {sphere, crossedPair}) {
            const auto asset = detected(film(folder, clip, {.name = road.name, .codec = road.codec}));
            ASSERT_TRUE(asset.formatDetection);
            EXPECT_EQ(asset.videoDecodingBackend, road.backend);
            EXPECT_EQ(asset.detectedFormat, clip.projection) << road.name;
            EXPECT_EQ(asset.formatDetection->projection, clip.projection);
            EXPECT_EQ(asset.formatDetection->stereoLayout, clip.stereoLayout);
            EXPECT_EQ(asset.formatDetection->eyesSwapped, clip.eyesSwapped);
            EXPECT_EQ(asset.formatDetection->source, Source::imageAnalysis);
        }
    }
}

TEST(FormatDetection, GathersContainerNameAndLens) {
    const test::TemporaryFolder folder;
    const test::MovieSpec small{.width = 128, .height = 64, .frameCount = 2};
    const auto named = [&](const char* name) {
        auto spec = small;
        spec.name = name;
        return test::makeMovie(folder, spec);
    };

    const auto tagged = named("clip_fisheye.mp4");
    test::appendEquirectangularMapping(tagged, {});
    test::appendStereoLayout(tagged, 1);
    const auto byContainer = *detected(tagged).formatDetection;
    EXPECT_EQ(byContainer.projection, Projection::equirectangular);
    EXPECT_EQ(byContainer.stereoLayout, Layout::overUnder);
    EXPECT_EQ(byContainer.source, Source::metadata);

    const auto byName = *detected(named("clip_fisheye210_sbs.mov")).formatDetection;
    EXPECT_EQ(byName.projection, Projection::domemaster);
    EXPECT_EQ(byName.fisheyeFieldOfView, 210);
    EXPECT_EQ(byName.source, Source::fileName);

    const auto shot = named("shot.mp4");
    auto bytes = test::readFile(shot);
    const std::string_view lens = "RF5.2mm F2.8 L DUAL FISHEYE";
    const auto box = test::makeBox("free", std::vector<std::uint8_t>(lens.begin(), lens.end()));
    bytes.insert(bytes.end(), box.begin(), box.end());
    test::writeFile(shot, bytes);
    const auto byLens = *detected(shot).formatDetection;
    EXPECT_TRUE(byLens.isDualFisheyeLens);
    EXPECT_EQ(byLens.projection, Projection::domemaster);
    EXPECT_TRUE(byLens.eyesSwapped);
    EXPECT_EQ(byLens.fisheyeFieldOfView, 190);
}

TEST(FormatDetection, LooksAtNoPicturesOfAMovieThatCannotBePlayed) {
    const test::TemporaryFolder folder;
    const test::SyntheticClip square{31, Projection::halfEquirectangular, Layout::mono, false, 256, 256};
    const auto movie = film(folder, square, {.name = "a.mov"});
    EXPECT_EQ(detected(movie).detectedFormat, Projection::halfEquirectangular);
    fs::rename(movie, folder / "a.crm");
    const auto asset = detected(folder / "a.crm");
    EXPECT_EQ(asset.playbackStatus, VideoPlaybackStatus::conversionRequired);
    EXPECT_EQ(asset.detectedFormat, Projection::domemaster);
    EXPECT_EQ(asset.formatDetection->source, Source::aspectRatio);
}

TEST(FormatDetection, AnswersEvenWhenTheFileIsGone) {
    VideoAsset asset;
    asset.url = URL::fromFilePath("/nowhere/at_all_360.mp4");
    asset.naturalSize = {std::nan(""), -3};
    asset.duration = std::numeric_limits<double>::infinity();
    for (const auto backend : {VideoDecodingBackend::avFoundation, VideoDecodingBackend::ffmpeg}) {
        asset.videoDecodingBackend = backend;
        EXPECT_EQ(VideoMetadataReader::withFormatDetection(asset).detectedFormat, Projection::equirectangular);
    }
}

TEST(ImmersiveFrameSampler, LooksAtThreePlacesOfAMovieOfSomeLength) {
    using ImmersiveFrameSampler::sampleTimes;
    EXPECT_THAT(sampleTimes(10), ElementsAre(DoubleNear(2, 1e-9), DoubleNear(5, 1e-9), DoubleNear(8, 1e-9)));
    for (double duration : {1.0, 0.0, -4.0, std::nan(""), std::numeric_limits<double>::infinity()})
        EXPECT_THAT(sampleTimes(duration), ElementsAre(0));
}

TEST(ImmersiveFrameSampler, TakesUprightPicturesOfLimitedSize) {
    const test::TemporaryFolder folder;
    const auto turned = URL::fromFilePath(test::makeMovie(
        folder, {.name = "turned.mov", .width = 2048, .height = 512, .frameCount = 3, .rotationDegrees = 90}));
    const auto frames = ImmersiveFrameSampler::frames(turned, false, 0.1);
    ASSERT_EQ(frames.size(), 1u);
    EXPECT_EQ(frames[0].width(), 256);
    EXPECT_EQ(frames[0].height(), 1024);
    const auto wide = URL::fromFilePath(
        test::makeMovie(folder, {.name = "wide.webm", .width = 2048, .height = 512, .codec = "libvpx-vp9"}));
    // The last of the three times lies beyond the end.
    const auto decoded = ImmersiveFrameSampler::frames(wide, true, 1.4);
    ASSERT_EQ(decoded.size(), 2u);
    EXPECT_EQ(decoded[1].width(), 1024);
    EXPECT_EQ(decoded[1].height(), 256);

    std::stop_source stopped;
    stopped.request_stop();
    EXPECT_TRUE(ImmersiveFrameSampler::frames(turned, false, 2, stopped.get_token()).empty());
    EXPECT_TRUE(ImmersiveFrameSampler::frames(wide, true, 2, stopped.get_token()).empty());
}

TEST(ImmersiveFrameSampler, WeighsColoursAsTheEyeDoes) {
    const auto picture = PixelBuffer::make(pixelFormat::bgra, 5, 1);
    const std::uint8_t colors[5][4] = {
        {255, 255, 255, 0}, {0, 0, 0, 255}, {255, 0, 0, 255}, {0, 255, 0, 255}, {0, 0, 255, 255}};
    std::memcpy(picture->plane(0).data, colors, sizeof colors);
    const auto grey = ImmersiveFrameSampler::grayscale(*picture);
    EXPECT_THAT(grey.pixels(), testing::Pointwise(testing::FloatNear(1e-6f), {1.0f, 0.0f, 0.0722f, 0.7152f, 0.2126f}));
    EXPECT_TRUE(ImmersiveFrameSampler::grayscale(*PixelBuffer::make(pixelFormat::yCbCr420VideoRange, 4, 4)).isEmpty());
}

} // namespace
} // namespace panoveer
