#include "Platform/Media/AssetReader.h"
#include "Support/MediaFactory.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <limits>
#include <numeric>
#include <thread>

namespace panoveer::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using Status = AssetReader::Status;

constexpr double forever = std::numeric_limits<double>::infinity();

AssetReader startedReader(const std::shared_ptr<const MediaAsset>& asset, FourCC format, double start = 0,
                          double end = forever) {
    AssetReader reader(asset, start, end);
    reader.addOutput(asset->videoTracks().at(0), format);
    EXPECT_TRUE(reader.startReading()) << (reader.error() ? reader.error()->what() : "no error");
    return reader;
}

struct Reading {
    std::vector<int> indices; // the numbers that the pictures show
    std::vector<double> seconds;
    std::vector<PixelBufferPtr> pictures;
    Status status = Status::unknown;
};

Reading readAll(AssetReader reader) {
    Reading reading;
    while (auto sample = reader.copyNextSampleBuffer()) {
        reading.indices.push_back(frameIndex(*sample->imageBuffer));
        reading.seconds.push_back(sample->presentationSeconds);
        reading.pictures.push_back(sample->imageBuffer);
    }
    reading.status = reader.status();
    return reading;
}

std::vector<int> counted(int first, int count) {
    std::vector<int> numbers(static_cast<std::size_t>(count));
    std::iota(numbers.begin(), numbers.end(), first);
    return numbers;
}

struct DeliveryCase {
    const char* name;
    MovieSpec movie;
    const char *codecType, *codecName;
    std::vector<FourCC> formats;       // in which it is read
    const char* pixelFormat = nullptr; // of the stream, where it is not the one asked for
    bool isFullRange = false, hasAlpha = false;
};

class Delivery : public testing::TestWithParam<DeliveryCase> {};

TEST_P(Delivery, IsDescribedAndComesWholeInOrderAndOnTime) {
    const auto& expected = GetParam();
    const TemporaryFolder folder;
    auto spec = expected.movie;
    spec.frameCount = 20;
    const auto asset = loaded(makeMovie(folder, spec));
    ASSERT_EQ(asset->videoTracks().size(), 1u);
    const auto& track = asset->videoTracks()[0];
    const auto& description = track.formatDescriptions.at(0);
    EXPECT_TRUE(track.isDecodable && asset->isPlayable());
    EXPECT_EQ(description.codecType.text(), expected.codecType);
    EXPECT_EQ(description.codecName, expected.codecName);
    EXPECT_EQ(description.pixelFormatName, expected.pixelFormat ? expected.pixelFormat : spec.pixelFormat);
    EXPECT_EQ(description.isFullRange, expected.isFullRange);
    EXPECT_EQ(description.containsAlpha, expected.hasAlpha);
    EXPECT_EQ(description.width, spec.width);
    EXPECT_EQ(track.naturalHeight, spec.height);
    EXPECT_FALSE(description.hasLeftStereoEyeView || description.hasRightStereoEyeView);
    const double rate = spec.frameRate == "30000/1001" ? 30000.0 / 1001 : 30;
    EXPECT_NEAR(track.nominalFrameRate, rate, 1e-6);
    EXPECT_NEAR(asset->durationSeconds(), 20 / rate, 0.0021); // Matroska counts milliseconds
    for (const auto format : expected.formats) {
        SCOPED_TRACE(format.text());
        const auto reading = readAll(startedReader(asset, format));
        EXPECT_EQ(reading.status, Status::completed);
        EXPECT_EQ(reading.indices, counted(0, 20));
        for (std::size_t i = 0; i < reading.seconds.size(); ++i)
            EXPECT_NEAR(reading.seconds[i], double(i) / rate, 0.0011);
        EXPECT_EQ(reading.pictures.at(0)->format(), format);
        EXPECT_EQ(reading.pictures[0]->width(), spec.width);
        EXPECT_EQ(reading.pictures[0]->height(), spec.height);
    }
}

MovieSpec movieOf(const char* name, const char* codec, const char* pixelFormat, const char* range = "",
                  const char* rate = "30") {
    return {.name = name, .frameRate = rate, .codec = codec, .pixelFormat = pixelFormat, .range = range};
}

MovieSpec with(MovieSpec movie, std::vector<std::string> outputOptions) {
    movie.outputOptions = std::move(outputOptions);
    return movie;
}

MovieSpec digitalVideo() {
    auto movie = movieOf("a.mov", "dvvideo", "yuv411p", "", "30000/1001");
    movie.width = 720;
    movie.height = 480;
    return movie;
}

constexpr auto x264 = "libx264", x265 = "libx265", proRes = "prores_ks", eightBits = "yuv420p", tenBits = "yuv420p10le";

INSTANTIATE_TEST_SUITE_P(
    Codecs, Delivery,
    testing::Values(
        DeliveryCase("H264", movieOf("a.mp4", x264, eightBits), "avc1", "h264", {"420v", "420f", "x420", "BGRA"}),
        DeliveryCase("H264Ntsc", movieOf("a.mov", x264, eightBits, "", "30000/1001"), "avc1", "h264", {"420v"}),
        DeliveryCase("H264FullRange", movieOf("a.mp4", x264, "yuvj420p", "pc"), "avc1", "h264", {"420f", "420v"},
                     nullptr, true),
        DeliveryCase("H264FourTwoTwo", movieOf("a.mp4", x264, "yuv422p10le"), "avc1", "h264", {"BGRA", "x420", "x422"}),
        DeliveryCase("H264InMatroska", movieOf("a.mkv", x264, eightBits), "avc1", "h264", {"420v"}),
        DeliveryCase("H264Fragmented",
                     with(movieOf("a.mp4", x264, eightBits), {"-movflags", "frag_keyframe+empty_moov"}), "avc1", "h264",
                     {"420v"}),
        DeliveryCase("Hevc10", with(movieOf("a.mp4", x265, tenBits), {"-tag:v", "hvc1"}), "hvc1", "hevc",
                     {"x420", "420v"}),
        DeliveryCase("Hevc10FullRange", with(movieOf("a.mp4", x265, tenBits, "pc"), {"-tag:v", "hvc1"}), "hvc1", "hevc",
                     {"x420", "xf20"}, nullptr, true),
        DeliveryCase("ProRes422", movieOf("a.mov", proRes, "yuv422p10le"), "apch", "prores", {"x422", "BGRA", "420v"}),
        DeliveryCase("ProRes4444", movieOf("a.mov", proRes, "yuv444p10le"), "ap4h", "prores", {"x444", "x422"},
                     "yuv444p12le"),
        DeliveryCase("ProRes4444Alpha", movieOf("a.mov", proRes, "yuva444p10le"), "ap4h", "prores", {"BGRA"},
                     "yuva444p12le", false, true),
        DeliveryCase("MotionJpeg", movieOf("a.mov", "mjpeg", "yuvj422p"), "jpeg", "mjpeg", {"BGRA"}, nullptr, true),
        DeliveryCase("Mpeg4WithBFrames", with(movieOf("a.avi", "mpeg4", eightBits), {"-bf", "2", "-q:v", "2"}), "FMP4",
                     "mpeg4", {"BGRA"}),
        DeliveryCase("Dv", digitalVideo(), "dvc ", "dvvideo", {"BGRA"})),
    [](const auto& test) { return test.param.name; });

TEST(AssetReader, DeliversTheSamplesThatTheStreamHoldsWithTheirColours) {
    const TemporaryFolder folder;
    const auto movie = makeMovie(folder, {.name = "a.mov",
                                          .width = 150,
                                          .height = 90,
                                          .frameCount = 1,
                                          .codec = "prores_ks",
                                          .pixelFormat = "yuv422p10le",
                                          .primaries = "bt2020",
                                          .transfer = "arib-std-b67",
                                          .matrix = "bt2020nc"});
    const auto raw =
        runProgram({"ffmpeg", "-v", "error", "-i", movie, "-f", "rawvideo", "-pix_fmt", "p210le", "pipe:1"})
            .standardOutput;
    ASSERT_EQ(raw.size(), 150u * 90 * 4);
    const auto reading = readAll(startedReader(loaded(movie), "x422"));
    const auto& picture = *reading.pictures.at(0);
    for (int i = 0; i < 2; ++i)
        for (int y = 0; y < 90; ++y)
            ASSERT_EQ(std::memcmp(picture.plane(i).data + std::size_t(y) * picture.plane(i).rowBytes,
                                  raw.data() + (i * 90 + y) * 300, 300),
                      0)
                << "plane " << i << ", row " << y;
    EXPECT_EQ(picture.color(), (ColorAttachments{9, 18, 9, {}, {}}));
}

TEST(AssetReader, KeepsStraightAlpha) {
    const TemporaryFolder folder;
    const auto movie =
        makeMovie(folder, {.frameCount = 1,
                           .codec = "prores_ks",
                           .pixelFormat = "yuva444p10le",
                           .matrix = "bt709",
                           .painter = [](int, int width, int, std::span<std::uint8_t> rgba) {
                               for (std::size_t i = 0; i < rgba.size(); i += 4) {
                                   const bool isLeft = int(i / 4) % width < width / 2;
                                   const std::uint8_t pixel[] = {220, 100, 40, std::uint8_t(isLeft ? 64 : 255)};
                                   std::memcpy(&rgba[i], pixel, sizeof pixel);
                               }
                           }});
    const auto reading = readAll(startedReader(loaded(movie), "BGRA"));
    for (const auto& [x, alpha] : {std::pair{40, 64}, std::pair{120, 255}}) {
        const auto* pixel = reading.pictures.at(0)->plane(0).data + 48 * reading.pictures[0]->plane(0).rowBytes + x * 4;
        EXPECT_NEAR(int(pixel[0]), 40, 4);
        EXPECT_NEAR(int(pixel[1]), 100, 4);
        EXPECT_NEAR(int(pixel[2]), 220, 4);
        EXPECT_NEAR(int(pixel[3]), alpha, 1);
    }
}

class TimeRange : public testing::TestWithParam<MovieSpec> {};

// 60 pictures at 25 per second: picture i is displayed from i / 25 s to (i + 1) / 25 s.
TEST_P(TimeRange, HoldsThePicturesDisplayedInIt) {
    const TemporaryFolder folder;
    auto spec = GetParam();
    spec.frameRate = "25";
    spec.frameCount = 60;
    const auto asset = loaded(makeMovie(folder, spec));
    struct Range {
        const char* what;
        double start, end;
        int firstIndex, count;
    };
    for (const auto& [what, start, end, firstIndex, count] :
         {Range{"whole", 0, forever, 0, 60}, Range{"on frames", 1.0, 1.4, 25, 10},
          Range{"between frames", 1.03, 1.05, 25, 2}, Range{"before the head", -3, 0.04, 0, 1},
          Range{"last picture", 2.39, 9, 59, 1}, Range{"behind the end", 2.41, 9, 0, 0}, Range{"empty", 1, 1, 0, 0}}) {
        SCOPED_TRACE(what);
        const auto reading = readAll(startedReader(asset, "420v", start, end));
        EXPECT_EQ(reading.status, Status::completed);
        EXPECT_EQ(reading.indices, counted(firstIndex, count));
        if (count > 0) {
            EXPECT_NEAR(reading.seconds.at(0), firstIndex / 25.0, 0.0011);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Movies, TimeRange,
                         testing::Values(MovieSpec{.name = "sparse.mov", .keyFrameInterval = 250},
                                         MovieSpec{.name = "late.mkv", .keyFrameInterval = 10, .startSeconds = 2},
                                         MovieSpec{.name = "late.mp4", .keyFrameInterval = 10, .startSeconds = 2},
                                         with(movieOf("fragments.mp4", x264, eightBits),
                                              {"-g", "20", "-movflags", "frag_keyframe+empty_moov"}),
                                         with(movieOf("open.mp4", x265, eightBits),
                                              {"-x265-params", "log-level=none:open-gop=1:keyint=15:bframes=4"}),
                                         with(movieOf("open.mkv", x264, eightBits),
                                              {"-x264-params", "open-gop=1:keyint=15:bframes=3:b-pyramid=normal"})),
                         [](const auto& test) {
                             auto name = test.param.name;
                             std::ranges::replace(name, '.', '_');
                             return name;
                         });

// Trimming without a new encoding leaves pictures in the file that its edit list hides.
TEST(AssetReader, HidesWhatTheEditListHides) {
    const TemporaryFolder folder;
    const auto whole = makeMovie(folder, {.name = "whole.mp4", .frameRate = "25", .frameCount = 60});
    const auto trimmed = folder / "trimmed.mp4";
    ASSERT_EQ(
        runProgram({"ffmpeg", "-v", "error", "-ss", "0.8", "-i", whole, "-t", "1", "-c", "copy", trimmed}).exitCode, 0);
    const auto asset = loaded(trimmed);
    const auto reading = readAll(startedReader(asset, "420v"));
    ASSERT_GE(reading.indices.size(), 25u);
    for (std::size_t i = 0; i < reading.indices.size(); ++i)
        EXPECT_NEAR(reading.seconds[i], (reading.indices[i] - 20) / 25.0, 1e-6);
    EXPECT_EQ(reading.indices[0], 20);
    EXPECT_NEAR(asset->durationSeconds(), reading.seconds.back() + 1 / 25.0, 0.001);
    const auto later = readAll(startedReader(asset, "420v", 0.4, 0.5));
    EXPECT_THAT(later.indices, ElementsAre(30, 31, 32));
}

// A picture that stays for seconds is the one displayed at the start, however long ago it began.
TEST(AssetReader, FindsThePictureThatStaysAcrossTheStart) {
    const TemporaryFolder folder;
    const auto movie =
        makeMovie(folder, {.name = "a.mkv", .frameRate = "25", .frameCount = 10, .keyFrameInterval = 250});
    const auto slow = folder / "slow.mkv";
    // Pictures 0 to 4 as they are; 5 to 9 begin ten seconds later.
    ASSERT_EQ(runProgram({"ffmpeg", "-v", "error", "-i", movie, "-vf", "setpts='PTS+gte(N,5)*10/TB'", "-fps_mode",
                          "vfr", "-c:v", "libx264", "-bf", "3", slow})
                  .exitCode,
              0);
    EXPECT_THAT(readAll(startedReader(loaded(slow), "420v", 6, 10.22)).indices, ElementsAre(4, 5));
}

TEST(AssetReader, RefusesWhatItCannotDeliver) {
    const TemporaryFolder folder;
    const auto asset = loaded(makeMovie(folder, {.frameCount = 2}));
    const auto& track = asset->videoTracks().at(0);
    AssetReader reader(asset, 0, 1);
    EXPECT_FALSE(reader.startReading()); // no output yet
    EXPECT_FALSE(reader.canAddOutput(track, "RGhA"));
    EXPECT_THROW(reader.addOutput(track, "RGhA"), Error);
    auto multiview = track;
    multiview.isDecodable = false;
    EXPECT_FALSE(reader.canAddOutput(multiview, "420v"));
    EXPECT_EQ(reader.status(), Status::unknown);
    EXPECT_TRUE(reader.canAddOutput(track, "420v"));
}

// Each Motion JPEG picture stands for itself, so that one spoiled picture costs one picture.
TEST(AssetReader, PassesOverAFaultyPacketButFailsWhenNothingDecodes) {
    const TemporaryFolder folder;
    const auto movie =
        makeMovie(folder, {.name = "a.avi", .frameCount = 10, .codec = "mjpeg", .pixelFormat = "yuvj420p"});
    const auto bytes = readFile(movie);
    const auto spoiled = [&](int fromPicture, int toPicture) {
        auto copy = bytes;
        std::vector<std::size_t> pictures;
        for (std::size_t i = 0; i + 3 < copy.size(); ++i) {
            constexpr std::uint8_t startOfImage[] = {0xff, 0xd8, 0xff};
            if (std::memcmp(&copy[i], startOfImage, 3) == 0)
                pictures.push_back(i);
        }
        EXPECT_EQ(pictures.size(), 10u);
        pictures.push_back(copy.size());
        constexpr std::size_t chunkHeader = 8;
        for (int i = fromPicture; i < toPicture; ++i)
            std::fill(copy.begin() + std::ptrdiff_t(pictures[std::size_t(i)]),
                      copy.begin() + std::ptrdiff_t(pictures[std::size_t(i) + 1] - chunkHeader), std::uint8_t(0));
        writeFile(folder / "spoiled.avi", copy);
        // The tracks come from the sound file: only its packets are to be faulty.
        std::filesystem::copy_file(movie, folder / "read.avi", std::filesystem::copy_options::overwrite_existing);
        const auto asset = loaded(folder / "read.avi");
        std::filesystem::rename(folder / "spoiled.avi", folder / "read.avi");
        return startedReader(asset, "BGRA");
    };
    const auto one = readAll(spoiled(4, 5));
    EXPECT_EQ(one.status, Status::completed);
    EXPECT_THAT(one.indices, ElementsAre(0, 1, 2, 3, 5, 6, 7, 8, 9));
    auto all = spoiled(0, 10);
    EXPECT_FALSE(all.copyNextSampleBuffer());
    EXPECT_EQ(all.status(), Status::failed);
    EXPECT_EQ(all.error()->domain(), mediaErrorDomain);
}

TEST(AssetReader, StopsWhenCancelledFromAnotherThread) {
    const TemporaryFolder folder;
    auto reader = startedReader(loaded(makeMovie(folder, {.frameCount = 200})), "420v");
    EXPECT_TRUE(reader.copyNextSampleBuffer());
    std::thread([&] { reader.cancelReading(); }).join();
    EXPECT_FALSE(reader.copyNextSampleBuffer());
    EXPECT_EQ(reader.status(), Status::cancelled);
    EXPECT_FALSE(reader.error());
}

TEST(AssetReader, LetsPicturesOutliveIt) {
    const TemporaryFolder folder;
    const auto reading = readAll(startedReader(loaded(makeMovie(folder, {.frameCount = 40})), "420v"));
    std::vector<int> indices;
    for (const auto& picture : reading.pictures)
        indices.push_back(frameIndex(*picture));
    EXPECT_EQ(indices, counted(0, 40));
}

} // namespace
} // namespace panoveer::test
