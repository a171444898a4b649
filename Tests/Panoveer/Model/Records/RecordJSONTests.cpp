#include "Panoveer/Model/Records/RecordJSON.h"
#include "Panoveer/Model/Records/RecordTables.h"
#include "Support/Thrown.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>

namespace panoveer {
namespace {

using Json = nlohmann::ordered_json;
using Problem = RecordDecodingError::Problem;
using test::thrown;

VRClipSegment fullClip() {
    VRClipSegment clip;
    clip.id = UUID::random();
    clip.queueItemID = UUID::random();
    clip.sourceURL = URL::fromFilePath("/films/été 100%/clip#1.mov");
    clip.start = 0.1;
    clip.end = 12.25;
    clip.transform.sourceFormat = ProjectionFormat::domemaster;
    clip.transform.outputFormat = ProjectionFormat::halfEquirectangular;
    clip.transform.sourceStereoLayout = StereoVideoLayout::sideBySide;
    clip.transform.sourceEyesSwapped = true;
    clip.transform.fisheyeCircle = FisheyeCircle{0.5, 0.49, 0.47};
    clip.transform.mirrorDomeWarpMeshURL = URL::fromString("https://example.org/mesh.data");
    clip.transform.sourceHorizontalFieldOfView = 71.3;
    clip.transform.sourceStereoBaselineMillimeters = 63.5;
    clip.transform = clip.transform.normalized();
    clip.exportFileName = "überblick";
    clip.markedInPoint = 0;
    clip.markedOutPoint = 3.5;
    clip.videoDecodingBackend = VideoDecodingBackend::ffmpeg;
    clip.sourceOrientation = SourceVideoOrientation::left;
    clip.colorMetadata = {VideoColorPrimaries::p3D65, VideoTransferFunction::pq, VideoYCbCrMatrix::bt2020,
                          std::vector<std::uint8_t>{0, 255, 128, 7}, std::vector<std::uint8_t>{1, 2, 3, 4}};
    return clip;
}

VideoAsset fullAsset() {
    VideoAsset asset;
    asset.id = UUID::random();
    asset.url = URL::fromFilePath("/films/clip.mov");
    asset.securityScopedBookmark = std::vector<std::uint8_t>{1, 2};
    asset.displayName = "clip";
    asset.duration = 60.06;
    asset.frameRate = 30000.0 / 1001;
    asset.naturalSize = {3840, 1920};
    asset.detectedFormat = ProjectionFormat::equirectangular;
    asset.playbackStatus = VideoPlaybackStatus::conversionRequired;
    asset.liveSyphonCompatibility = LiveSyphonCompatibility::transcodeRecommended;
    asset.containsAlphaChannel = true;
    asset.ffmpegPlaybackClockURL = URL::fromFilePath("/cache/clock.m4a");
    asset.formatDetection = ImmersiveFormatDetection{.projection = ProjectionFormat::equirectangular,
                                                     .fisheyeCircle = FisheyeCircle{},
                                                     .fisheyeFieldOfView = 190,
                                                     .isDualFisheyeLens = true,
                                                     .source = ImmersiveFormatDetection::Source::fileName,
                                                     .isStereoMultiview = false,
                                                     .horizontalFieldOfView = 63,
                                                     .stereoBaselineMillimeters = 19.2};
    return asset;
}

ExportSettings fullSettings() {
    ExportSettings settings;
    settings.mode = ExportMode::singleMovie;
    settings.codec = ExportCodec::proRes4444XQ;
    settings.customWidth = 1001; // sizes come back as they were
    settings.mirrorDomeWarpMeshURL = URL::fromFilePath("/meshes/dome.data");
    settings.mirrorDomeWarpMeshBookmark = std::vector<std::uint8_t>(300, 0xa5);
    settings.stereoLayout = StereoVideoLayout::overUnder;
    settings.customBitrateMbps = 5000;
    settings.customFrameRate = 29.97;
    return settings;
}

template<class Record>
void expectRoundTrip(const Record& record) {
    EXPECT_EQ(decodeJSON<Record>(encodeJSON(record)), record);
    EXPECT_EQ(decodeJSON<Record>(encodeJSON(record, JSONStyle::document)), record);
}

TEST(RecordJSON, RecordsComeBackAsTheyWere) {
    expectRoundTrip(fullClip());
    expectRoundTrip(fullAsset());
    expectRoundTrip(fullSettings());
    expectRoundTrip(ExportSettings{});
    expectRoundTrip(VRTransform{});
    expectRoundTrip(OutputResolution{std::numeric_limits<std::int64_t>::max(), -1});
}

TEST(RecordJSON, KeysAreWrittenInOrderAndAbsentOptionalsLeftOut) {
    EXPECT_EQ(encodeJSON(ExportSettings{}),
              R"({"mode":"separateClips","codec":"hevc10","outputFormat":"equirectangular","customWidth":3840,)"
              R"("customHeight":1920,"stereoLayout":"mono","vrMetadataMode":"automatic","bitrateMode":"automatic",)"
              R"("customBitrateMbps":80.0,"frameRateMode":"automatic","customFrameRate":30.0,)"
              R"("colorMode":"convertToSDR","audioMode":"automatic"})");
    EXPECT_EQ(encodeJSON(FisheyeCircle{0.25, 0.5, 1}, JSONStyle::document),
              "{\n  \"centerX\": 0.25,\n  \"centerY\": 0.5,\n  \"radius\": 1.0\n}\n");
    EXPECT_THAT(encodeJSON(ExportSettings{}, JSONStyle::document), testing::StartsWith("{\n  \"audioMode\""));
    const auto clip = Json::parse(encodeJSON(fullClip()));
    EXPECT_EQ(clip["sourceURL"], "file:///films/%C3%A9t%C3%A9%20100%25/clip%231.mov");
    EXPECT_EQ(clip["colorMetadata"]["masteringDisplayColorVolume"], "AP+ABw==");
}

// Takes each key away in turn: a required one must be named by the error, any other must be missed by nobody.
template<class Record>
void expectRequired(const Record& record, const std::set<std::string>& requiredKeys) {
    const auto full = Json::parse(encodeJSON(record));
    std::set<std::string> found;
    for (const auto& item : full.items()) {
        auto partial = full;
        partial.erase(item.key());
        if (const auto error = thrown<RecordDecodingError>([&] { decodeJSON<Record>(partial.dump()); })) {
            EXPECT_EQ(error->problem(), Problem::missingKey);
            EXPECT_EQ(error->keyPath(), item.key());
            found.insert(item.key());
        }
    }
    EXPECT_EQ(found, requiredKeys);
}

TEST(RecordJSON, OnlyCoreKeysAreRequiredAndAMissingOneIsNamed) {
    expectRequired(fullClip(), {"id", "sourceURL", "start", "end", "transform"});
    expectRequired(fullClip().transform, {"sourceFormat", "outputFormat", "fovDegrees", "yawDegrees", "pitchDegrees",
                                          "rollDegrees", "domemasterThetaDegrees", "outputResolution"});
    expectRequired(fullClip().colorMetadata, {"primaries", "transferFunction", "yCbCrMatrix"});
    expectRequired(fullAsset(), {"id", "url", "displayName", "duration", "frameRate", "naturalSize", "detectedFormat"});
    expectRequired(*fullAsset().formatDetection,
                   {"projection", "stereoLayout", "eyesSwapped", "isDualFisheyeLens", "source"});
    expectRequired(fullSettings(), {"mode", "codec", "outputFormat", "customWidth", "customHeight"});
}

// Reads a record after replacing some of its keys.
template<class Record>
Record decodedWith(const Record& record, const char* changes) {
    auto json = Json::parse(encodeJSON(record));
    json.merge_patch(Json::parse(changes)); // null removes
    return decodeJSON<Record>(json.dump());
}

TEST(RecordJSON, ClipsAreCorrectedOnReading) {
    const auto clip = fullClip();
    EXPECT_EQ(decodedWith(clip, R"({"queueItemID":null})").queueItemID, clip.id);
    const auto backwards = decodedWith(clip, R"({"start":-3,"end":-5})");
    EXPECT_EQ(backwards.start, 0);
    EXPECT_EQ(backwards.end, 0);
    const auto turned = decodedWith(clip, R"({"transform":{"yawDegrees":540,"outputFormat":"cubemap"}})");
    EXPECT_EQ(turned.transform.yawDegrees, 180);
    EXPECT_EQ(turned.transform.fovDegrees, 90);
    const auto old =
        decodedWith(clip, R"({"videoDecodingBackend":null,"sourceOrientation":null,"colorMetadata":null})");
    EXPECT_EQ(old.videoDecodingBackend, VideoDecodingBackend::automatic);
    EXPECT_EQ(old.sourceOrientation, SourceVideoOrientation::up);
    EXPECT_EQ(old.colorMetadata, VideoColorMetadata::rec709);
    EXPECT_EQ(decodedWith(VRTransform{}, R"({"yawDegrees":540})").yawDegrees, 540)
        << "a transform by itself is read as it stands";
}

TEST(RecordJSON, AssetsAndSettingsAreCorrectedOnReading) {
    EXPECT_EQ(decodedWith(fullAsset(), R"({"frameRate":0})").frameRate, 30);
    EXPECT_EQ(decodedWith(fullAsset(), R"({"duration":-1})").duration, 0);
    for (const auto& [written, read] : {std::pair("29.97002997", 29.97), std::pair("0", 30.0), std::pair("-24", 30.0),
                                        std::pair("500", 240.0), std::pair("0.2", 1.0), std::pair("null", 30.0)})
        EXPECT_EQ(decodedWith(fullSettings(), (std::string(R"({"customFrameRate":)") + written + "}").c_str())
                      .customFrameRate,
                  read);
    EXPECT_EQ(decodedWith(fullSettings(), R"({"vrMetadataMode":"equirectangularMono"})").vrMetadataMode,
              VRMetadataMode::automatic);
    EXPECT_EQ(decodedWith(fullSettings(), R"({"vrMetadataMode":"off"})").vrMetadataMode, VRMetadataMode::off);
}

TEST(RecordJSON, AnExplicitNullAndAnUnknownKeyAreIgnored) {
    const auto settings = decodeJSON<ExportSettings>(R"({"mode":"singleMovie","codec":"h264","outputFormat":"eac",
        "customWidth":3072.0,"customHeight":2048,"mirrorDomeWarpMeshURL":null,"colorMode":null,"later":[1,{}]})");
    EXPECT_EQ(settings.customWidth, 3072);
    EXPECT_EQ(settings.mirrorDomeWarpMeshURL, std::nullopt);
    EXPECT_EQ(settings.colorMode, ExportColorMode::convertToSDR);
}

struct Broken {
    const char* changes;
    Problem problem;
    const char* keyPath;
};

TEST(RecordJSON, AnErrorSaysWhereAndWhatIsWrong) {
    const Broken cases[] = {
        {R"({"transform":{"fovDegrees":null}})", Problem::missingKey, "transform.fovDegrees"},
        {R"({"transform":{"fovDegrees":"wide"}})", Problem::wrongType, "transform.fovDegrees"},
        {R"({"transform":{"sourceFormat":"Standard"}})", Problem::invalidValue, "transform.sourceFormat"},
        {R"({"transform":{"outputResolution":{"width":1.5}}})", Problem::invalidValue,
         "transform.outputResolution.width"},
        {R"({"transform":{"outputResolution":{"height":9223372036854775808}}})", Problem::invalidValue,
         "transform.outputResolution.height"},
        {R"({"transform":{"sourceEyesSwapped":1}})", Problem::wrongType, "transform.sourceEyesSwapped"},
        {R"({"transform":7})", Problem::wrongType, "transform"},
        {R"({"id":"12345"})", Problem::invalidValue, "id"},
        {R"({"sourceURL":"clip.mov"})", Problem::invalidValue, "sourceURL"},
        {R"({"colorMetadata":{"contentLightLevelInfo":"A==="}})", Problem::invalidValue,
         "colorMetadata.contentLightLevelInfo"},
    };
    for (const auto& [changes, problem, keyPath] : cases) {
        const auto error = thrown<RecordDecodingError>([&] { decodedWith(fullClip(), changes); });
        ASSERT_TRUE(error) << changes << " was read";
        EXPECT_EQ(error->problem(), problem) << changes;
        EXPECT_EQ(error->keyPath(), keyPath) << changes;
        EXPECT_THAT(error->what(), testing::HasSubstr(keyPath));
    }
}

struct Reel {
    std::vector<VRClipSegment> segments;
};

} // namespace

template<>
struct RecordTable<Reel> {
    static constexpr auto fields = std::tuple(required("segments", &Reel::segments));
};

namespace {

TEST(RecordJSON, ElementsOfListsAreNamedByTheirIndex) {
    const Reel reel{{fullClip(), fullClip()}};
    auto json = encodedValue(reel);
    EXPECT_EQ(decodedValue<Reel>(json).segments, reel.segments);
    json["segments"][1]["transform"].erase("rollDegrees");
    EXPECT_EQ(thrown<RecordDecodingError>([&] { decodedValue<Reel>(json); }).value().keyPath(),
              "segments[1].transform.rollDegrees");
}

TEST(RecordJSON, MalformedDocumentsAreRefused) {
    for (const auto* text : {"", "{", "[1,2", "\xff\xfe", "{\"width\":1e999,\"height\":1}", "nul"}) {
        const auto error = thrown<RecordDecodingError>([&] { decodeJSON<OutputResolution>(text); });
        ASSERT_TRUE(error) << text << " was read";
        EXPECT_EQ(error->problem(), Problem::malformedDocument) << text;
    }
    EXPECT_THROW(decodeJSON<OutputResolution>("[]"), RecordDecodingError);
}

TEST(RecordJSON, WhatCannotBeReadAgainIsNotWritten) {
    auto clip = fullClip();
    clip.transform.rollDegrees = std::numeric_limits<double>::quiet_NaN();
    EXPECT_THAT(thrown<RecordEncodingError>([&] { encodeJSON(clip); }).value().what(),
                testing::HasSubstr("transform.rollDegrees"));
    auto asset = fullAsset();
    asset.displayName = "caf\xe9"; // Latin-1, from a file name
    EXPECT_EQ(decodeJSON<VideoAsset>(encodeJSON(asset)).displayName, "caf\uFFFD");
}

} // namespace
} // namespace panoveer
