#include "Panoveer/Services/Export/VRExportError.h"
#include "Panoveer/Services/Intake/FFmpegFrameReader.h"
#include "Panoveer/Services/Live/SyphonTranscodeService.h"
#include "Support/MediaFactory.h"
#include "Support/Thrown.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <fstream>

namespace panoveer::test {
namespace {

namespace fs = std::filesystem;

void ignoreProgress(double, const std::string&, std::int64_t) {}

TEST(SyphonTranscodeService, NamesTheCopyAfterItsSource) {
    const TemporaryFolder folder;
    for (const char* name : {"clip Syphon.mp4", "clip Syphon 2.mp4", "clip Syphon 3.mp4"}) {
        const auto destination = SyphonTranscodeService::defaultDestination(URL::fromFilePath(folder / "clip.webm"));
        EXPECT_EQ(destination.path(), folder / name);
        std::ofstream(destination.path()) << "taken";
    }
}

TEST(SyphonTranscodeService, BoundsBitRateAndKeyFrameInterval) {
    struct Row {
        int width, height;
        double rate;
        std::int64_t bitRate;
        int keyFrameInterval;
    };
    for (const auto& row : {Row{1920, 1080, 30, 8'000'000, 60}, Row{3840, 1920, 10, 14'155'776, 30},
                            Row{3840, 1920, 29.97, 17'677'025, 60}, Row{8192, 4096, 120, 60'000'000, 120}}) {
        const auto settings = SyphonTranscodeService::videoSettings(row.width, row.height, row.rate);
        EXPECT_EQ(settings.averageBitRate, row.bitRate) << row.width << " at " << row.rate;
        EXPECT_EQ(settings.maximumKeyFrameInterval, row.keyFrameInterval) << row.width << " at " << row.rate;
    }
}

// Odd sides, sound, uneven times and a full-range BT.601 source: the copy has none of that.
TEST(SyphonTranscodeService, CopiesEveryPictureAtAConstantRate) {
    const TemporaryFolder folder;
    const auto source = makeMovie(folder, {.name = "clip.mkv",
                                           .width = 161,
                                           .height = 97,
                                           .frameRate = "30000/1001",
                                           .frameCount = 45,
                                           .codec = "ffv1",
                                           .pixelFormat = "yuv444p",
                                           .matrix = "smpte170m",
                                           .range = "pc",
                                           .audio = {{}},
                                           .outputOptions = {"-vf", "setpts=PTS+mod(N\\,3)*0.2/(30*TB)"}});
    std::vector<double> fractions;
    const auto destination =
        SyphonTranscodeService::transcode(URL::fromFilePath(source), URL::fromFilePath(folder / "copies" / "copy.mp4"),
                                          [&](double fraction, const std::string& text, std::int64_t) {
                                              fractions.push_back(fraction);
                                              EXPECT_FALSE(text.empty());
                                          });
    ASSERT_EQ(fractions.size(), 1 + 45U / 8 + 1);
    EXPECT_TRUE(std::ranges::is_sorted(fractions));
    EXPECT_LE(fractions[fractions.size() - 2], 0.999);
    EXPECT_EQ(fractions.back(), 1);
    EXPECT_EQ(namesIn(folder / "copies"), std::set<std::string>{"copy.mp4"});

    const auto probe = ffprobeJSON(destination.path());
    ASSERT_EQ(probe["streams"].size(), 1U);
    const auto& stream = probe["streams"][0];
    EXPECT_EQ(stream["codec_tag_string"], "hvc1");
    EXPECT_EQ(stream["width"], 162);
    EXPECT_EQ(stream["height"], 98);
    EXPECT_EQ(stream["r_frame_rate"], "30000/1001");
    EXPECT_EQ(stream["avg_frame_rate"], "30000/1001");
    for (const char* key : {"color_space", "color_transfer", "color_primaries"})
        EXPECT_EQ(stream[key], "bt709") << key;
    EXPECT_EQ(stream["color_range"], "tv");
    FFmpegFrameReader reader(destination);
    int index = 0;
    while (const auto frame = reader.copyFrame())
        EXPECT_EQ(frameIndex(*frame->pixelBuffer), index++);
    EXPECT_EQ(index, 45);
}

TEST(SyphonTranscodeService, LeavesNothingBehindItsFailures) {
    const TemporaryFolder folder;
    const auto movie = makeMovie(folder, {.name = "clip.mkv", .frameCount = 60});
    const auto sound = makeMovie(folder, {.name = "sound.wav", .frameCount = 0, .audio = {{}}, .audioSeconds = 1});
    const auto tiny = makeMovie(folder, {.name = "tiny.mkv", .width = 32, .height = 32, .frameCount = 2});
    std::ofstream(folder / "letter.mp4") << "This is a letter and no movie.\n";
    const auto copy = folder / "copy.mp4";
    const auto names = namesIn(folder.path());
    const auto transcode = [&](const fs::path& source, const fs::path& destination, std::stop_token stop = {}) {
        SyphonTranscodeService::transcode(URL::fromFilePath(source), URL::fromFilePath(destination), ignoreProgress,
                                          std::move(stop));
    };
    EXPECT_THROW(transcode(sound, copy), FFmpegReaderError);
    EXPECT_THROW(transcode(folder / "letter.mp4", copy), FFmpegReaderError);
    EXPECT_THROW(transcode(tiny, copy), VRExportError);
    fs::create_hard_link(movie, folder / "linked.mp4");
    EXPECT_THROW(transcode(movie, folder / "linked.mp4"), Error);
    fs::remove(folder / "linked.mp4");
    EXPECT_EQ(namesIn(folder.path()), names);

    std::ofstream(copy) << "an older copy";
    std::stop_source stop;
    std::int64_t frames = 0;
    const auto cancelAtTheSecond = [&](double, const std::string&, std::int64_t written) {
        frames = written;
        if (written >= 16)
            stop.request_stop();
    };
    EXPECT_THROW(SyphonTranscodeService::transcode(URL::fromFilePath(movie), URL::fromFilePath(copy), cancelAtTheSecond,
                                                   stop.get_token()),
                 Cancelled);
    EXPECT_EQ(frames, 16);
    EXPECT_EQ(namesIn(folder.path()), names);
}

TEST(SyphonTranscodeService, WaitsForRoomUntilTheWriterFailsOrItIsStopped) {
    using Status = AssetWriter::Status;
    int polls = 0;
    const ExportWaitClock clock{.uptimeSeconds = [] { return 0.0; }, .sleep = [&](auto) { ++polls; }};
    std::stop_source stop;
    const auto wait = [&](int pollsUntilReady, int pollsUntilFailed, std::optional<Error> error) {
        polls = 0;
        SyphonTranscodeService::waitUntilReady(
            [&] { return polls >= pollsUntilReady; },
            {.status = [&] { return polls >= pollsUntilFailed ? Status::failed : Status::writing; },
             .error = [&] { return error; }},
            stop.get_token(), clock);
    };
    wait(200'000, 300'000, {});
    EXPECT_EQ(polls, 200'000);
    EXPECT_EQ(thrown<VRExportError>([&] { wait(9, 3, {}); }).value().which(), VRExportError::Case::writerFailed);
    const Error full("full", std::string(posixErrorDomain), ENOSPC);
    EXPECT_EQ(thrown<Error>([&] { wait(9, 3, full); }).value().code(), ENOSPC);
    stop.request_stop();
    EXPECT_THROW(wait(9, 12, {}), Cancelled);
}

} // namespace
} // namespace panoveer::test
