#include "Panoveer/Services/Intake/CanonRawMetadataReader.h"
#include "Support/MediaFactory.h"
#include "Support/Thrown.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

namespace panoveer {
namespace {

using Case = CanonRawMetadataError::Case;
using Bytes = std::vector<std::uint8_t>;

Bytes operator+(Bytes left, const Bytes& right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

Bytes number(std::uint64_t value, int byteCount) {
    Bytes bytes;
    for (int i = byteCount - 1; i >= 0; --i)
        bytes.push_back(std::uint8_t(value >> (8 * i)));
    return bytes;
}
Bytes u32(std::uint64_t value) { return number(value, 4); }
Bytes u64(std::uint64_t value) { return number(value, 8); }
Bytes text(std::string_view characters) { return {characters.begin(), characters.end()}; }
Bytes zeros(std::size_t count) { return Bytes(count); }

Bytes box(std::string_view type, const Bytes& payload) { return u32(8 + payload.size()) + text(type) + payload; }
Bytes longBox(std::string_view type, const Bytes& payload) {
    return u32(1) + text(type) + u64(16 + payload.size()) + payload;
}
Bytes openBox(std::string_view type, const Bytes& payload) { return u32(0) + text(type) + payload; }

// mvhd and mdhd begin alike.
Bytes times(std::string_view type, std::uint32_t timescale, std::uint64_t duration, int version = 0) {
    return box(type, version == 1 ? u32(1u << 24) + zeros(16) + u32(timescale) + u64(duration) + zeros(4)
                                  : u32(0) + zeros(8) + u32(timescale) + u32(duration) + zeros(4));
}

Bytes trackHeader(std::uint64_t duration, double width, double height, int version = 0) {
    const auto size = u32(std::uint32_t(width * 65536)) + u32(std::uint32_t(height * 65536));
    return box("tkhd", version == 1 ? u32(1u << 24) + zeros(24) + u64(duration) + zeros(52) + size
                                    : u32(0) + zeros(16) + u32(duration) + zeros(52) + size);
}

Bytes handler(std::string_view type) { return box("hdlr", u32(0) + zeros(4) + text(type) + zeros(13)); }

Bytes sampleTimes(const std::vector<std::pair<std::uint32_t, std::uint32_t>>& entries) {
    Bytes payload = u32(0) + u32(entries.size());
    for (const auto& [count, delta] : entries)
        payload = payload + u32(count) + u32(delta);
    return box("stts", payload);
}

Bytes sampleEntry(std::string_view type) { return box("stsd", u32(0) + u32(1) + box(type, zeros(78))); }

Bytes media(const Bytes& head, const Bytes& tables) { return box("mdia", head + box("minf", box("stbl", tables))); }

const Bytes fileType = box("ftyp", text("crx ") + u32(1) + text("crx isom"));
const Bytes videoHandler = handler("vide");
const Bytes canonSize = trackHeader(0, 5952, 3140);
const Bytes canonSamples = sampleEntry("CRAW") + sampleTimes({{300, 1001}});

CanonRawVideoMetadata read(const Bytes& content) {
    const test::TemporaryFolder folder;
    test::writeFile(folder / "A001.CRM", content);
    return CanonRawMetadataReader::read(URL::fromFilePath(folder / "A001.CRM"));
}

struct ReadableMovie {
    const char* name;
    Bytes content;
    CanonRawVideoMetadata expected;
};

class ReadableCanonRawMovies : public testing::TestWithParam<ReadableMovie> {};

TEST_P(ReadableCanonRawMovies, GiveTheirSizeDurationAndRate) {
    const auto found = read(GetParam().content);
    EXPECT_EQ(found.width, GetParam().expected.width);
    EXPECT_EQ(found.height, GetParam().expected.height);
    EXPECT_NEAR(found.duration, GetParam().expected.duration, 1e-9);
    EXPECT_NEAR(found.frameRate, GetParam().expected.frameRate, 1e-9);
}

Bytes movieOf(const Bytes& track, const Bytes& movieHeader = {}) {
    return box("moov", movieHeader + box("trak", track));
}

constexpr std::uint32_t unknown = 0xffffffff;
const auto twoSeconds = times("mvhd", 600, 1200);

INSTANTIATE_TEST_SUITE_P(
    CanonRaw, ReadableCanonRawMovies,
    testing::Values(
        ReadableMovie("the media header decides the duration",
                      fileType +
                          movieOf(trackHeader(88000, 5952, 3140) +
                                      media(times("mdhd", 30000, 300300) + videoHandler, canonSamples),
                                  times("mvhd", 1000, 99000)) +
                          openBox("mdat", zeros(4096)),
                      {5952, 3140, 10.01, 30000.0 / 1001}),
        ReadableMovie("64-bit layouts and a 64-bit media box in front",
                      fileType + longBox("mdat", zeros(100)) +
                          longBox("moov", times("mvhd", 1000, 5000, 1) +
                                              box("trak", trackHeader(0, 4096.5, 2160.25, 1) +
                                                              media(times("mdhd", 24000, 48000, 1) + videoHandler,
                                                                    sampleTimes({{40, 1000}, {8, 1000}})))),
                      {4096.5, 2160.25, 2, 24}),
        ReadableMovie("boxes that run to the end of what holds them",
                      openBox("moov",
                              twoSeconds + openBox("trak", trackHeader(1800, 64, 32) + openBox("mdia", videoHandler))),
                      {64, 32, 3, 30}),
        ReadableMovie("an unknown media duration falls to the track's",
                      movieOf(trackHeader(1800, 64, 32) +
                                  media(times("mdhd", 25, unknown) + videoHandler, sampleTimes({{50, 1}})),
                              twoSeconds),
                      {64, 32, 3, 25}),
        ReadableMovie("an unknown track duration falls to the movie's",
                      movieOf(trackHeader(unknown, 64, 32) + media(videoHandler, canonSamples), twoSeconds),
                      {64, 32, 2, 30}),
        ReadableMovie("a media timescale of zero leaves no duration",
                      movieOf(canonSize + media(times("mdhd", 0, 0) + videoHandler, canonSamples)), {5952, 3140, 0, 0}),
        ReadableMovie("without a media header the samples run at thirty a second",
                      movieOf(canonSize + media(videoHandler, canonSamples)), {5952, 3140, 10, 30}),
        ReadableMovie("an unknown media duration without a movie header is counted in samples",
                      movieOf(canonSize + media(times("mdhd", 30000, unknown) + videoHandler, canonSamples)),
                      {5952, 3140, 10.01, 30000.0 / 1001}),
        ReadableMovie("a raw track without a handler is found by its sample entry",
                      box("moov", box("trak", trackHeader(0, 1, 1) + media(handler("soun"), sampleEntry("twos"))) +
                                      box("trak", canonSize + media({}, canonSamples))),
                      {5952, 3140, 10, 30}),
        ReadableMovie("a video handler goes before a raw sample entry",
                      box("moov", box("trak", trackHeader(0, 1, 1) + media(handler("meta"), canonSamples)) +
                                      box("trak", canonSize + media(videoHandler, sampleTimes({{60, 1}})))),
                      {5952, 3140, 2, 30}),
        ReadableMovie("a table that promises more entries than it holds",
                      movieOf(canonSize + media(times("mdhd", 10, unknown) + videoHandler,
                                                box("stts", u32(0) + u32(1000000) + u32(20) + u32(1)))),
                      {5952, 3140, 2, 10})),
    [](const auto& parameter) { return test::testName(parameter.param.name); });

struct UnreadableMovie {
    const char* name;
    Bytes content;
    Case reason;
};

class UnreadableCanonRawMovies : public testing::TestWithParam<UnreadableMovie> {};

TEST_P(UnreadableCanonRawMovies, EndInTheErrorThatFits) {
    const auto failure = test::thrown<CanonRawMetadataError>([] { read(GetParam().content); });
    ASSERT_TRUE(failure) << "was read";
    EXPECT_EQ(failure->reason(), GetParam().reason);
}

Bytes movieWith(const Bytes& table) { return movieOf(canonSize + media(videoHandler, table)); }

INSTANTIATE_TEST_SUITE_P(
    CanonRaw, UnreadableCanonRawMovies,
    testing::Values(
        UnreadableMovie("empty file", {}, Case::noVideoTrack),
        UnreadableMovie("no movie box", fileType + box("mdat", zeros(64)), Case::noVideoTrack),
        UnreadableMovie("text", text("This is no movie, whatever its name may say."), Case::invalidBox),
        UnreadableMovie("size below its header", fileType + u32(7) + text("moov"), Case::invalidBox),
        UnreadableMovie("long size below its header", u32(1) + text("moov") + u64(15), Case::invalidBox),
        UnreadableMovie("long size that would wrap around", fileType + u32(1) + text("mdat") + u64(~0ull),
                        Case::invalidBox),
        UnreadableMovie("media cut off in front of the movie box", fileType + u32(1 << 20) + text("mdat") + zeros(64),
                        Case::invalidBox),
        UnreadableMovie("child larger than its parent", box("moov", u32(100) + text("trak") + zeros(8)) + zeros(200),
                        Case::invalidBox),
        UnreadableMovie("sample entry larger than its table",
                        movieWith(box("stsd", u32(0) + u32(1) + u32(1000) + text("CRAW"))), Case::invalidBox),
        UnreadableMovie("durations that overflow",
                        movieWith(sampleTimes({{0xffffffff, 0xffffffff}, {0xffffffff, 0xffffffff}})), Case::invalidBox),
        UnreadableMovie("tracks of other kinds",
                        box("moov", box("trak", canonSize + media(handler("soun"), sampleEntry("twos")))),
                        Case::noVideoTrack),
        UnreadableMovie("video without a width",
                        box("moov", box("trak", trackHeader(0, 0, 3140) + media(videoHandler, canonSamples))),
                        Case::noVideoTrack),
        UnreadableMovie("track header cut short",
                        box("moov", box("trak", box("tkhd", zeros(80)) + media(videoHandler, canonSamples))),
                        Case::noVideoTrack)),
    [](const auto& parameter) { return test::testName(parameter.param.name); });

TEST(CanonRawMetadataReader, GivesUpOnAFloodOfBoxes) {
    Bytes flood;
    for (int i = 0; i < (1 << 16) + 1; ++i)
        flood = std::move(flood) + box("free", {});
    EXPECT_THROW(read(flood + movieWith(canonSamples)), CanonRawMetadataError);
}

TEST(CanonRawMetadataReader, StopsAnywhereInATruncatedMovieWithoutReadingBeyondIt) {
    const auto whole =
        fileType + box("moov", times("mvhd", 1000, 1000) +
                                   box("trak", canonSize + media(times("mdhd", 30, 30) + videoHandler, canonSamples)));
    ASSERT_EQ(read(whole).duration, 1);
    for (std::size_t length = 0; length < whole.size(); ++length)
        EXPECT_THROW(read(Bytes(whole.begin(), whole.begin() + std::ptrdiff_t(length))), CanonRawMetadataError)
            << length;
}

TEST(CanonRawMetadataReader, RefusesWhatIsNoRegularFileAtOnce) {
    const test::TemporaryFolder folder;
    ASSERT_EQ(::mkfifo((folder / "pipe.crm").c_str(), 0600), 0);
    EXPECT_THROW(CanonRawMetadataReader::read(URL::fromFilePath(folder / "pipe.crm")), CanonRawMetadataError);
    EXPECT_THROW(CanonRawMetadataReader::read(URL::fromFilePath(folder.path())), CanonRawMetadataError);
    const auto readMissing = [&] { CanonRawMetadataReader::read(URL::fromFilePath(folder / "missing.crm")); };
    EXPECT_EQ(test::thrown<Error>(readMissing).value().code(), ENOENT);
}

} // namespace
} // namespace panoveer
