#include "BoxBuilding.h"
#include "Panoveer/Services/Export/SpatialBoxInspector.h"
#include "Panoveer/Services/Export/SpatialVideoMetadataError.h"
#include "Support/MediaFactory.h"
#include "Support/Thrown.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

namespace panoveer {
namespace {

using namespace test;

const URL anyURL = URL::fromFilePath("/movies/film.mov");

SpatialBoxReport inspected(const Bytes& bytes) { return SpatialBoxInspector::inspect(MemoryByteSource(bytes), anyURL); }

Bytes fullBox(std::string_view type, std::initializer_list<Bytes> content) {
    return box(type, {zeros(4), joined(content)});
}

Bytes text(std::string_view characters) { return Bytes(characters.begin(), characters.end()); }

TEST(SpatialBoxInspectorTests, ReadsTheWholeTreeOfAMultiviewTrack) {
    const auto usage = box("vexu", {fullBox("must", {text("eyespack")}),
                                    box("eyes", {fullBox("stri", {{0x0b}}), fullBox("hero", {{2}}),
                                                 box("cams", {fullBox("blin", {{0, 0, 0xf6, 0x3c}})}),
                                                 box("cmfy", {fullBox("dadj", {{0xff, 0xff, 0xff, 0x9c}})})}),
                                    box("proj", {fullBox("prji", {text("hequ")})}),
                                    box("pack", {fullBox("pkin", {text("side")})}), box("xtra")});
    Bytes fields(78);
    storeBigEndian(fields, 24, std::uint16_t(4096));
    storeBigEndian(fields, 26, std::uint16_t(4098));
    const auto entry = box("hvc1", {fields, box("hvcC"), box("lhvC"), usage, box("hfov", {{0, 2, 0xbf, 0x20}})});
    const auto report = inspected(box("moov", {track("vide", entry, {})})).tracks.at(0);

    EXPECT_EQ(report.handler, FourCC("vide"));
    EXPECT_EQ(report.sampleEntry, FourCC("hvc1"));
    EXPECT_EQ(report.width, 4096);
    EXPECT_EQ(report.height, 4098);
    EXPECT_TRUE(report.hasBaseLayer && report.secondaryLayer);
    EXPECT_EQ(report.horizontalFieldOfViewDegrees, 180.0);
    VideoExtendedUsageReport expected;
    expected.requiredBoxes = {"eyes", "pack"};
    expected.hasStereoViewInformation = true;
    expected.hasLeftEyeView = expected.hasRightEyeView = expected.eyeViewsReversed = true;
    expected.heroEye = 2;
    expected.baselineMicrometers = 63036;
    expected.disparityAdjustment = -100;
    expected.projection = FourCC("hequ");
    expected.viewPacking = FourCC("side");
    expected.otherBoxes = {"xtra"};
    EXPECT_EQ(report.extendedUsage, expected);
}

TEST(SpatialBoxInspectorTests, TakesShortAndLyingBoxesAsFarAsTheyGo) {
    auto audio = fullBox("SA3D", {{0, 1, 0, 0}}); // an order, and a channel count that is cut off
    const auto lying = box("SA3D", {{0, 0x80, 0, 0, 0, 1, 0, 0, 0xff, 0xff, 0xff, 0xff, 0, 0, 0, 3, 0}});
    const auto entry = [](const Bytes& child) { return box("mp4a", {zeros(28), child}); };
    const auto video = box("avc1", {zeros(78), box("sv3d", {box("proj", {box("equi", {zeros(6)})})}), box("st3d"),
                                    box("vexu", {box("eyes", {box("stri")})}), box("hfov")});
    const auto report = inspected(box("moov", {track("vide", video, {}), track("soun", entry(audio), {}),
                                               track("soun", entry(lying), {}), box("trak")}));
    ASSERT_EQ(report.tracks.size(), 4u);
    EXPECT_EQ(report.tracks[0].sphericalV2->projection, FourCC("equi"));
    EXPECT_EQ(report.tracks[0].stereoMode, 0);
    EXPECT_FALSE(report.tracks[0].extendedUsage->hasLeftEyeView);
    EXPECT_EQ(report.tracks[1].spatialAudio->channelCount, 0u);
    EXPECT_EQ(report.tracks[2].spatialAudio->channelCount, 0xffffffffu);
    EXPECT_EQ(report.tracks[2].spatialAudio->channelMap, std::vector<std::uint32_t>{3});
    EXPECT_EQ(report.tracks[3].sampleEntry, FourCC());

    // Boxes of the tree are bounded as all others are.
    EXPECT_THROW(
        inspected(box("moov", {track("vide", box("hvc1", {zeros(78), box("vexu", {header("eyes", 90)})}), {})})),
        SpatialVideoMetadataError);
}

TEST(CorpusInspectorTests, AgreesWithOtherReadersAboutAMultiviewMovie) {
    const auto file = corpusFile("water_180_mvhevc_5frames.mov");
    if (!file)
        GTEST_SKIP() << "PANOVEER_CORPUS is not set";
    const auto report = SpatialBoxInspector::inspect(URL::fromFilePath(*file));
    const auto stream = ffprobeJSON(*file)["streams"][0];
    const auto stereo = stream["side_data_list"][0];
    ASSERT_EQ(report.tracks.size(), 1u);
    const auto& track = report.tracks[0];
    EXPECT_EQ(track.width, stream["width"]);
    EXPECT_EQ(track.height, stream["height"]);
    EXPECT_TRUE(track.hasBaseLayer && track.secondaryLayer);
    ASSERT_TRUE(track.extendedUsage);
    EXPECT_TRUE(track.extendedUsage->hasLeftEyeView && track.extendedUsage->hasRightEyeView);
    EXPECT_FALSE(track.extendedUsage->eyeViewsReversed);
    EXPECT_EQ(track.extendedUsage->baselineMicrometers, stereo["baseline"].get<std::uint32_t>());
    EXPECT_EQ(std::to_string(*track.extendedUsage->disparityAdjustment) + "/10000",
              stereo["horizontal_disparity_adjustment"].get<std::string>());
    EXPECT_EQ(track.extendedUsage->projection, FourCC("rect"));
    EXPECT_EQ(track.extendedUsage->otherBoxes, std::vector<FourCC>());
    EXPECT_EQ(track.horizontalFieldOfViewDegrees, 64.0);
}

TEST(CorpusInspectorTests, AgreesWithOtherReadersAboutAFirstGenerationMovie) {
    const auto file = corpusFile("testRoom1_1080Stereo.mp4");
    if (!file)
        GTEST_SKIP() << "PANOVEER_CORPUS is not set";
    const auto report = SpatialBoxInspector::inspect(URL::fromFilePath(*file));
    const auto exif = nlohmann::json::parse(runProgram({"exiftool", "-j", "-G", *file}).standardOutput)[0];
    ASSERT_EQ(report.tracks.size(), 1u);
    ASSERT_TRUE(report.tracks[0].sphericalV1);
    const auto& spherical = *report.tracks[0].sphericalV1;
    EXPECT_EQ(spherical.spherical, exif["XMP:Spherical"].get<bool>());
    EXPECT_EQ(spherical.stitched, exif["XMP:Stitched"].get<bool>());
    EXPECT_EQ(spherical.stitchingSoftware, exif["XMP:StitchingSoftware"].get<std::string>());
    EXPECT_EQ(spherical.projectionType, exif["XMP:ProjectionType"].get<std::string>());
    EXPECT_EQ(spherical.stereoMode, exif["XMP:StereoMode"].get<std::string>());
    EXPECT_EQ(report.tracks[0].trackID, exif["QuickTime:TrackID"].get<std::uint32_t>());
    EXPECT_FALSE(report.tracks[0].sphericalV2 || report.tracks[0].stereoMode);
}

// A file of another kind is none that is damaged.
TEST(SpatialBoxInspectorTests, TellsOtherFilesFromDamagedMovies) {
    using Kind = SpatialVideoMetadataError::Kind;
    using namespace std::string_view_literals;
    for (const auto& [content, kind] : {std::pair(""sv, Kind::emptyFile),
                                        {"hello"sv, Kind::missingBox},
                                        {"RIFF\x24\x1a\x05\0AVI LIST"sv, Kind::missingBox},
                                        {"\x1a\x45\xdf\xa3\x9f\x42\x86\x81\x01\x42\xf7\x81"sv, Kind::missingBox},
                                        {"#EXTM3U\n#EXTINF:1,\na.ts\n"sv, Kind::missingBox},
                                        {"\0\0\0\x10"
                                         "ftypisom\0\0\2\0"sv,
                                         Kind::missingBox},
                                        {"\0\0\0\x20"
                                         "ftypisom"sv,
                                         Kind::boxOutOfBounds}}) {
        const auto error = thrown<SpatialVideoMetadataError>([&] { inspected(text(content)); });
        ASSERT_TRUE(error) << content;
        EXPECT_EQ(error->kind(), kind) << content;
    }
}

} // namespace
} // namespace panoveer
