#include "BoxBuilding.h"
#include "Panoveer/Services/Export/MP4Movie.h"
#include "Panoveer/Services/Export/MP4Writer.h"
#include "Panoveer/Services/Export/SpatialBoxInspector.h"
#include "Panoveer/Services/Export/SpatialVideoMetadataError.h"
#include "Panoveer/Services/Export/SpatialVideoMetadataInjector.h"
#include "Support/MediaFactory.h"
#include "Support/Thrown.h"

#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>

namespace panoveer {
namespace {

using namespace test;
using Injector = SpatialVideoMetadataInjector;
using Request = SpatialVideoMetadataRequest;
using Failure = SpatialVideoMetadataError;
using Kind = Failure::Kind;
using StereoMode = Request::StereoMode;

const URL anyURL = URL::fromFilePath("/exports/film.mov");
const auto sphere = *Request::make(ProjectionFormat::equirectangular, StereoVideoLayout::overUnder, ExportCodec::hevc10,
                                   VRMetadataMode::automatic);

Bytes rewritten(const Bytes& movie, const Request& request = sphere, Injector::AudioDescriptors audio = {}) {
    MemoryByteSink sink;
    Injector::rewrite(MemoryByteSource(movie), anyURL, request, audio, sink);
    return sink.bytes;
}

// Where the media of a movie lies relative to its description, and how its offsets are held.
struct Layout {
    const char* name;
    bool moovFirst;
    const char* table;
    bool wideMediaHeader;
    bool endlessMedia = false; // size 0: to the end of the file
};

const Bytes media = {'a', 'b', 'c', 'd', 'e', 'f'};

// What the writer says of the picture.
const auto usage = box("vexu", {box("proj", {box("prji", {{0, 0, 0, 0, 'h', 'e', 'q', 'u'}})})});

// Two chunks of one byte, "b" and "e", and 50 bytes of slack between description and media.
Bytes movie(const Layout& layout, const Bytes& audio = {}) {
    const auto mediaHeader = layout.wideMediaHeader
                                 ? wideHeader("mdat", 16 + media.size())
                                 : header("mdat", layout.endlessMedia ? 0 : 8 + std::uint32_t(media.size()));
    const auto fileType = box("ftyp", {zeros(12)});
    const auto slack = box("free", {zeros(42)});
    const auto description = [&](std::uint64_t mediaStart) {
        const auto offsets = offsetTable(layout.table, {mediaStart + 1, mediaStart + 4});
        return box("moov", {track("vide", box("avc1", {zeros(78), box("avcC", {{1, 2}}), usage}), offsets), audio});
    };
    const auto ahead = fileType.size() + (layout.moovFirst ? description(0).size() + slack.size() : 0);
    const auto moov = description(ahead + mediaHeader.size());
    const auto mediaBox = joined({mediaHeader, media});
    return layout.moovFirst ? joined({fileType, moov, slack, mediaBox}) : joined({fileType, mediaBox, moov});
}

// The bytes that the chunk offsets of the video track point at.
std::string chunks(const Bytes& bytes) {
    const MemoryByteSource source(bytes);
    MP4Movie tree(source, anyURL);
    std::string result;
    for (const auto& table : *tree.videoTrack().descendant({"mdia", "minf", "stbl"})->children) {
        const bool isWide = table.type == FourCC("co64");
        if (!isWide && table.type != FourCC("stco"))
            continue;
        const auto content = MP4Parser::readContent(source, table, 8, 1000);
        for (std::size_t at = 0; at < content.size(); at += isWide ? 8 : 4) {
            const auto offset =
                isWide ? readBigEndian<std::uint64_t>(content, at) : readBigEndian<std::uint32_t>(content, at);
            result += char(bytes.at(offset));
        }
    }
    return result;
}

class MediaLayoutTests : public testing::TestWithParam<Layout> {};

TEST_P(MediaLayoutTests, ChunksAreFoundAgainAndASecondRunChangesNothing) {
    const auto original = movie(GetParam());
    ASSERT_EQ(chunks(original), "be");

    const auto once = rewritten(original);
    EXPECT_EQ(chunks(once), "be");
    EXPECT_EQ(rewritten(once), once);

    const auto report = SpatialBoxInspector::inspect(MemoryByteSource(once), anyURL).tracks.at(0);
    EXPECT_EQ(report.stereoMode, 1);
    ASSERT_TRUE(report.sphericalV2);
    EXPECT_EQ(report.sphericalV2->metadataSource, "Panoveer Studio");
    ASSERT_TRUE(report.sphericalV1);
    EXPECT_EQ(report.sphericalV1->stereoMode, "top-bottom");

    // Taking the boxes away again gives the original back: offsets move in both directions. Only the header of media
    // without a size has been given one.
    const auto plain = rewritten(once, Request{{}, true, StereoMode::mono});
    if (!GetParam().endlessMedia) {
        EXPECT_EQ(plain, original);
    }
    EXPECT_EQ(chunks(plain), "be");
}

INSTANTIATE_TEST_SUITE_P(, MediaLayoutTests,
                         testing::Values(Layout{"MoovFirst", true, "stco", false},
                                         Layout{"MoovLast", false, "stco", false},
                                         Layout{"MoovFirstWideOffsets", true, "co64", false},
                                         Layout{"MoovFirstWideMedia", true, "co64", true},
                                         Layout{"MoovLastWideMedia", false, "co64", true},
                                         Layout{"MoovFirstEndlessMedia", true, "stco", false, true}),
                         [](const auto& test) { return test.param.name; });

TEST(SpatialVideoMetadataInjectorTests, EveryRequestWritesItsOwnBoxesAndIsReadAsNoOther) {
    using enum ProjectionFormat;
    using enum StereoVideoLayout;
    struct Row {
        ProjectionFormat format;
        StereoVideoLayout layout;
        const char* projection; // "" for none
        std::uint32_t sideBounds;
        int stereoMode; // -1 for none
        bool hasUUID;
    };
    const Row rows[] = {
        {equirectangular, mono, "equi", 0, -1, true},
        {equirectangular, overUnder, "equi", 0, 1, true},
        {equirectangular, sideBySide, "equi", 0, 2, true},
        {halfEquirectangular, mono, "equi", 0x40000000, -1, false},
        {halfEquirectangular, sideBySide, "equi", 0x40000000, 2, false},
        {cubemap, overUnder, "cbmp", 0, 1, false},
        {eac, sideBySide, "", 0, 2, false},
        {standard, overUnder, "", 0, 1, false},
    };
    std::vector<Request> requests;
    for (const auto& row : rows)
        requests.push_back(
            Request::make(row.format, row.layout, ExportCodec::hevc10, VRMetadataMode::automatic).value());
    const TemporaryFolder folder;
    const auto url = URL::fromFilePath(folder / "film.mp4");
    // Every request meets the boxes of another one and replaces them.
    auto bytes = movie({"", true, "stco", false});
    for (std::size_t made = 0; made < std::size(rows); ++made) {
        const auto& row = rows[made];
        bytes = rewritten(bytes, requests[made]);
        const auto report = SpatialBoxInspector::inspect(MemoryByteSource(bytes), anyURL).tracks.at(0);
        EXPECT_EQ(report.stereoMode.value_or(255), std::uint8_t(row.stereoMode));
        EXPECT_EQ(report.sphericalV1.has_value(), row.hasUUID);
        EXPECT_EQ(report.extendedUsage->projection, FourCC("hequ")) << "the writer's";
        const MemoryByteSource source(bytes);
        EXPECT_EQ(MP4Movie(source, anyURL).videoSampleEntry().children->back().type, FourCC("vexu"));
        ASSERT_EQ(report.sphericalV2.has_value(), *row.projection != 0);
        if (report.sphericalV2) {
            EXPECT_EQ(report.sphericalV2->projection.text(), row.projection);
            EXPECT_EQ(report.sphericalV2->boundLeft, row.sideBounds);
            EXPECT_EQ(report.sphericalV2->boundRight, row.sideBounds);
            EXPECT_EQ(report.sphericalV2->boundTop, 0u);
        }
        // And the validators see it, and every difference from another one.
        writeFile(url.path(), bytes);
        for (std::size_t asked = 0; asked < requests.size(); ++asked) {
            const auto failure = thrown<Failure>([&] { Injector::validateMetadata(url, requests[asked]); });
            EXPECT_EQ(failure.has_value(), made != asked) << made << " read as " << asked;
        }
        Injector::validateStereoMetadata(url, requests[made].stereoMode);
        EXPECT_EQ(thrown<Failure>([&] { Injector::validateStereoMetadata(url, StereoMode::mono); }).has_value(),
                  row.stereoMode >= 0);
    }
    EXPECT_EQ(chunks(bytes), "be");
}

TEST(SpatialVideoMetadataInjectorTests, OnlyOutputsThatHaveSomethingToSayMakeARequest) {
    const auto request = [](ProjectionFormat format, StereoVideoLayout layout, ExportCodec codec = ExportCodec::h264,
                            VRMetadataMode mode = VRMetadataMode::automatic) {
        return Request::make(format, layout, codec, mode);
    };
    using enum ProjectionFormat;
    using enum StereoVideoLayout;
    EXPECT_FALSE(request(standard, mono));
    EXPECT_FALSE(request(domemaster, mono));
    EXPECT_FALSE(request(mirrorDome, sideBySide));
    EXPECT_FALSE(request(equirectangular, sideBySide, ExportCodec::mvhevc10));
    EXPECT_FALSE(request(equirectangular, mono, ExportCodec::h264, VRMetadataMode::off));
    EXPECT_TRUE(request(domemaster, overUnder)->stereoOnly);
    // Older projects name what the movie shows themselves.
    EXPECT_EQ(request(standard, mono, ExportCodec::h264, VRMetadataMode::equirectangularStereoSideBySide),
              request(equirectangular, sideBySide));
}

TEST(SpatialVideoMetadataInjectorTests, AudioEntriesOfEveryVersionKeepTheirFieldsAheadOfTheirBoxes) {
    const std::optional<SpatialAudioDescriptor> descriptors[] = {std::nullopt, SpatialAudioDescriptor{2, 11, true}};
    for (std::uint16_t version : {0, 1, 2}) {
        const auto plain = track("soun", audioEntry("mp4a", 0), {});
        const auto entry = audioEntry("in24", version);
        const auto ambisonic = track("soun", entry, {});
        const auto original = movie({"", true, "stco", false}, joined({plain, ambisonic}));
        const auto bytes = rewritten(original, Request::audioOnly(), descriptors);

        const auto report = SpatialBoxInspector::inspect(MemoryByteSource(bytes), anyURL);
        ASSERT_EQ(report.tracks.size(), 3u);
        EXPECT_FALSE(report.tracks[0].sphericalV2 || report.tracks[0].sphericalV1 || report.tracks[1].spatialAudio);
        ASSERT_TRUE(report.tracks[2].spatialAudio);
        EXPECT_EQ(*report.tracks[2].spatialAudio,
                  (SpatialAudioReport{0, true, 0, 2, 0, 0, 11, {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10}}));
        // Behind the fields and the box that were there: the new box, 8 + 12 + 11 * 4 bytes.
        const auto grown = joined({header("in24", std::uint32_t(entry.size() + 64)),
                                   Bytes(entry.begin() + 8, entry.end()), header("SA3D", 64)});
        EXPECT_FALSE(std::ranges::search(bytes, grown).empty());
        EXPECT_EQ(chunks(bytes), "be");
        EXPECT_EQ(rewritten(bytes, Request::audioOnly(), descriptors), bytes);
    }
    const auto unknown = movie({"", true, "stco", false}, track("soun", audioEntry("mp4a", 3), {}));
    const auto failure = thrown<Failure>([&] { rewritten(unknown, sphere, std::span(descriptors).last(1)); });
    ASSERT_TRUE(failure);
    EXPECT_EQ(failure->kind(), Kind::missingBox);
    EXPECT_EQ(failure->tag(), FourCC("SA3D"));
}

struct Hostile {
    const char* name;
    Bytes bytes;
    Kind expected;
    const char* tag = "\0\0\0\0";
};

Bytes nested(int depth) {
    Bytes bytes;
    for (int level = 0; level < depth; ++level)
        bytes = box("moov", {bytes});
    return bytes;
}

Bytes withVideoTable(const Bytes& table) {
    return joined({box("moov", {track("vide", box("avc1", {zeros(78)}), table)}), box("mdat", {media})});
}

const Hostile hostileFiles[] = {
    {"Empty", {}, Kind::emptyFile},
    {"NoBoxes", zeros(7), Kind::missingBox, "moov"},
    {"NoMediaData", box("moov"), Kind::missingBox, "mdat"},
    {"NoTracks", joined({box("moov"), box("mdat")}), Kind::noVideoTrack},
    {"TrackWithoutHandler", joined({box("moov", {box("trak", {box("mdia")})}), box("mdat")}), Kind::noVideoTrack},
    {"UnknownVideoEntry", joined({box("moov", {track("vide", box("vp08", {zeros(78)}), {})}), box("mdat")}),
     Kind::noVideoSampleEntry},
    {"VideoEntryWithoutRoomForItsFields",
     joined({box("moov", {track("vide", box("avc1", {zeros(77)}), {})}), box("mdat")}), Kind::noVideoSampleEntry},
    {"SizeBelowHeader", joined({box("ftyp"), header("moov", 4)}), Kind::invalidBox, "moov"},
    {"PastTheEnd", joined({box("ftyp"), header("moov", 9)}), Kind::boxOutOfBounds, "moov"},
    {"PastTheEndByWideSize", wideHeader("mdat", 0xffffffffffffffff), Kind::boxOutOfBounds, "mdat"},
    {"ChildPastItsParent", joined({box("moov", {header("trak", 16)}), box("mdat", {zeros(20)})}), Kind::boxOutOfBounds,
     "trak"},
    {"NestedTooDeep", joined({nested(100), box("mdat")}), Kind::invalidBox, "moov"},
    {"OffsetCountBeyondItsTable", withVideoTable(offsetTable("stco", {1, 2}, 3)), Kind::invalidBox, "stco"},
    {"OffsetNearFourGigabytes", withVideoTable(offsetTable("stco", {1, 0xfffffff0})), Kind::stcoOverflow},
    {"OffsetNearTheLast", withVideoTable(offsetTable("co64", {0xfffffffffffffff0})), Kind::chunkOffsetOverflow},
    {"MediaOnBothSides", joined({box("mdat"), withVideoTable(offsetTable("stco", {1}))}), Kind::internalInconsistency},
};

class HostileFileTests : public testing::TestWithParam<Hostile> {};

TEST_P(HostileFileTests, IsRefusedByNameAndLeftAsItWas) {
    const TemporaryFolder folder;
    const auto url = URL::fromFilePath(folder / "film.mp4");
    writeFile(url.path(), GetParam().bytes);

    const auto failure = thrown<Failure>([&] { Injector::injectMetadata(url, sphere, {}); });
    ASSERT_TRUE(failure);
    EXPECT_EQ(failure->kind(), GetParam().expected) << failure->what();
    EXPECT_EQ(failure->tag(), FourCC(readBigEndian<std::uint32_t>(
                                  std::span(reinterpret_cast<const std::uint8_t*>(GetParam().tag), 4))));
    EXPECT_EQ(std::string(failure->what()).find("error.spatial_metadata"), std::string::npos) << "no text";
    EXPECT_EQ(readFile(url.path()), GetParam().bytes);
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder.path()), {}), 1);
}

INSTANTIATE_TEST_SUITE_P(, HostileFileTests, testing::ValuesIn(hostileFiles),
                         [](const auto& test) { return test.param.name; });

TEST(SpatialVideoMetadataInjectorTests, TooManyBoxesAreRefusedBeforeTheyFillTheMemory) {
    const auto free = box("free");
    Bytes bytes;
    for (std::size_t index = 0; index <= MP4Parser::maximumBoxCount; ++index)
        bytes.insert(bytes.end(), free.begin(), free.end());
    const auto failure = thrown<Failure>([&] { SpatialBoxInspector::inspect(MemoryByteSource(bytes), anyURL); });
    ASSERT_TRUE(failure);
    EXPECT_EQ(failure->kind(), Kind::invalidBox);
}

// Keeps what is written in small pieces and only counts what is copied from the input.
class CountingSink final : public ByteSink {
public:
    void write(std::span<const std::uint8_t> bytes) override {
        written.insert(written.end(), bytes.begin(), bytes.end());
        position_ += bytes.size();
    }
    std::uint64_t copy(const ByteSource&, std::uint64_t, std::uint64_t count) override {
        largestPiece = std::max(largestPiece, count);
        position_ += count;
        return count;
    }
    std::uint64_t position() const override { return position_; }

    Bytes written;
    std::uint64_t largestPiece = 0;

private:
    std::uint64_t position_ = 0;
};

TEST(SpatialVideoMetadataInjectorTests, MediaDataBeyondFourGigabytesIsStreamedUnderItsWideHeader) {
    constexpr std::uint64_t mediaSize = (5ull << 30) + 3;
    const TemporaryFolder folder;
    const auto url = URL::fromFilePath(folder / "long.mov");
    const auto last = std::uint64_t(1000) + mediaSize - 1;
    const auto moov = box("moov", {track("vide", box("hvc1", {zeros(78)}), offsetTable("co64", {last}))});
    writeFile(url.path(), joined({moov, wideHeader("mdat", 16 + mediaSize)}));
    const auto length = moov.size() + 16 + mediaSize;
    std::filesystem::resize_file(url.path(), length);

    CountingSink sink;
    Injector::rewrite(FileByteSource(url), url, sphere, {}, sink);
    const auto growth = sink.position() - length;
    EXPECT_GT(growth, 0u);
    EXPECT_EQ(sink.largestPiece, 67'108'864u);
    EXPECT_FALSE(std::ranges::search(sink.written, wideHeader("mdat", 16 + mediaSize)).empty());
    Bytes moved;
    appendBigEndian(moved, last + growth);
    EXPECT_FALSE(std::ranges::search(sink.written, moved).empty());
}

TEST(SpatialVideoMetadataInjectorTests, AStopLeavesOnlyTheOriginal) {
    const TemporaryFolder folder;
    const auto url = URL::fromFilePath(folder / "film.mp4");
    const auto original = joined({movie({"", true, "stco", false}), box("free", {zeros(1 << 20)})});
    writeFile(url.path(), original);
    std::stop_source stop;
    stop.request_stop();
    EXPECT_THROW(Injector::injectMetadata(url, sphere, {}, stop.get_token()), Cancelled);
    EXPECT_EQ(readFile(url.path()), original);
    EXPECT_EQ(namesIn(folder.path()), std::set<std::string>{"film.mp4"});
}

TEST(SpatialVideoMetadataInjectorTests, AnInjectedFileKeepsItsPermissionsAndStaysOneFile) {
    const TemporaryFolder folder;
    const auto url = URL::fromFilePath(folder / (std::string(251, 'n') + ".mp4"));
    writeFile(url.path(), movie({"", true, "stco", false}));
    const auto permissions = std::filesystem::perms(0640);
    std::filesystem::permissions(url.path(), permissions);
    Injector::injectMetadata(url, sphere, {});
    EXPECT_EQ(std::filesystem::status(url.path()).permissions(), permissions);
    EXPECT_EQ(readFile(url.path()), rewritten(movie({"", true, "stco", false})));
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder.path()), {}), 1);
}

TEST(SpatialVideoMetadataInjectorTests, SoundIsReadAsNoOther) {
    const TemporaryFolder folder;
    const auto url = URL::fromFilePath(folder / "film.mp4");
    using Descriptor = std::optional<SpatialAudioDescriptor>;
    const std::vector<Descriptor> second = {std::nullopt, SpatialAudioDescriptor{1, 4, false}};
    const auto tracks = joined({track("soun", audioEntry("mp4a", 0), {}), track("soun", audioEntry("mp4a", 0), {})});
    writeFile(url.path(), rewritten(movie({"", true, "stco", false}, tracks), sphere, second));
    Injector::validateSpatialAudio(url, second);
    const std::vector<std::vector<Descriptor>> others = {
        {},
        {SpatialAudioDescriptor{1, 4, false}},
        {SpatialAudioDescriptor{1, 4, false}, SpatialAudioDescriptor{1, 4, false}},
        {std::nullopt, SpatialAudioDescriptor{2, 4, false}},
        {std::nullopt, SpatialAudioDescriptor{1, 4, true}},
        {std::nullopt, SpatialAudioDescriptor{1, 6, false}},
        {std::nullopt, SpatialAudioDescriptor{1, 4, false}, SpatialAudioDescriptor{1, 4, false}},
    };
    for (const auto& other : others) {
        const auto failure = thrown<Failure>([&] { Injector::validateSpatialAudio(url, other); });
        ASSERT_TRUE(failure) << &other - others.data();
        EXPECT_EQ(failure->tag(), FourCC("SA3D"));
    }
}

} // namespace
} // namespace panoveer
