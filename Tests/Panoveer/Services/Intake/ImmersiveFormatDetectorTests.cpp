#include "Panoveer/Services/Intake/GrayPictures.h"
#include "Panoveer/Services/Intake/ImmersiveFormatDetector.h"
#include "Support/SyntheticWorld.h"

#include <gtest/gtest.h>

#include <cmath>

namespace panoveer {

// What GoogleTest shows of a detection that is not the expected one.
void PrintTo(const ImmersiveFormatDetection& detection, std::ostream* stream) {
    *stream << "projection " << int(detection.projection) << ", layout " << int(detection.stereoLayout) << ", swapped "
            << detection.eyesSwapped << ", circle " << detection.fisheyeCircle.has_value() << ", degrees "
            << detection.fisheyeFieldOfView.value_or(0) << ", lens " << detection.isDualFisheyeLens << ", source "
            << int(detection.source);
}

namespace {

using Projection = ProjectionFormat;
using Layout = StereoVideoLayout;
using Source = ImmersiveFormatDetection::Source;
using Detection = ImmersiveFormatDetection;
using Container = ContainerImmersiveMetadata;
using Frames = std::vector<GrayscaleImage>;

struct Evidence {
    int width = 3840;
    int height = 1920;
    std::optional<Container> container = {};
    const char* fileName = "clip";
    bool isDualFisheyeLens = false;
    Frames frames = {};
    StatedImmersiveFormat stated = {};
};

Detection detect(const Evidence& evidence) {
    return ImmersiveFormatDetector::detect(evidence.width, evidence.height, evidence.container, evidence.fileName,
                                           evidence.isDualFisheyeLens, evidence.frames, evidence.stated);
}

// Three frames that say nothing of eyes, and of a seam so much.
Frames seams(double likeness) { return Frames(3, test::withSeam(64, 1000, likeness)); }
Frames greys() { return Frames(3, test::flat(64, 64, 0.5)); }
Frames squares() { return Frames(3, test::whiteNoise(256, 256, 0.5, 1)); }

// Two eyes that see the same noise.
GrayscaleImage twice(Layout layout) {
    const auto eye = test::whiteNoise(128, 128, 0.5, 4);
    return layout == Layout::sideBySide
               ? test::painted(256, 128, [&](int x, int y) { return eye.row(y)[std::size_t(x % 128)]; })
               : test::painted(128, 256, [&](int x, int y) { return eye.row(y % 128)[std::size_t(x)]; });
}

GrayscaleImage disc() {
    return test::painted(256, 256, [](int x, int y) { return std::hypot(x - 127.5, y - 127.5) < 100 ? 0.6 : 0.0; });
}

struct Verdict {
    const char* name;
    Evidence evidence;
    Detection expected;

    friend std::ostream& operator<<(std::ostream& stream, const Verdict& verdict) { return stream << verdict.name; }
};

class Verdicts : public testing::TestWithParam<Verdict> {};

TEST_P(Verdicts, FollowTheEvidenceInTheOrderOfItsTrust) {
    auto found = detect(GetParam().evidence);
    // Where circles lie is tested beside their search.
    if (GetParam().expected.fisheyeCircle && found.fisheyeCircle)
        found.fisheyeCircle = GetParam().expected.fisheyeCircle;
    EXPECT_EQ(found, GetParam().expected);
}

const Detection sphereByShape{.projection = Projection::equirectangular};

INSTANTIATE_TEST_SUITE_P(
    Container, Verdicts,
    testing::Values(Verdict{"GoesBeforeTheName",
                            {.container = Container{Projection::equirectangular, Layout::overUnder, true},
                             .fileName = "a_fisheye_sbs"},
                            {.projection = Projection::equirectangular,
                             .stereoLayout = Layout::overUnder,
                             .eyesSwapped = true,
                             .source = Source::metadata}},
                    Verdict{"LeavesTheLayoutToTheFrames",
                            {.container = Container{.projection = Projection::halfEquirectangular},
                             .frames = Frames(3, twice(Layout::sideBySide))},
                            {.projection = Projection::halfEquirectangular,
                             .stereoLayout = Layout::sideBySide,
                             .source = Source::metadata}},
                    Verdict{"LeavesLayoutAndEyesToTheName",
                            {.container = Container{.projection = Projection::halfEquirectangular, .eyesSwapped = true},
                             .fileName = "a_rl"},
                            {.projection = Projection::halfEquirectangular,
                             .stereoLayout = Layout::sideBySide,
                             .eyesSwapped = true,
                             .source = Source::metadata}},
                    Verdict{"HasNoEyesToSwapInMono",
                            {.container = Container{Projection::equirectangular, Layout::mono, true}},
                            {.projection = Projection::equirectangular, .source = Source::metadata}},
                    Verdict{"LeavesTheProjectionToTheName",
                            {.container = Container{.stereoLayout = Layout::sideBySide}, .fileName = "a_360"},
                            {.projection = Projection::equirectangular,
                             .stereoLayout = Layout::sideBySide,
                             .source = Source::metadata}},
                    Verdict{"OfSpatialVideoStaysFlat",
                            {.width = 2160,
                             .height = 2160,
                             .container = Container{Projection::standard, Layout::sideBySide, false, true, 64.0, 19.24},
                             .frames = Frames(3, disc())},
                            {.projection = Projection::standard,
                             .stereoLayout = Layout::sideBySide,
                             .source = Source::metadata,
                             .isStereoMultiview = true,
                             .horizontalFieldOfView = 64,
                             .stereoBaselineMillimeters = 19.24}}),
    [](const auto& parameter) { return parameter.param.name; });

INSTANTIATE_TEST_SUITE_P(
    FileName, Verdicts,
    testing::Values(
        Verdict{"GivesTheAperture",
                {.fileName = "clip_fisheye210_sbs"},
                {.projection = Projection::domemaster,
                 .stereoLayout = Layout::sideBySide,
                 .fisheyeFieldOfView = 210,
                 .source = Source::fileName}},
        Verdict{"GoesBeforeTheFrames",
                {.fileName = "clip_tb", .frames = Frames(3, twice(Layout::sideBySide))},
                {.projection = Projection::standard, .stereoLayout = Layout::overUnder, .source = Source::fileName}},
        Verdict{"SaysWhatNoFrameOverturns",
                {.fileName = "clip_360", .frames = seams(0.1)},
                {.projection = Projection::equirectangular, .source = Source::fileName}},
        Verdict{"GivesNoApertureToASphere",
                {.fileName = "fisheye200_360"},
                {.projection = Projection::equirectangular, .source = Source::fileName}}),
    [](const auto& parameter) { return parameter.param.name; });

INSTANTIATE_TEST_SUITE_P(Lens, Verdicts,
                         testing::Values(Verdict{"IsAPairOfCrossedFisheyes",
                                                 {.isDualFisheyeLens = true, .frames = greys()},
                                                 {.projection = Projection::domemaster,
                                                  .stereoLayout = Layout::sideBySide,
                                                  .eyesSwapped = true,
                                                  .fisheyeFieldOfView = 190,
                                                  .isDualFisheyeLens = true}},
                                         Verdict{"HasTheApertureOfTheName",
                                                 {.fileName = "fisheye200", .isDualFisheyeLens = true},
                                                 {.projection = Projection::domemaster,
                                                  .stereoLayout = Layout::sideBySide,
                                                  .eyesSwapped = true,
                                                  .fisheyeFieldOfView = 200,
                                                  .isDualFisheyeLens = true,
                                                  .source = Source::fileName}},
                                         Verdict{"LeavesThePictureToTheContainer",
                                                 {.container = Container{Projection::halfEquirectangular,
                                                                         Layout::sideBySide},
                                                  .isDualFisheyeLens = true},
                                                 {.projection = Projection::halfEquirectangular,
                                                  .stereoLayout = Layout::sideBySide,
                                                  .isDualFisheyeLens = true,
                                                  .source = Source::metadata}}),
                         [](const auto& parameter) { return parameter.param.name; });

INSTANTIATE_TEST_SUITE_P(
    Pictures, Verdicts,
    testing::Values(
        Verdict{"OfASphereMeetAtTheirEdges",
                {.frames = seams(1)},
                {.projection = Projection::equirectangular, .source = Source::imageAnalysis}},
        Verdict{"OfAWideFilmDoNot",
                {.frames = seams(0.1)},
                {.projection = Projection::standard, .source = Source::imageAnalysis}},
        Verdict{"BetweenTheTwoLeaveItToTheShape", {.frames = seams(0.42)}, sphereByShape},
        Verdict{"OfNothingLeaveItToTheShape", {.frames = greys()}, sphereByShape},
        Verdict{"InATieSayNothing", {.frames = {seams(1)[0], seams(0.1)[0]}}, sphereByShape},
        Verdict{"InDisagreementOfAllSayNothingOfEyes",
                {.frames = {twice(Layout::sideBySide), twice(Layout::overUnder), squares()[0]}},
                sphereByShape},
        Verdict{"OfImplausibleEyesAreMono",
                {.width = 1920, .height = 1080, .frames = Frames(3, twice(Layout::sideBySide))},
                {.projection = Projection::standard}},
        Verdict{"OfPlausibleEyesAreOverUnder",
                {.width = 3840, .height = 3840, .frames = Frames(3, twice(Layout::overUnder))},
                {.projection = Projection::equirectangular,
                 .stereoLayout = Layout::overUnder,
                 .source = Source::imageAnalysis}},
        Verdict{
            "WithACircleAreAFisheye",
            {.width = 2100, .height = 1920, .frames = {disc()}},
            {.projection = Projection::domemaster, .fisheyeCircle = FisheyeCircle{}, .source = Source::imageAnalysis}},
        Verdict{"WithACircleInAWideFrameAreNot",
                {.width = 1920, .height = 1080, .frames = {disc()}},
                {.projection = Projection::standard, .source = Source::imageAnalysis}},
        Verdict{"ThatAreSquareWithoutACircleAreHalfASphere",
                {.width = 1920, .height = 1920, .frames = squares()},
                {.projection = Projection::halfEquirectangular, .source = Source::imageAnalysis}},
        Verdict{"AreSearchedForACircleWhereTheNameSaysFisheye",
                {.width = 1920, .height = 1080, .fileName = "fisheye", .frames = {disc()}},
                {.projection = Projection::domemaster, .fisheyeCircle = FisheyeCircle{}, .source = Source::fileName}}),
    [](const auto& parameter) { return parameter.param.name; });

INSTANTIATE_TEST_SUITE_P(
    Shape, Verdicts,
    testing::Values(Verdict{"OfASphere", {}, sphereByShape},
                    Verdict{"OfADome", {.width = 4096, .height = 4096}, {.projection = Projection::domemaster}},
                    Verdict{"OfAPairOfSquares",
                            {.fileName = "sbs"},
                            {.projection = Projection::halfEquirectangular,
                             .stereoLayout = Layout::sideBySide,
                             .source = Source::fileName}},
                    Verdict{"OfACube", {.width = 3000, .height = 2000}, {.projection = Projection::eac}},
                    Verdict{"OfAFilm", {.width = 1920, .height = 1080}, {.projection = Projection::standard}},
                    Verdict{"OfNothing", {.width = 0, .height = 0}, {.projection = Projection::standard}},
                    Verdict{"OfALine",
                            {.width = 1, .height = 0, .fileName = "tb"},
                            {.projection = Projection::halfEquirectangular,
                             .stereoLayout = Layout::overUnder,
                             .source = Source::fileName}}),
    [](const auto& parameter) { return parameter.param.name; });

INSTANTIATE_TEST_SUITE_P(
    Statement, Verdicts,
    testing::Values(
        Verdict{"GoesBeforeTheContainer",
                {.container = Container{Projection::equirectangular, Layout::overUnder, true},
                 .stated = {Projection::halfEquirectangular, Layout::sideBySide}},
                {.projection = Projection::halfEquirectangular,
                 .stereoLayout = Layout::sideBySide,
                 .source = Source::metadata}},
        Verdict{
            "OfAFisheyeHasItsCircleSearched",
            {.width = 1920, .height = 1080, .frames = {disc()}, .stated = {.projection = Projection::domemaster}},
            {.projection = Projection::domemaster, .fisheyeCircle = FisheyeCircle{}, .source = Source::imageAnalysis}},
        Verdict{"OfAnotherProjectionTakesTheLensAway",
                {.isDualFisheyeLens = true, .stated = {.projection = Projection::halfEquirectangular}},
                {.projection = Projection::halfEquirectangular}},
        Verdict{"OfTheEyesGoesBeforeAll",
                {.container = Container{Projection::halfEquirectangular, Layout::sideBySide, true},
                 .stated = {.eyesSwapped = false}},
                {.projection = Projection::halfEquirectangular,
                 .stereoLayout = Layout::sideBySide,
                 .source = Source::metadata}},
        Verdict{"OfSwappedEyesMeansNothingInMono",
                {.stated = {Projection::equirectangular, Layout::mono, true}},
                sphereByShape}),
    [](const auto& parameter) { return parameter.param.name; });

TEST(StereoVote, NeedsAGoodMatchAndALead) {
    struct Row {
        std::optional<double> sideBySide, overUnder;
        std::optional<Layout> vote;
    };
    for (const auto& row : {
             Row{0.95, 0.5, Layout::sideBySide},
             Row{0.5, 0.95, Layout::overUnder},
             Row{0.9, 0.75, Layout::sideBySide},
             Row{0.89, 0.2, std::nullopt},
             Row{0.97, 0.9, std::nullopt},
             Row{0.5, 0.59, Layout::mono},
             Row{0.5, 0.6, std::nullopt},
             Row{-1, -1, std::nullopt},
             Row{-1, -0.2, Layout::mono},
             Row{{}, 0.95, Layout::overUnder},
             Row{{}, 0.3, Layout::mono},
             Row{{}, -1, std::nullopt},
             Row{0.9, {}, Layout::sideBySide},
             Row{0.3, {}, Layout::mono},
             Row{0.7, {}, std::nullopt},
             Row{-1, {}, std::nullopt},
             Row{{}, {}, std::nullopt},
         })
        EXPECT_EQ(ImmersiveFormatDetector::stereoVote(row.sideBySide, row.overUnder), row.vote)
            << row.sideBySide.value_or(-9) << ' ' << row.overUnder.value_or(-9);
}

TEST(Plausibility, GoesByTheShapeOfAnEye) {
    using ImmersiveFormatDetector::isPlausible;
    EXPECT_TRUE(isPlausible(Layout::mono, 1, 999, Projection::standard));
    EXPECT_TRUE(isPlausible(Layout::sideBySide, 3840, 1080, Projection::standard));
    EXPECT_FALSE(isPlausible(Layout::sideBySide, 1920, 1080, Projection::standard));
    EXPECT_FALSE(isPlausible(Layout::sideBySide, 3840, 1920, Projection::equirectangular));
    EXPECT_TRUE(isPlausible(Layout::overUnder, 3840, 3840, Projection::equirectangular));
    EXPECT_TRUE(isPlausible(Layout::sideBySide, 3840, 1920, Projection::domemaster));
    EXPECT_TRUE(isPlausible(Layout::overUnder, 3000, 4000, Projection::eac));
    EXPECT_TRUE(isPlausible(Layout::sideBySide, 3840, 1920, std::nullopt));
    EXPECT_TRUE(isPlausible(Layout::sideBySide, 2000, 926, Projection::domemaster));
    EXPECT_FALSE(isPlausible(Layout::sideBySide, 2000, 925, Projection::domemaster)) << "off by more than 8 %";
    EXPECT_FALSE(isPlausible(Layout::overUnder, 0, 0, std::nullopt));
}

TEST(ImmersiveFormatDetector, HasAnAnswerForEveryFrame) {
    const Frames frames = {{},
                           test::flat(1, 1, NAN),
                           test::flat(2, 1, 1e30),
                           test::flat(1, 300, INFINITY),
                           test::whiteNoise(3, 3, 0.5, 1)};
    for (const int width : {-5, 0, 1, 2000, 4000})
        for (const int height : {-5, 0, 1, 1000, 2000, 4000})
            for (const auto* name : {"", "sbs", "tb", "fisheye sbs", "fisheye tb"})
                for (const bool isLens : {false, true})
                    EXPECT_NE(detect({.width = width,
                                      .height = height,
                                      .fileName = name,
                                      .isDualFisheyeLens = isLens,
                                      .frames = frames})
                                  .projection,
                              Projection::mirrorDome);
}

struct Recording {
    const char* name;
    test::SyntheticClip clip;
    Source source = Source::imageAnalysis;

    friend std::ostream& operator<<(std::ostream& stream, const Recording& recording) {
        return stream << recording.name;
    }
};

class Recordings : public testing::TestWithParam<Recording> {};

// Pictures alone, of a world whose format is known.
TEST_P(Recordings, AreRecognised) {
    const auto& clip = GetParam().clip;
    const auto found = detect({.width = clip.width, .height = clip.height, .frames = test::sampleFrames(clip)});
    EXPECT_EQ(found.projection, clip.projection);
    EXPECT_EQ(found.stereoLayout, clip.stereoLayout);
    EXPECT_EQ(found.eyesSwapped, clip.eyesSwapped);
    EXPECT_EQ(found.source, GetParam().source);
    EXPECT_EQ(found.fisheyeCircle.has_value(), clip.projection == Projection::domemaster);
    if (!found.fisheyeCircle)
        return;
    EXPECT_NEAR(found.fisheyeCircle->centerX, clip.circle.centerX, 0.01);
    EXPECT_NEAR(found.fisheyeCircle->centerY, clip.circle.centerY, 0.01);
    EXPECT_NEAR(found.fisheyeCircle->radius, clip.circle.radius, 0.01);
}

using Clip = test::SyntheticClip;

INSTANTIATE_TEST_SUITE_P(
    Synthetic, Recordings,
    testing::Values(
        Recording{"Film", Clip{11, Projection::standard, Layout::mono, false, 512, 288}},
        // The bars make its halves alike, though not alike enough.
        Recording{"FilmBetweenBars",
                  Clip{12, Projection::standard, Layout::mono, false, 512, 288, {}, 180, false, 0, 0, 0.12},
                  Source::aspectRatio},
        Recording{"FilmPair", Clip{13, Projection::standard, Layout::sideBySide, false, 768, 216}},
        Recording{"Sphere", Clip{21, Projection::equirectangular, Layout::mono, false, 512, 256}},
        Recording{"SphereInNoise",
                  Clip{22, Projection::equirectangular, Layout::mono, false, 512, 256, {}, 180, false, 0.015}},
        Recording{"SphereAtNight",
                  Clip{23, Projection::equirectangular, Layout::mono, false, 512, 256, {}, 180, true, 0.01}},
        Recording{"SpherePair", Clip{24, Projection::equirectangular, Layout::overUnder, false, 512, 512}},
        Recording{"SpherePairSwapped", Clip{25, Projection::equirectangular, Layout::overUnder, true, 512, 512}},
        Recording{"SpherePairSideBySide", Clip{26, Projection::equirectangular, Layout::sideBySide, true, 1024, 256}},
        Recording{"HalfSphere", Clip{31, Projection::halfEquirectangular, Layout::mono, false, 384, 384}},
        Recording{"HalfSpherePair", Clip{32, Projection::halfEquirectangular, Layout::sideBySide, false, 768, 384}},
        Recording{"HalfSpherePairSwapped",
                  Clip{33, Projection::halfEquirectangular, Layout::sideBySide, true, 768, 384}},
        Recording{"Fisheye", Clip{41, Projection::domemaster, Layout::mono, false, 384, 384, {0.52, 0.49, 0.46}, 200}},
        Recording{
            "FisheyeWithGreyCorners",
            Clip{42, Projection::domemaster, Layout::mono, false, 384, 384, {0.5, 0.5, 0.48}, 180, false, 0.02, 0.05}},
        Recording{"FisheyePair",
                  Clip{43, Projection::domemaster, Layout::sideBySide, false, 768, 384, {0.5, 0.5, 0.47}, 190}},
        Recording{"FisheyePairSwapped",
                  Clip{44, Projection::domemaster, Layout::sideBySide, true, 768, 384, {0.5, 0.5, 0.47}, 190}},
        Recording{"EquiAngularPair", Clip{51, Projection::eac, Layout::overUnder, false, 480, 640}}),
    [](const auto& parameter) { return parameter.param.name; });

} // namespace
} // namespace panoveer
