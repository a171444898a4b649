#include "BoxBuilding.h"
#include "Panoveer/Services/Export/SpatialBoxInspector.h"
#include "Panoveer/Services/Export/SpatialVideoMetadataInjector.h"
#include "Support/MediaFactory.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include <filesystem>
#include <sstream>

// Movies as muxers really lay them out, given spatial boxes and then read by the programs that people use.
namespace panoveer {
namespace {

using namespace test;
using namespace nlohmann::literals;
using Injector = SpatialVideoMetadataInjector;
using Request = SpatialVideoMetadataRequest;
using StereoMode = Request::StereoMode;

std::string outputOf(const std::vector<std::string>& command) {
    const auto result = runProgram(command);
    EXPECT_EQ(result.exitCode, 0) << result.standardError;
    EXPECT_EQ(result.standardError, "");
    return result.standardOutput;
}

// A checksum of every decoded picture and sound, with its time. The name of the channel layout is left out: that is
// what ambisonic boxes are there to change.
std::string decodedFrames(const std::filesystem::path& file) {
    std::istringstream lines(outputOf({"ffmpeg", "-v", "error", "-i", file, "-map", "0", "-f", "framemd5", "-"}));
    std::string result;
    for (std::string line; std::getline(lines, line);)
        if (!line.starts_with("#channel_layout_name"))
            result += line + '\n';
    return result;
}

// Of the first stream that has some of this type; empty when none has.
nlohmann::json sideData(const std::filesystem::path& file, const std::string& type) {
    const auto probe = ffprobeJSON(file);
    for (const auto& stream : probe["streams"])
        if (stream.contains("side_data_list"))
            for (const auto& data : stream["side_data_list"])
                if (data["side_data_type"] == type)
                    return data;
    return nlohmann::json::object();
}

struct MuxerCase {
    const char* name;
    const char* file;
    const char* codec;
    const char* pixelFormat;
    std::vector<std::string> options;
    std::vector<std::string> audioCodecs; // one ambisonic track each
};

class MuxerTests : public testing::TestWithParam<MuxerCase> {};

TEST_P(MuxerTests, SpatialBoxesAreReadByOthersAndFramesStayAsTheyWere) {
    const TemporaryFolder folder;
    MovieSpec spec;
    spec.name = GetParam().file;
    spec.codec = GetParam().codec;
    spec.pixelFormat = GetParam().pixelFormat;
    spec.width = 128;
    spec.height = 128;
    spec.keyFrameInterval = 10;
    spec.outputOptions = GetParam().options;
    std::vector<std::optional<SpatialAudioDescriptor>> audio;
    for (const auto& codec : GetParam().audioCodecs) {
        auto& track = spec.audio.emplace_back();
        track.codec = codec;
        track.layout = "4.0";
        audio.push_back(SpatialAudioDescriptor{1, 4, false});
    }
    const auto file = makeMovie(folder, spec);
    const auto url = URL::fromFilePath(file);
    const auto before = decodedFrames(file);

    const auto request = *Request::make(ProjectionFormat::equirectangular, StereoVideoLayout::overUnder,
                                        ExportCodec::hevc10, VRMetadataMode::automatic);
    Injector::injectMetadata(url, request, audio);

    EXPECT_TRUE(decodedFrames(file) == before);
    Injector::validateMetadata(url, request);
    Injector::validateStereoMetadata(url, StereoMode::topBottom);
    Injector::validateSpatialAudio(url, audio);

    EXPECT_EQ(sideData(file, "Spherical Mapping")["projection"], "equirectangular");
    EXPECT_EQ(sideData(file, "Stereo 3D")["type"], "top and bottom");
    const auto probe = ffprobeJSON(file);
    for (const auto& stream : probe["streams"])
        // An AAC decoder answers with the layout of its own stream.
        if (stream["codec_type"] == "audio" && stream["codec_name"] != "aac") {
            EXPECT_EQ(stream["channel_layout"], "ambisonic 1");
        }
    const auto exif = nlohmann::json::parse(outputOf({"exiftool", "-j", "-G", file}))[0];
    EXPECT_EQ(exif["XMP:ProjectionType"], "equirectangular");
    EXPECT_EQ(exif["XMP:StereoMode"], "top-bottom");
    EXPECT_EQ(exif["XMP:StitchingSoftware"], "Panoveer Studio");
    EXPECT_FALSE(exif.contains("ExifTool:Warning")) << exif["ExifTool:Warning"];
    EXPECT_EQ(exif["QuickTime:Stereoscopic3D"], "Stereoscopic Top-Bottom");
    EXPECT_EQ(exif["QuickTime:ProjectionBoundsLeft"], 0);
    if (!audio.empty()) {
        EXPECT_EQ(exif["QuickTime:AmbisonicOrder"], 1);
        EXPECT_EQ(exif["QuickTime:AmbisonicChannelOrdering"], "ACN");
        EXPECT_EQ(exif["QuickTime:AmbisonicNormalization"], "SN3D");
        EXPECT_EQ(exif["QuickTime:AmbisonicChannelMap"], "0 1 2 3");
    }
    const auto info = nlohmann::json::parse(outputOf({"mediainfo", "--Output=JSON", file}));
    EXPECT_EQ(info.at("/media/track/1/extra/Spatial/0/ProjectionType"_json_pointer), "equirectangular");

    const auto once = readFile(file);
    Injector::injectMetadata(url, request, audio);
    EXPECT_EQ(readFile(file), once);
}

INSTANTIATE_TEST_SUITE_P(
    , MuxerTests,
    testing::Values(
        MuxerCase{"MoovBehindTheMedia", "a.mp4", "libx264", "yuv420p", {}, {"aac"}},
        MuxerCase{"MoovInFront", "a.mp4", "libx264", "yuv420p", {"-movflags", "+faststart"}, {"aac"}},
        MuxerCase{
            "MoovInFrontWithSlack", "a.mp4", "libx265", "yuv420p10le", {"-moov_size", "20000", "-tag:v", "hvc1"}, {}},
        MuxerCase{"QuickTime", "a.mov", "prores_ks", "yuv422p10le", {}, {"pcm_s24le", "pcm_s16le"}},
        MuxerCase{"QuickTimeInFront", "a.mov", "libx264", "yuv420p", {"-movflags", "+faststart"}, {"aac", "pcm_f32le"}},
        MuxerCase{"WrittenInFragments",
                  "a.mov",
                  "libx264",
                  "yuv420p",
                  {"-movflags", "hybrid_fragmented+frag_keyframe"},
                  {"pcm_s24le"}},
        MuxerCase{"Fragments", "a.mp4", "libx264", "yuv420p", {"-movflags", "frag_keyframe+empty_moov"}, {"aac"}},
        MuxerCase{"FragmentsRelativeToThemselves",
                  "a.mp4",
                  "libx264",
                  "yuv420p",
                  {"-movflags", "frag_keyframe+empty_moov+default_base_moof"},
                  {"aac"}}),
    [](const auto& test) { return test.param.name; });

TEST(SpatialMetadataMovieTests, ProjectionsAreReadByOthersAsWritten) {
    const TemporaryFolder folder;
    MovieSpec spec;
    spec.name = "a.mp4";
    spec.frameCount = 2;
    const auto file = makeMovie(folder, spec);
    const auto url = URL::fromFilePath(file);

    Injector::injectMetadata(url, {{Request::ProjectionKind::equirectangular, true}, false, StereoMode::leftRight}, {});
    const auto hemisphere = sideData(file, "Spherical Mapping");
    EXPECT_EQ(hemisphere["projection"], "tiled equirectangular");
    // Pixels of the full panorama, of which the 160 that are there are the middle half; rounded by the reader.
    EXPECT_NEAR(hemisphere["bound_left"].get<int>(), 80, 1);
    EXPECT_NEAR(hemisphere["bound_right"].get<int>(), 80, 1);
    EXPECT_EQ(sideData(file, "Stereo 3D")["type"], "side by side");

    Injector::injectMetadata(url, {{Request::ProjectionKind::cubemap, false}, false, StereoMode::mono}, {});
    EXPECT_EQ(sideData(file, "Spherical Mapping")["projection"], "cubemap");
    EXPECT_TRUE(sideData(file, "Stereo 3D").empty());

    Injector::injectMetadata(url, {{}, true, StereoMode::topBottom}, {});
    EXPECT_TRUE(sideData(file, "Spherical Mapping").empty());
    EXPECT_EQ(sideData(file, "Stereo 3D")["type"], "top and bottom");
}

// Seeking in fragments goes through their index: every entry must still point at a fragment.
TEST(SpatialMetadataMovieTests, TheIndexOfFragmentsMovesWithThem) {
    const TemporaryFolder folder;
    MovieSpec spec;
    spec.name = "a.mp4";
    spec.keyFrameInterval = 10;
    spec.outputOptions = {"-movflags", "frag_keyframe+empty_moov"};
    const auto file = makeMovie(folder, spec);
    const auto url = URL::fromFilePath(file);
    Injector::injectMetadata(url, {}, {});

    const FileByteSource source(url);
    constexpr FourCC opened[] = {"mfra"};
    int fragments = 0, entries = 0;
    for (const auto& top : MP4Parser::parseBoxes(source, 0, source.length(), opened)) {
        fragments += top.type == FourCC("moof");
        const auto* index = top.type == FourCC("mfra") ? top.child("tfra") : nullptr;
        if (!index)
            continue;
        const auto content = MP4Parser::readContent(source, *index, 0, 65536);
        ASSERT_EQ(content.at(0), 1); // 64-bit times and offsets, then three numbers of one byte
        for (std::size_t at = 16; at + 19 <= content.size(); at += 19, ++entries) {
            Bytes tag(4);
            source.read(readBigEndian<std::uint64_t>(content, at + 8) + 4, tag);
            EXPECT_EQ(std::string(tag.begin(), tag.end()), "moof");
        }
    }
    EXPECT_GE(fragments, 3);
    EXPECT_EQ(entries, fragments);
}

} // namespace
} // namespace panoveer
