#include "FFmpegBridge/BridgeFixture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cmath>

extern "C" int probeFromC(const char* path, PNVFFmpegVideoInfo* info);

namespace panoveer::test {
namespace {

const int invalidArgument = -EINVAL; // AVERROR of it

// A call with an error buffer, whose length may be too small on purpose.
using Call = int (*)(char* error, int length);

struct Fault {
    const char* what; // is invalid
    Call call;
};

PNVFFmpegVideoInfo info;
PNVFFmpegFrame frame;
PNVFFmpegAudioFrame audioFrame;
double seconds;
std::int32_t count;
std::uint8_t byte;
const char* const path = "/nowhere";

TEST(FFmpegBridge, GivesTheTextOfAFaultyArgumentWhereThereIsRoomForOne) {
    const Fault faults[] = {
        {"probe arguments", [](char* e, int n) { return PNVFFmpegProbe(nullptr, &info, e, n); }},
        {"probe arguments", [](char* e, int n) { return PNVFFmpegProbe(path, nullptr, e, n); }},
        {"keyframe lookup arguments",
         [](char* e, int n) { return PNVFFmpegPreviousKeyframeTime(path, &seconds, e, n, -0.1); }},
        {"keyframe lookup arguments",
         [](char* e, int n) { return PNVFFmpegPreviousKeyframeTime(path, &seconds, e, n, std::nan("")); }},
        {"keyframe lookup arguments",
         [](char* e, int n) { return PNVFFmpegPreviousKeyframeTime(path, nullptr, e, n, 0); }},
        {"open arguments", [](char* e, int n) { return PNVFFmpegOpen(path, 0, 0, 0, nullptr, e, n, 0, 0); }},
        {"seek reader", [](char* e, int n) { return PNVFFmpegSeek(nullptr, e, n, 0); }},
        {"destination buffer",
         [](char* e, int n) { return PNVFFmpegReadFrameIntoBGRA(nullptr, nullptr, 0, &frame, e, n); }},
        {"destination buffer",
         [](char* e, int n) {
             return PNVFFmpegReadFrameAtOrAfterIntoBGRA(nullptr, nullptr, 0, &frame, e, n, nullptr, 0);
         }},
        {"read arguments", [](char* e, int n) { return PNVFFmpegReadFrameIntoBGRA(nullptr, &byte, 4, &frame, e, n); }},
        {"NV12 destination buffer",
         [](char* e, int n) { return PNVFFmpegReadFrameIntoNV12(nullptr, &byte, 1, nullptr, 1, &frame, e, n); }},
        {"NV12 destination buffer",
         [](char* e, int n) {
             return PNVFFmpegReadFrameAtOrAfterIntoNV12(nullptr, nullptr, 1, &byte, 1, &frame, e, n, nullptr, 0);
         }},
        {"read arguments",
         [](char* e, int n) { return PNVFFmpegReadFramePreferVideoToolbox(nullptr, nullptr, &frame, e, n); }},
        {"audio probe arguments",
         [](char* e, int n) { return PNVFFmpegProbeAudioStreams(path, nullptr, 1, &count, e, n); }},
        {"audio probe arguments",
         [](char* e, int n) { return PNVFFmpegProbeAudioStreams(path, nullptr, 0, nullptr, e, n); }},
        {"audio open arguments",
         [](char* e, int n) { return PNVFFmpegOpenAudioStream(path, 0, 0, nullptr, e, n, 0, 0); }},
        {"audio read arguments", [](char* e, int n) { return PNVFFmpegReadAudio(nullptr, &audioFrame, e, n); }},
    };
    for (const auto& [what, call] : faults) {
        const auto text = std::string("Invalid FFmpeg ") + what;
        SCOPED_TRACE(text);
        char buffer[1024] = {};
        EXPECT_EQ(call(buffer, sizeof buffer), invalidArgument);
        EXPECT_EQ(buffer, text);
        char small[8] = "xxxxxxx";
        EXPECT_EQ(call(small, 5), invalidArgument);
        EXPECT_EQ(small, text.substr(0, 4));
        char untouched[8] = "same";
        EXPECT_EQ(call(untouched, 0), invalidArgument);
        EXPECT_STREQ(untouched, "same");
        EXPECT_EQ(call(nullptr, 1024), invalidArgument);
    }
}

TEST(FFmpegBridge, TakesNullReadersAndTokensAndIsCallableFromC) {
    EXPECT_EQ(PNVFFmpegOutputWidth(nullptr), 0);
    EXPECT_EQ(PNVFFmpegOutputHeight(nullptr), 0);
    EXPECT_EQ(PNVFFmpegHasAlphaChannel(nullptr), 0);
    EXPECT_EQ(PNVFFmpegCanUseVideoToolboxDecode(nullptr), 0);
    EXPECT_EQ(PNVFFmpegUsesVideoToolboxDecode(nullptr), 0);
    EXPECT_EQ(PNVFFmpegAudioReaderChannelCount(nullptr), 0);
    PNVFFmpegCancellationTokenCancel(nullptr);
    PNVFFmpegCancellationTokenClose(nullptr);
    PNVFFmpegClose(nullptr);
    PNVFFmpegCloseAudio(nullptr);
    EXPECT_EQ(probeFromC("/nowhere", nullptr), invalidArgument);
}

TEST(FFmpegBridge, RefusesDestinationsThatAreTooSmallAndReadsOnAfterwards) {
    const TemporaryFolder folder;
    BridgeReader reader(makeMovie(folder, {.frameCount = 4}));
    std::vector<std::uint8_t> memory(160 * 96 * 4);
    char error[1024] = {};
    EXPECT_EQ(PNVFFmpegReadFrameIntoBGRA(reader.get(), memory.data(), 160 * 4 - 1, &frame, error, sizeof error),
              invalidArgument);
    EXPECT_STREQ(error, "Destination row is too small for decoded frame");
    EXPECT_EQ(
        PNVFFmpegReadFrameIntoNV12(reader.get(), memory.data(), 159, memory.data(), 160, &frame, error, sizeof error),
        invalidArgument);
    EXPECT_STREQ(error, "Destination row is too small for decoded frame");
    EXPECT_EQ(
        PNVFFmpegReadFrameIntoNV12(reader.get(), memory.data(), 160, memory.data(), 159, &frame, error, sizeof error),
        invalidArgument);
    EXPECT_STREQ(error, "Invalid NV12 chroma destination buffer");
    EXPECT_EQ(reader.next().index(), 3);
}

// Every way in, with the text for a file that cannot be opened.
struct Entry {
    const char* openingText;
    int (*call)(const char* file, char* error, int length);
};

const Entry entries[] = {
    {"Could not open media: ", [](const char* file, char* e, int n) { return PNVFFmpegProbe(file, &info, e, n); }},
    {"Could not open media: ",
     [](const char* file, char* e, int n) { return PNVFFmpegPreviousKeyframeTime(file, &seconds, e, n, 1); }},
    {"Could not open media: ",
     [](const char* file, char* e, int n) {
         PNVFFmpegReader* reader = nullptr;
         const int result = PNVFFmpegOpen(file, 0, 0, 0, &reader, e, n, 0, 0);
         EXPECT_EQ(reader, nullptr);
         return result;
     }},
    {"Could not open media: ",
     [](const char* file, char* e, int n) { return PNVFFmpegProbeAudioStreams(file, nullptr, 0, &count, e, n); }},
    {"Could not open audio media: ",
     [](const char* file, char* e, int n) {
         PNVFFmpegAudioReader* reader = nullptr;
         const int result = PNVFFmpegOpenAudioStream(file, -1, 0, &reader, e, n, 0, 0);
         EXPECT_EQ(reader, nullptr);
         return result;
     }},
};

TEST(FFmpegBridge, SaysWhatCouldNotBeOpened) {
    const TemporaryFolder folder;
    const auto movie = readFile(makeMovie(folder, {.frameCount = 10, .audio = {{}}}));
    writeFile(folder / "empty.mov", {});
    writeText(folder / "letter.mp4", "This is a letter and no movie.\n");
    // The index of a movie lies behind its media, so that half a movie has none.
    writeFile(folder / "half.mov", std::span(movie).first(movie.size() / 2));
    // Nobody will ever write into this pipe.
    ASSERT_EQ(mkfifo((folder / "pipe.mov").c_str(), 0600), 0);
    for (const auto& [openingText, call] : entries)
        for (const char* name : {"missing.mov", "empty.mov", "letter.mp4", "half.mov", "pipe.mov", "."}) {
            char error[1024] = {};
            EXPECT_LT(call((folder / name).c_str(), error, sizeof error), 0) << name;
            EXPECT_THAT(std::string(error), testing::StartsWith(openingText)) << name;
        }
}

TEST(FFmpegBridge, NeverReachesOutToTheNetwork) {
    const int listener = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK, 0);
    sockaddr_in address{};
    socklen_t length = sizeof address;
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    ASSERT_EQ(bind(listener, reinterpret_cast<sockaddr*>(&address), length), 0);
    ASSERT_EQ(listen(listener, 1), 0);
    ASSERT_EQ(getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length), 0);

    const TemporaryFolder folder;
    const auto playlist =
        "#EXTM3U\n#EXT-X-TARGETDURATION:1\n#EXTINF:1,\nhttp://127.0.0.1:" + std::to_string(ntohs(address.sin_port)) +
        "/a.ts\n#EXT-X-ENDLIST\n";
    writeText(folder / "list.m3u8", playlist);
    for (const auto& entry : entries) {
        char error[1024] = {};
        EXPECT_LT(entry.call((folder / "list.m3u8").c_str(), error, sizeof error), 0);
        EXPECT_LT(accept(listener, nullptr, nullptr), 0) << "somebody called";
    }
    close(listener);
}

TEST(FFmpegBridge, TellsAMissingStreamFromAMissingFile) {
    const TemporaryFolder folder;
    const auto silent = makeMovie(folder, {.name = "silent.mov", .frameCount = 2});
    const auto blind = makeMovie(folder, {.name = "blind.mov", .frameCount = 0, .audio = {{}}, .audioSeconds = 0.1});
    char error[1024] = {};
    EXPECT_LT(PNVFFmpegProbe(blind.c_str(), &info, error, sizeof error), 0);
    EXPECT_THAT(error, testing::StartsWith("Could not find video stream: "));
    PNVFFmpegAudioReader* audio = nullptr;
    EXPECT_LT(PNVFFmpegOpenAudioStream(silent.c_str(), -1, 0, &audio, error, sizeof error, 0, 0), 0);
    EXPECT_THAT(error, testing::StartsWith("Could not find audio stream: "));
    for (int index : {0, 7}) {
        EXPECT_LT(PNVFFmpegOpenAudioStream(silent.c_str(), index, 0, &audio, error, sizeof error, 0, 0), 0);
        EXPECT_STREQ(error, "Requested stream is not an audio stream");
    }
}

} // namespace
} // namespace panoveer::test
