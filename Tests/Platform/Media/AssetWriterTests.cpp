#include "MovieInspection.h"
#include "Platform/Media/AssetWriter.h"
#include "Support/MediaFactory.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <cmath>
#include <format>

namespace panoveer::test {
namespace {

using nlohmann::json;
using testing::Each;
using testing::ElementsAre;
using testing::IsSupersetOf;
using Status = AssetWriter::Status;

constexpr auto mp4 = MovieFileType::mp4, quickTime = MovieFileType::quickTimeMovie;
constexpr auto nv12 = pixelFormat::yCbCr420VideoRange, tenBit420 = pixelFormat::yCbCr420TenBitVideoRange,
               tenBit422 = pixelFormat::yCbCr422TenBitVideoRange;
constexpr MediaTime ntsc{1001, 30000};

struct Recording {
    FourCC codec = "avc1";
    FourCC pictureFormat = nv12;
    MovieFileType fileType = mp4;
    int frameCount = 30;
    MediaTime frameDuration = ntsc;
    ColorAttachments color{1, 1, 1, {}, {}};
    ColorAttachments pictureColor = {};
    int width = 160;
    int height = 96;
    std::int64_t plannedFrameCount = 30;
    std::int64_t bitRate = 2'000'000; // of codecs that have one
    bool isBusy = false;
};

bool isProRes(const Recording& recording) { return recording.codec.text().starts_with("ap"); }

VideoSettings settingsOf(const Recording& recording) {
    const int rate = int(std::lround(1 / recording.frameDuration.seconds()));
    return {.codec = recording.codec,
            .width = recording.width,
            .height = recording.height,
            .averageBitRate = isProRes(recording) ? std::nullopt : std::optional(recording.bitRate),
            .maximumKeyFrameInterval = rate,
            .expectedSourceFrameRate = rate,
            .frameDuration = recording.frameDuration,
            .color = recording.color};
}

PixelBufferPtr pictureOf(const Recording& recording, int index) {
    auto picture = recording.isBusy
                       ? makeBusyPicture(recording.width, recording.height, index)
                       : makePatternPicture(recording.pictureFormat, recording.width, recording.height, index);
    picture->color() = recording.pictureColor;
    return picture;
}

// Writes the movie into the folder and returns its path.
std::filesystem::path record(const TemporaryFolder& folder, const Recording& recording) {
    const bool isQuickTime = recording.fileType == quickTime;
    const auto path = folder / (isQuickTime ? "movie.mov" : "movie.mp4");
    std::filesystem::remove(path);
    const auto timescale = recording.frameDuration.timescale;
    AssetWriter writer(URL::fromFilePath(path), recording.fileType);
    writer.setMovieTimeScale(timescale);
    if (isQuickTime) {
        writer.setInitialMovieFragmentInterval({600, 600});
        writer.setMovieFragmentInterval({6000, 600});
    }
    auto* input =
        writer.addVideoInput(settingsOf(recording), recording.pictureFormat, timescale, recording.plannedFrameCount);
    EXPECT_TRUE(input && writer.startWriting());
    if (!input || writer.status() != Status::writing)
        return path;
    writer.startSession({0, timescale});
    for (int i = 0; i < recording.frameCount; ++i)
        EXPECT_TRUE(input->append(pictureOf(recording, i), {i * recording.frameDuration.value, timescale}));
    input->markAsFinished();
    EXPECT_TRUE(writer.finishWriting()) << (writer.error() ? writer.error()->what() : "no error");
    EXPECT_EQ(writer.status(), Status::completed);
    return path;
}

json videoStream(const std::filesystem::path& movie, const std::vector<std::string>& options = {}) {
    return ffprobeJSON(movie, options).at("streams").at(0);
}

const std::vector<std::string> sampleDescription{"moov", "trak", "mdia", "minf", "stbl", "stsd"};

struct TimingCase {
    const char* name;
    Recording recording;
    const char* frameRate;
};

class Timing : public testing::TestWithParam<TimingCase> {};

TEST_P(Timing, IsExactToTheUnitOfTheClock) {
    const TemporaryFolder folder;
    const auto& recording = GetParam().recording;
    const auto movie = record(folder, recording);
    const auto stream = videoStream(movie);
    const auto [duration, timescale] = recording.frameDuration;

    EXPECT_EQ(stream["codec_tag_string"], recording.codec.text());
    EXPECT_EQ(stream["width"], recording.width);
    EXPECT_EQ(stream["height"], recording.height);
    EXPECT_EQ(stream["time_base"], std::format("1/{}", timescale));
    EXPECT_EQ(stream["start_pts"], 0);
    EXPECT_EQ(stream["start_time"], "0.000000");
    EXPECT_EQ(stream["duration_ts"], recording.frameCount * duration);
    EXPECT_EQ(stream["nb_frames"], std::to_string(recording.frameCount));
    EXPECT_EQ(stream["r_frame_rate"], GetParam().frameRate);
    EXPECT_EQ(stream["avg_frame_rate"], GetParam().frameRate);

    std::vector<std::int64_t> times, expected;
    const auto frames = ffprobeJSON(movie, {"-show_frames"}).at("frames");
    for (const auto& frame : frames)
        times.push_back(frame["pts"]);
    for (int i = 0; i < recording.frameCount; ++i)
        expected.push_back(i * duration);
    EXPECT_EQ(times, expected);

    // The movie's clock and length, version 0: creation, modification, timescale, duration.
    const auto mvhd = boxPayload(movie, {"moov", "mvhd"});
    EXPECT_EQ(bigEndian(mvhd, 12, 4), std::uint64_t(timescale));
    EXPECT_EQ(bigEndian(mvhd, 16, 4), std::uint64_t(recording.frameCount * duration));
}

INSTANTIATE_TEST_SUITE_P(
    Rates, Timing,
    testing::Values(TimingCase{"H264At24", {"avc1", nv12, mp4, 50, {1, 24}}, "24/1"},
                    TimingCase{"H264At2997", {"avc1", nv12, mp4, 70}, "30000/1001"},
                    TimingCase{"H264At5994InQuickTime", {"avc1", nv12, quickTime, 130, {1001, 60000}}, "60000/1001"},
                    TimingCase{"HEVCAt5994", {"hvc1", nv12, mp4, 70, {1001, 60000}}, "60000/1001"},
                    TimingCase{"HEVCAt25InQuickTime", {"hvc1", nv12, quickTime, 60, {1, 25}}, "25/1"},
                    TimingCase{"ProResAt2997", {"apcn", tenBit422, quickTime, 70}, "30000/1001"},
                    TimingCase{"ProResAt24", {"ap4h", pixelFormat::bgra, quickTime, 50, {1, 24}}, "24/1"},
                    TimingCase{"OnePicture", {"avc1", nv12, mp4, 1}, "30000/1001"}),
    [](const auto& test) { return test.param.name; });

TEST(AssetWriter, TakesTheLastPicturesLengthFromTheOneBeforeWhenNoneIsTold) {
    const TemporaryFolder folder;
    AssetWriter writer(URL::fromFilePath(folder / "movie.mp4"), MovieFileType::mp4);
    auto settings = settingsOf({});
    settings.frameDuration = MediaTime::invalid();
    auto* input = writer.addVideoInput(settings, pixelFormat::yCbCr420VideoRange, 30000, 0);
    ASSERT_TRUE(input && writer.startWriting());
    // The session begins at 10 s: what is before is left out, and 10 s become 0.
    writer.startSession({10, 1});
    for (int i = -2; i < 40; ++i)
        ASSERT_TRUE(input->append(pictureOf({}, i + 2), {300000 + i * 1001, 30000}));
    ASSERT_TRUE(writer.finishWriting());
    const auto stream = videoStream(folder / "movie.mp4");
    EXPECT_EQ(stream["start_pts"], 0);
    EXPECT_EQ(stream["duration_ts"], 40 * 1001);
    EXPECT_EQ(stream["nb_frames"], "40");
}

struct PictureCase {
    const char* name;
    Recording recording;
    const char* decodedFormat;
    double leastSignalToNoise; // dB, a little below what the encoders gave
};

class Pictures : public testing::TestWithParam<PictureCase> {};

TEST_P(Pictures, ComeBackAsTheyWere) {
    const TemporaryFolder folder;
    auto recording = GetParam().recording;
    recording.width = 322; // a size that fills no block of any codec
    recording.height = 158;
    const bool isWide = layoutOf(recording.pictureFormat)->bytesPerSample == 2;
    const auto decoded = decodeRaw(record(folder, recording), GetParam().decodedFormat);
    std::string original;
    for (int i = 0; i < recording.frameCount; ++i)
        original += packedSamples(*pictureOf(recording, i));
    EXPECT_GE(signalToNoise(decoded, original, isWide ? 2 : 1, isWide ? 65535 : 255), GetParam().leastSignalToNoise);
}

INSTANTIATE_TEST_SUITE_P(Codecs, Pictures,
                         testing::Values(PictureCase{"H264", {"avc1"}, "nv12", 40},
                                         PictureCase{"HEVC", {"hvc1"}, "nv12", 40},
                                         PictureCase{"HEVCTenBit", {"hvc1", tenBit420}, "p010le", 40},
                                         PictureCase{"ProResProxy", {"apco", tenBit422, quickTime}, "p210le", 40},
                                         PictureCase{"ProResLT", {"apcs", tenBit422, quickTime}, "p210le", 40},
                                         PictureCase{"ProRes422", {"apcn", tenBit422, quickTime}, "p210le", 40},
                                         PictureCase{"ProRes422HQ", {"apch", tenBit422, quickTime}, "p210le", 40}),
                         [](const auto& test) { return test.param.name; });

struct AlphaCase {
    const char* name;
    FourCC codec, format;
    ColorAttachments color;
    double red, blue; // shares of Y' (Rec. ITU-R BT.709, BT.2020)
};

class AlphaPictures : public testing::TestWithParam<AlphaCase> {};

// Against Y'CbCr worked out here, in double: close, unbiased, and with alpha to the last bit of the picture's own
// depth.
TEST_P(AlphaPictures, ComeBackInTheirMatrixWithExactAlpha) {
    const TemporaryFolder folder;
    const Recording recording{GetParam().codec, GetParam().format, quickTime, 2, ntsc, GetParam().color};
    const auto decoded = decodeRaw(record(folder, recording), "yuva444p12le");
    const auto picture = pictureOf(recording, 0);
    const auto pixels = std::size_t(recording.width) * std::size_t(recording.height);
    ASSERT_EQ(decoded.size(), 2 * pixels * 8);
    const auto* samples = reinterpret_cast<const std::uint16_t*>(decoded.data());
    const bool isHalf = GetParam().format == pixelFormat::rgbaHalf;
    const double kr = GetParam().red, kb = GetParam().blue;

    double bias[3] = {}, squares[3] = {}, largestAlphaError = 0;
    for (int y = 0; y < recording.height; ++y)
        for (int x = 0; x < recording.width; ++x) {
            const auto* row = picture->plane(0).data + std::size_t(y) * picture->plane(0).rowBytes;
            const auto component = [&](int i) {
                if (isHalf)
                    return double(std::bit_cast<_Float16>(reinterpret_cast<const std::uint16_t*>(row)[4 * x + i]));
                return double(row[4 * x + (i == 3 ? 3 : 2 - i)]) / 255;
            };
            const double r = component(0), b = component(2);
            const double luma = kr * r + kb * b + (1 - kr - kb) * component(1);
            const double expected[] = {64 + 876 * luma, 512 + 896 * (b - luma) / (2 * (1 - kb)),
                                       512 + 896 * (r - luma) / (2 * (1 - kr))};
            const auto at = std::size_t(y * recording.width + x);
            for (std::size_t i = 0; i < 3; ++i) {
                const double error = samples[i * pixels + at] / 4.0 - expected[i];
                bias[i] += error / double(pixels);
                squares[i] += error * error / double(pixels);
            }
            largestAlphaError = std::max(largestAlphaError, std::abs(samples[3 * pixels + at] / 4095.0 - component(3)));
        }
    for (int i = 0; i < 3; ++i) {
        EXPECT_LT(std::abs(bias[i]), 0.05) << "component " << i;
        EXPECT_LT(std::sqrt(squares[i]), 2.0) << "component " << i;
    }
    EXPECT_LT(largestAlphaError, isHalf ? 0.75 / 1023 : 0.5 / 255);

    // The sample entry says that there is alpha: a depth of 32.
    EXPECT_EQ(bigEndian(boxPayload(folder / "movie.mov", sampleDescription), 8 + 8 + 74, 2), 32u);
}

INSTANTIATE_TEST_SUITE_P(
    Codecs, AlphaPictures,
    testing::Values(
        AlphaCase{"ProRes4444FromBytes", "ap4h", pixelFormat::bgra, {1, 1, 1, {}, {}}, 0.2126, 0.0722},
        AlphaCase{"ProRes4444FromHalves", "ap4h", pixelFormat::rgbaHalf, {9, 16, 9, {}, {}}, 0.2627, 0.0593},
        AlphaCase{"ProRes4444XQFromHalves", "ap4x", pixelFormat::rgbaHalf, {9, 18, 9, {}, {}}, 0.2627, 0.0593},
        AlphaCase{"ProRes4444XQFromBytes", "ap4x", pixelFormat::bgra, {1, 1, 1, {}, {}}, 0.2126, 0.0722}),
    [](const auto& test) { return test.param.name; });

// Green, blue, red, white point, 1000 and 0.005 cd/m²; 1000 and 400 cd/m².
const std::vector<std::uint8_t> mastering{0x21, 0x34, 0x9b, 0xaa, 0x19, 0x96, 0x08, 0xfc, 0x8a, 0x48, 0x39, 0x08,
                                          0x3d, 0x13, 0x40, 0x42, 0x00, 0x98, 0x96, 0x80, 0x00, 0x00, 0x00, 0x32};
const std::vector<std::uint8_t> lightLevel{0x03, 0xe8, 0x01, 0x90};

struct ColorNames {
    const char *primaries, *transfer, *matrix; // FFmpeg's
};

struct ColorCase {
    const char* name;
    Recording recording;
    ColorNames expected;
    bool hasHDRPayloads = false;
};

class Colors : public testing::TestWithParam<ColorCase> {};

void expectColors(const json& stream, const ColorNames& expected) {
    EXPECT_EQ(stream["color_primaries"], expected.primaries);
    EXPECT_EQ(stream["color_transfer"], expected.transfer);
    EXPECT_EQ(stream["color_space"], expected.matrix);
}

void expectPayloads(const json& sideData) {
    std::vector<std::string> types;
    for (const auto& entry : sideData) {
        types.push_back(entry["side_data_type"]);
        if (types.back() == "Mastering display metadata") {
            EXPECT_EQ(entry["green_x"], "8500/50000");
            EXPECT_EQ(entry["red_y"], "14600/50000");
            EXPECT_EQ(entry["white_point_x"], "15635/50000");
            EXPECT_EQ(entry["max_luminance"], "10000000/10000");
            EXPECT_EQ(entry["min_luminance"], "50/10000");
        } else if (types.back() == "Content light level metadata") {
            EXPECT_EQ(entry["max_content"], 1000);
            EXPECT_EQ(entry["max_average"], 400);
        }
    }
    EXPECT_THAT(types, IsSupersetOf({"Mastering display metadata", "Content light level metadata"}));
}

TEST_P(Colors, StandInTheContainerAndInTheStream) {
    const TemporaryFolder folder;
    const auto& recording = GetParam().recording;
    const auto movie = record(folder, recording);
    const auto colr = boxPayload(movie, sampleDescription);
    const std::string entry(colr.begin(), colr.end());
    EXPECT_NE(entry.find(recording.fileType == quickTime ? "colrnclc" : "colrnclx"), std::string::npos);
    expectColors(videoStream(movie), GetParam().expected);
    // A full range flag would follow the code points in nclx; the stream's own is read here.
    EXPECT_EQ(videoStream(movie).value("color_range", "tv"), "tv");
    if (GetParam().hasHDRPayloads)
        expectPayloads(videoStream(movie).at("side_data_list"));

    // The stream by itself, out of its container.
    const bool isHEVC = recording.codec == FourCC("hvc1");
    const auto bare = folder / (isHEVC ? "stream.hevc" : isProRes(recording) ? "stream.nut" : "stream.h264");
    ASSERT_EQ(runProgram({"ffmpeg", "-v", "error", "-i", movie.string(), "-c", "copy", bare.string()}).exitCode, 0);
    const auto frame = ffprobeJSON(bare, {"-show_frames", "-read_intervals", "%+#1"}).at("frames").at(0);
    expectColors(frame, GetParam().expected);
    if (GetParam().hasHDRPayloads && isHEVC)
        expectPayloads(frame.at("side_data_list"));
}

const ColorAttachments sdr{1, 1, 1, {}, {}}, pq{9, 16, 9, mastering, lightLevel}, plainPQ{9, 16, 9, {}, {}},
    hlg{9, 18, 9, {}, {}};
constexpr ColorNames saysSDR{"bt709", "bt709", "bt709"}, saysPQ{"bt2020", "smpte2084", "bt2020nc"},
    saysHLG{"bt2020", "arib-std-b67", "bt2020nc"};

INSTANTIATE_TEST_SUITE_P(
    Cases, Colors,
    testing::Values(ColorCase("SDRInH264", {"avc1", nv12, mp4, 3, ntsc, sdr}, saysSDR),
                    ColorCase("SDRInProRes", {"apch", tenBit422, quickTime, 3, ntsc, sdr}, saysSDR),
                    ColorCase("PQInHEVC", {"hvc1", tenBit420, mp4, 3, ntsc, pq}, saysPQ, true),
                    ColorCase("PQInQuickTimeHEVCFromTheFirstPicture",
                              {"hvc1", tenBit420, quickTime, 3, ntsc, plainPQ, pq}, saysPQ, true),
                    ColorCase("PQInProRes", {"ap4h", pixelFormat::rgbaHalf, quickTime, 3, ntsc, pq}, saysPQ, true),
                    ColorCase("HLGInHEVC", {"hvc1", tenBit420, mp4, 3, ntsc, hlg}, saysHLG),
                    ColorCase("HLGInProRes", {"apcn", tenBit422, quickTime, 3, ntsc, hlg}, saysHLG)),
    [](const auto& test) { return test.param.name; });

TEST(MovieLayout, HasTheHeaderInFrontInMP4AndNoFragmentsInEither) {
    const TemporaryFolder folder;
    EXPECT_THAT(topLevelBoxes(record(folder, {.frameCount = 100, .plannedFrameCount = 100})),
                ElementsAre("ftyp", "moov", "free", "mdat"));

    const auto movie = record(folder, {.fileType = quickTime, .frameCount = 100});
    EXPECT_THAT(topLevelBoxes(movie), ElementsAre("ftyp", "mdat", "moov"));
    EXPECT_EQ(countInMovieHeader(movie, "mvex"), 0);
    // version, flags, count 1, then the duration of the edit and its start in the media
    const auto elst = boxPayload(movie, {"moov", "trak", "edts", "elst"});
    EXPECT_EQ(bigEndian(elst, 4, 4), 1u);
    EXPECT_EQ(bigEndian(elst, 8, 4), 100u * 1001);
}

TEST(MovieLayout, PutsTheHeaderBehindTheMediaWhenFarMorePicturesComeThanPlanned) {
    const TemporaryFolder folder;
    // More sample table entries than the spare room takes.
    const int frameCount = 5000;
    const auto movie = record(
        folder, {.frameCount = frameCount, .width = 16, .height = 16, .plannedFrameCount = 1, .bitRate = 100'000});
    EXPECT_THAT(topLevelBoxes(movie), ElementsAre("ftyp", "free", "mdat", "moov"));
    EXPECT_EQ(videoStream(movie, {"-count_frames"})["nb_read_frames"], std::to_string(frameCount));
}

// Each sample is a run of NAL units behind 4-byte lengths.
std::vector<int> nalUnitTypes(const std::vector<std::uint8_t>& file, const json& packet, bool isHEVC) {
    std::vector<int> types;
    auto at = std::size_t(std::stoull(packet["pos"].get<std::string>()));
    const auto end = at + std::size_t(std::stoull(packet["size"].get<std::string>()));
    while (at + 4 < end) {
        types.push_back(isHEVC ? file[at + 4] >> 1 & 0x3f : file[at + 4] & 0x1f);
        at += 4 + bigEndian(file, at, 4);
    }
    return types;
}

class KeyFrames : public testing::TestWithParam<FourCC> {};

TEST_P(KeyFrames, ComeInTimeCloseTheirGroupAndLeaveParameterSetsToTheSampleEntry) {
    const bool isHEVC = GetParam() == FourCC("hvc1");
    const TemporaryFolder folder;
    const auto movie = record(folder, {.codec = GetParam(), .frameCount = 100});
    const auto file = readFile(movie);
    const auto packets = ffprobeJSON(movie, {"-show_packets"}).at("packets");
    int sinceKeyFrame = 0, keyFrameCount = 0, reordered = 0;
    for (const auto& packet : packets) {
        const bool isKeyFrame = packet["flags"].get<std::string>().starts_with("K");
        const auto types = nalUnitTypes(file, packet, isHEVC);
        const auto isIDR = [&](int type) { return isHEVC ? type == 19 || type == 20 : type == 5; };
        EXPECT_EQ(std::ranges::any_of(types, isIDR), isKeyFrame);
        for (int parameterSet : isHEVC ? std::vector{32, 33, 34} : std::vector{7, 8})
            EXPECT_EQ(std::ranges::count(types, parameterSet), 0);
        sinceKeyFrame = isKeyFrame ? 0 : sinceKeyFrame + 1;
        EXPECT_LT(sinceKeyFrame, 30);
        keyFrameCount += isKeyFrame;
        reordered += packet["pts"] != packet["dts"];
    }
    EXPECT_GE(keyFrameCount, 4);
    EXPECT_GT(reordered, 0) << "no picture was reordered: B pictures are off";
}

INSTANTIATE_TEST_SUITE_P(Codecs, KeyFrames, testing::Values(FourCC("avc1"), FourCC("hvc1")));

class BitRate : public testing::TestWithParam<FourCC> {};

TEST_P(BitRate, IsMetWithinATenthOverTenSecondsOfBusyPictures) {
    const TemporaryFolder folder;
    const std::int64_t asked = 1'000'000;
    const auto movie = record(folder, {.codec = GetParam(),
                                       .frameCount = 300,
                                       .width = 320,
                                       .height = 160,
                                       .plannedFrameCount = 300,
                                       .bitRate = asked,
                                       .isBusy = true});
    const double given = std::stod(videoStream(movie)["bit_rate"].get<std::string>());
    EXPECT_NEAR(given / double(asked), 1, 0.1);
}

INSTANTIATE_TEST_SUITE_P(Codecs, BitRate, testing::Values(FourCC("avc1"), FourCC("hvc1")));

} // namespace
} // namespace panoveer::test
