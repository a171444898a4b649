#include "MovieInspection.h"
#include "Platform/Media/AssetWriter.h"
#include "Platform/Media/MediaAsset.h"
#include "Support/MediaFactory.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <set>

namespace panoveer::test {
namespace {

using nlohmann::json;

constexpr int width = 320;
constexpr int height = 192;
constexpr MediaTime frameDuration{1001, 30000};

VideoSettings stereoSettings(VideoProfile profile) {
    VideoSettings settings{.codec = FourCC("hvc1"),
                           .width = width,
                           .height = height,
                           .profile = profile,
                           .maximumKeyFrameInterval = 30,
                           .frameDuration = frameDuration,
                           .color = {9, 16, 9, {}, {}}};
    settings.immersiveMedia.multiview = {.horizontalFieldOfView = 63'500, .stereoCameraBaseline = 19'240};
    settings.immersiveMedia.projectionKind = VideoProjectionKind::halfEquirectangular;
    return settings;
}

std::unique_ptr<AssetWriter> startWriter(const std::filesystem::path& path, const VideoSettings& settings,
                                         FourCC format, VideoInput*& input) {
    auto writer = std::make_unique<AssetWriter>(URL::fromFilePath(path), MovieFileType::quickTimeMovie);
    writer->setMovieTimeScale(frameDuration.timescale);
    writer->setInitialMovieFragmentInterval({600, 600});
    writer->setMovieFragmentInterval({600, 600});
    input = writer->addVideoInput(settings, format, frameDuration.timescale, 0);
    if (!input || !writer->startWriting())
        throw std::runtime_error(writer->error() ? writer->error()->what() : "no input");
    writer->startSession({0, frameDuration.timescale});
    return writer;
}

// The right eye sees another part of the pattern.
constexpr int disparity = 7;

std::filesystem::path recordStereo(const std::filesystem::path& path, const VideoSettings& settings, FourCC format,
                                   int frameCount) {
    VideoInput* input = nullptr;
    const auto writer = startWriter(path, settings, format, input);
    for (int i = 0; i < frameCount; ++i) {
        const TaggedPixelBuffer eyes[] = {
            {makePatternPicture(format, width, height, i), 0, StereoView::leftEye},
            {makePatternPicture(format, width, height, i + disparity), 1, StereoView::rightEye}};
        if (!input->appendTaggedBuffers(eyes, {i * frameDuration.value, frameDuration.timescale}))
            throw std::runtime_error("append");
    }
    input->markAsFinished();
    if (!writer->finishWriting())
        throw std::runtime_error(writer->error() ? writer->error()->what() : "finish");
    return path;
}

std::string decodeEye(const std::filesystem::path& movie, const std::string& eye, const std::string& pixelFormat) {
    auto result = runProgram({"ffmpeg", "-v", "error", "-i", movie.string(), "-map", "0:v:vpos:" + eye, "-f",
                              "rawvideo", "-fps_mode", "passthrough", "-pix_fmt", pixelFormat, "-"});
    if (result.exitCode != 0 || !result.standardError.empty())
        throw std::runtime_error("ffmpeg: " + result.standardError);
    return std::move(result.standardOutput);
}

struct StereoCase {
    const char* name;
    VideoProfile profile;
    FourCC pictureFormat;
    const char* decodedFormat;
    int bytesPerSample;
};

class StereoMovie : public testing::TestWithParam<StereoCase> {};

TEST_P(StereoMovie, GivesEachEyeBackByItself) {
    constexpr int frameCount = 70;
    const auto& parameter = GetParam();
    const TemporaryFolder folder;
    const auto movie =
        recordStereo(folder / "eyes.mov", stereoSettings(parameter.profile), parameter.pictureFormat, frameCount);

    for (const auto& [eye, shift] : {std::pair("left", 0), std::pair("right", disparity)}) {
        std::string expected;
        for (int i = 0; i < frameCount; ++i)
            expected += packedSamples(*makePatternPicture(parameter.pictureFormat, width, height, i + shift));
        EXPECT_GT(signalToNoise(decodeEye(movie, eye, parameter.decodedFormat), expected, parameter.bytesPerSample,
                                parameter.bytesPerSample == 1 ? 255 : 65535),
                  38)
            << eye;
    }
    // Whoever knows one layer only shows the left eye, and complains about nothing.
    EXPECT_EQ(decodeRaw(movie, parameter.decodedFormat), decodeEye(movie, "left", parameter.decodedFormat));

    const auto report = ffprobeJSON(movie, {"-show_packets"});
    const auto& stream = report["streams"][0];
    EXPECT_EQ(stream["codec_tag_string"], "hvc1");
    EXPECT_EQ(stream["disposition"]["multilayer"], 1);
    EXPECT_EQ(stream["nb_frames"], std::to_string(frameCount));
    EXPECT_EQ(stream["duration_ts"], frameCount * frameDuration.value);
    EXPECT_EQ(stream["color_transfer"], "smpte2084");
    EXPECT_EQ(stream["view_pos_available"], "1,2") << "left, then right";
    json said;
    for (const auto& data : stream["side_data_list"])
        said.update(data);
    EXPECT_EQ(said["view"], "packed");
    EXPECT_EQ(said["primary_eye"], "left");
    EXPECT_EQ(said["baseline"], 19'240);
    EXPECT_EQ(said["horizontal_field_of_view"], "63500/1000");
    EXPECT_EQ(said["projection"], "half equirectangular");

    std::set<std::int64_t> times;
    std::vector<std::int64_t> keyTimes;
    std::int64_t before = std::numeric_limits<std::int64_t>::min();
    for (const auto& packet : report["packets"]) {
        const std::int64_t shown = packet["pts"], decoded = packet["dts"];
        EXPECT_GT(decoded, before);
        EXPECT_GE(shown, decoded);
        before = decoded;
        times.insert(shown);
        if (packet["flags"].get<std::string>().starts_with('K'))
            keyTimes.push_back(shown / frameDuration.value);
    }
    EXPECT_EQ(times.size(), frameCount);
    EXPECT_EQ(*times.rbegin(), (frameCount - 1) * frameDuration.value);
    EXPECT_THAT(keyTimes, testing::ElementsAre(0, 30, 60));

    const auto asset = MediaAsset::load(URL::fromFilePath(movie));
    const auto& format = asset->videoTracks().at(0).formatDescriptions.at(0);
    EXPECT_TRUE(format.hasLeftStereoEyeView && format.hasRightStereoEyeView);
}

INSTANTIATE_TEST_SUITE_P(Depths, StereoMovie,
                         testing::Values(StereoCase{"EightBits", VideoProfile::hevcMain,
                                                    pixelFormat::yCbCr420VideoRange, "nv12", 1},
                                         StereoCase{"TenBits", VideoProfile::hevcMain10,
                                                    pixelFormat::yCbCr420TenBitVideoRange, "p010le", 2}),
                         [](const auto& info) { return std::string(info.param.name); });

} // namespace
} // namespace panoveer::test
