#include "MovieInspection.h"
#include "Platform/Media/AssetReader.h"
#include "Platform/Media/AssetWriter.h"
#include "Platform/Media/MediaAsset.h"
#include "Support/MediaFactory.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <limits>
#include <set>

namespace panoveer::test {
namespace {

using nlohmann::json;

constexpr int width = 320;
constexpr int height = 192;
constexpr MediaTime frameDuration{1001, 30000};

// G, B, R and white of BT.2020 in units of 0.00002, 1000 and 0.005 cd/m² in units of 0.0001.
const std::vector<std::uint8_t> bt2020Display{0x21, 0x34, 0x9b, 0xaa, 0x19, 0x96, 0x08, 0xfc, 0x8a, 0x48, 0x39, 0x08,
                                              0x3d, 0x13, 0x40, 0x42, 0x00, 0x98, 0x96, 0x80, 0x00, 0x00, 0x00, 0x32};

VideoSettings stereoSettings(VideoProfile profile) {
    VideoSettings settings{.codec = FourCC("hvc1"),
                           .width = width,
                           .height = height,
                           .profile = profile,
                           .maximumKeyFrameInterval = 30,
                           .frameDuration = frameDuration,
                           .color = {9, 16, 9, bt2020Display, {0x03, 0xe8, 0x01, 0x90}}}; // 1000 and 400 cd/m²
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
    EXPECT_EQ(said["max_content"], 1000);
    EXPECT_EQ(said["green_x"], "8500/50000");

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
                         [](const auto& test) { return std::string(test.param.name); });

// Average bits per second of all samples.
double bitRate(const std::filesystem::path& movie) {
    return std::stod(ffprobeJSON(movie)["streams"][0]["bit_rate"].get<std::string>());
}

TEST(LayeredVideo, KeepsBothLayersTogetherToTheRateThatWasAskedFor) {
    constexpr int frameCount = 240;
    constexpr double asked = 1'500'000;
    const TemporaryFolder folder;
    auto settings = stereoSettings(VideoProfile::hevcMain);
    settings.averageBitRate = std::int64_t(asked);
    VideoInput* input = nullptr;
    const auto writer = startWriter(folder / "busy.mov", settings, pixelFormat::yCbCr420VideoRange, input);
    for (int i = 0; i < frameCount; ++i) {
        const TaggedPixelBuffer eyes[] = {
            {makeBusyPicture(width, height, i), 0, StereoView::leftEye},
            {makeBusyPicture(width, height, i + frameCount), 1, StereoView::rightEye}}; // nothing in common
        ASSERT_TRUE(input->appendTaggedBuffers(eyes, {i * frameDuration.value, frameDuration.timescale}));
    }
    input->markAsFinished();
    ASSERT_TRUE(writer->finishWriting());
    EXPECT_NEAR(bitRate(folder / "busy.mov"), asked, 0.1 * asked);
}

TEST(LayeredVideo, SaysItsEyesInEachHeaderOfAGrowingMovie) {
    const TemporaryFolder folder;
    const auto path = folder / "growing.mov";
    const auto child = fork();
    if (child == 0) {
        VideoInput* input = nullptr;
        const auto writer =
            startWriter(path, stereoSettings(VideoProfile::hevcMain), pixelFormat::yCbCr420VideoRange, input);
        for (int i = 0; i < 150; ++i) {
            const TaggedPixelBuffer eyes[] = {
                {makePatternPicture(pixelFormat::yCbCr420VideoRange, width, height, i), 0, StereoView::leftEye},
                {makePatternPicture(pixelFormat::yCbCr420VideoRange, width, height, i), 1, StereoView::rightEye}};
            input->appendTaggedBuffers(eyes, {i * frameDuration.value, frameDuration.timescale});
        }
        _exit(0); // before the writer can clean up
    }
    ASSERT_EQ(waitpid(child, nullptr, 0), child);
    EXPECT_EQ(countInMovieHeader(path, "mvex"), 1) << "not finished";
    EXPECT_EQ(countInMovieHeader(path, "free"), 1);
    const auto asset = MediaAsset::load(URL::fromFilePath(path));
    const auto& format = asset->videoTracks().at(0).formatDescriptions.at(0);
    EXPECT_TRUE(format.hasLeftStereoEyeView && format.hasRightStereoEyeView);
    const auto left = decodeEye(path, "left", "gray"), right = decodeEye(path, "right", "gray");
    EXPECT_GE(left.size(), std::size_t(60 * width * height));
    EXPECT_EQ(left.size(), right.size());
}

TEST(LayeredVideo, RefusesPicturesThatAreNotThoseOfTheEyes) {
    const auto picture = makePatternPicture(pixelFormat::yCbCr420VideoRange, width, height, 0);
    const TaggedPixelBuffer left{picture, 0, StereoView::leftEye}, right{picture, 1, StereoView::rightEye};
    const std::vector<std::vector<TaggedPixelBuffer>> arrangements{{},
                                                                   {left},
                                                                   {right, left},
                                                                   {left, {picture, 1, StereoView::leftEye}},
                                                                   {left, {nullptr, 1, StereoView::rightEye}}};
    for (const auto& pictures : arrangements) {
        const TemporaryFolder folder;
        VideoInput* input = nullptr;
        const auto writer = startWriter(folder / "refused.mov", stereoSettings(VideoProfile::hevcMain),
                                        pixelFormat::yCbCr420VideoRange, input);
        // A single picture stands for the arrangement of none.
        EXPECT_FALSE(pictures.empty() ? input->append(picture, {0, 30})
                                      : input->appendTaggedBuffers(pictures, {0, 30}));
        EXPECT_EQ(writer->status(), AssetWriter::Status::failed);
    }
}

// Of BGRA pictures, colour or alpha alone.
std::string channels(const std::string& pictures, bool alpha) {
    std::string chosen;
    for (std::size_t i = 0; i < pictures.size(); ++i)
        if ((i % 4 == 3) == alpha)
            chosen += pictures[i];
    return chosen;
}

// BGRA pictures with their colour multiplied with alpha.
std::string premultiplied(std::string pictures) {
    for (std::size_t i = 0; i < pictures.size(); ++i)
        if (i % 4 != 3)
            pictures[i] = char((std::uint8_t(pictures[i]) * std::uint8_t(pictures[i | 3]) + 127) / 255);
    return pictures;
}

// Makes a movie say of its alpha that the colour is multiplied with it: alpha_channel_use_idc of Rec. ITU-T H.265,
// F.14.2.8, wherever such a message is.
void declarePremultiplied(const std::filesystem::path& movie) {
    auto bytes = readFile(movie);
    int found = 0;
    for (std::size_t i = 0; i + 4 < bytes.size(); ++i)
        if (bytes[i] == 39 << 1 && bytes[i + 1] <= 0x09 && bytes[i + 2] == 165) {
            bytes[i + 4] = std::uint8_t((bytes[i + 4] & 0x8f) | 0x10);
            ++found;
        }
    ASSERT_GT(found, 0);
    writeFile(movie, bytes);
}

class AlphaMovie : public testing::TestWithParam<bool> {};

TEST_P(AlphaMovie, BringsAlphaBackWithTheColourThatEveryPlayerShows) {
    const bool isPremultiplied = GetParam();
    constexpr int frameCount = 40;
    const TemporaryFolder folder;
    const auto path = folder / "alpha.mov";
    VideoSettings settings{.codec = FourCC("muxa"),
                           .width = width,
                           .height = height,
                           .maximumKeyFrameInterval = 30,
                           .frameDuration = frameDuration,
                           .color = {1, 1, 1, {}, {}}};
    VideoInput* input = nullptr;
    const auto writer = startWriter(path, settings, pixelFormat::bgra, input);
    std::string expected;
    for (int i = 0; i < frameCount; ++i) {
        auto picture = makePatternPicture(pixelFormat::bgra, width, height, i);
        auto samples = packedSamples(*picture);
        if (isPremultiplied) {
            samples = premultiplied(samples);
            const auto& plane = picture->plane(0);
            for (std::size_t y = 0; y < height; ++y)
                std::memcpy(plane.data + y * plane.rowBytes, samples.data() + y * width * 4, width * 4);
        }
        expected += samples;
        ASSERT_TRUE(input->append(std::move(picture), {i * frameDuration.value, frameDuration.timescale}));
    }
    input->markAsFinished();
    ASSERT_TRUE(writer->finishWriting());
    if (isPremultiplied)
        declarePremultiplied(path);

    EXPECT_EQ(ffprobeJSON(path)["streams"][0]["codec_tag_string"], "hvc1");
    // A decoder that knows no alpha says so, and shows the colour.
    const auto plain = runProgram({"ffmpeg", "-v", "fatal", "-i", path.string(), "-f", "rawvideo", "-fps_mode",
                                   "passthrough", "-pix_fmt", "bgra", "-"});
    EXPECT_GT(signalToNoise(channels(plain.standardOutput, false), channels(expected, false), 1, 255), 30);

    const auto asset = MediaAsset::load(URL::fromFilePath(path));
    const auto& track = asset->videoTracks().at(0);
    EXPECT_TRUE(track.formatDescriptions.at(0).containsAlpha);
    EXPECT_FALSE(track.formatDescriptions.at(0).hasRightStereoEyeView);
    // From the middle of a group of pictures, too, each picture has its own alpha.
    for (const int first : {0, 17}) {
        AssetReader reader(asset, first * frameDuration.seconds(), 1e6);
        reader.addOutput(track, pixelFormat::bgra);
        ASSERT_TRUE(reader.startReading());
        std::string read;
        while (const auto sample = reader.copyNextSampleBuffer())
            read += packedSamples(*sample->imageBuffer);
        if (isPremultiplied)
            read = premultiplied(std::move(read));
        const auto original = expected.substr(std::size_t(first * width * height * 4));
        EXPECT_GT(signalToNoise(channels(read, false), channels(original, false), 1, 255), 30);
        EXPECT_GT(signalToNoise(channels(read, true), channels(original, true), 1, 255), 38);
    }
}

INSTANTIATE_TEST_SUITE_P(, AlphaMovie, testing::Values(false, true),
                         [](const auto& test) { return test.param ? "Premultiplied" : "Straight"; });

} // namespace
} // namespace panoveer::test
