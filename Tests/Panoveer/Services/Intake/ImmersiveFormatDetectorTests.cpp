#include "Panoveer/Services/Intake/GrayPictures.h"
#include "Panoveer/Services/Intake/ImmersiveFormatDetector.h"
#include "Panoveer/Services/Intake/Majority.h"
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

Evidence named(const char* fileName, Frames frames = {}) { return {.fileName = fileName, .frames = std::move(frames)}; }
Evidence contained(Container container, const char* fileName = "clip", Frames frames = {}) {
    return {.container = container, .fileName = fileName, .frames = std::move(frames)};
}
Evidence pictured(Frames frames, int width = 3840, int height = 1920, const char* fileName = "clip") {
    return {.width = width, .height = height, .fileName = fileName, .frames = std::move(frames)};
}
Evidence shaped(int width, int height, const char* fileName = "clip") { return pictured({}, width, height, fileName); }
Evidence stated(StatedImmersiveFormat format, std::optional<Container> container = {}, bool isLens = false) {
    return {.container = container, .isDualFisheyeLens = isLens, .stated = format};
}

// What the detector is to say, and of which source.
Detection as(Source source, Projection projection, Layout layout = Layout::mono, bool eyesSwapped = false) {
    return {.projection = projection, .stereoLayout = layout, .eyesSwapped = eyesSwapped, .source = source};
}
Detection dualFisheye(Source source, double degrees) {
    auto detection = as(source, Projection::domemaster, Layout::sideBySide, true);
    detection.fisheyeFieldOfView = degrees;
    detection.isDualFisheyeLens = true;
    return detection;
}
Detection withCircle(Detection detection) {
    detection.fisheyeCircle = FisheyeCircle{};
    return detection;
}
Detection withDegrees(Detection detection, double degrees) {
    detection.fisheyeFieldOfView = degrees;
    return detection;
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

using enum ProjectionFormat;
using enum StereoVideoLayout;
using enum ImmersiveFormatDetection::Source;
const auto nameOf = [](const auto& test) { return test.param.name; };
const auto sphereByShape = as(aspectRatio, equirectangular);

Detection halfSphereOfLens() {
    auto detection = as(metadata, halfEquirectangular, sideBySide);
    detection.isDualFisheyeLens = true;
    return detection;
}

Detection spatialVideo() {
    auto detection = as(metadata, standard, sideBySide);
    detection.isStereoMultiview = true;
    detection.horizontalFieldOfView = 64;
    detection.stereoBaselineMillimeters = 19.24;
    return detection;
}

INSTANTIATE_TEST_SUITE_P(
    Container, Verdicts,
    testing::Values(Verdict{"GoesBeforeTheName", contained({equirectangular, overUnder, true}, "a_fisheye_sbs"),
                            as(metadata, equirectangular, overUnder, true)},
                    Verdict{"LeavesTheLayoutToTheFrames",
                            contained({.projection = halfEquirectangular}, "clip", Frames(3, twice(sideBySide))),
                            as(metadata, halfEquirectangular, sideBySide)},
                    Verdict{"LeavesLayoutAndEyesToTheName",
                            contained({.projection = halfEquirectangular, .eyesSwapped = true}, "a_rl"),
                            as(metadata, halfEquirectangular, sideBySide, true)},
                    Verdict{"HasNoEyesToSwapInMono", contained({equirectangular, mono, true}),
                            as(metadata, equirectangular)},
                    Verdict{"LeavesTheProjectionToTheName", contained({.stereoLayout = sideBySide}, "a_360"),
                            as(metadata, equirectangular, sideBySide)},
                    Verdict{"OfSpatialVideoStaysFlat",
                            {2160, 2160, Container{standard, sideBySide, false, true, 64.0, 19.24}, "clip", false,
                             Frames(3, disc())},
                            spatialVideo()}),
    nameOf);

INSTANTIATE_TEST_SUITE_P(
    FileName, Verdicts,
    testing::Values(Verdict{"GivesTheAperture", named("clip_fisheye210_sbs"),
                            withDegrees(as(fileName, domemaster, sideBySide), 210)},
                    Verdict{"GoesBeforeTheFrames", named("clip_tb", Frames(3, twice(sideBySide))),
                            as(fileName, standard, overUnder)},
                    Verdict{"SaysWhatNoFrameOverturns", named("clip_360", seams(0.1)), as(fileName, equirectangular)},
                    Verdict{"GivesNoApertureToASphere", named("fisheye200_360"), as(fileName, equirectangular)}),
    nameOf);

INSTANTIATE_TEST_SUITE_P(
    Lens, Verdicts,
    testing::Values(
        Verdict{"IsAPairOfCrossedFisheyes", {3840, 1920, {}, "clip", true, greys()}, dualFisheye(aspectRatio, 190)},
        Verdict{"HasTheApertureOfTheName", {3840, 1920, {}, "fisheye200", true}, dualFisheye(fileName, 200)},
        Verdict{"LeavesThePictureToTheContainer",
                {3840, 1920, Container{halfEquirectangular, sideBySide}, "clip", true},
                halfSphereOfLens()}),
    nameOf);

INSTANTIATE_TEST_SUITE_P(
    Pictures, Verdicts,
    testing::Values(
        Verdict{"OfASphereMeetAtTheirEdges", pictured(seams(1)), as(imageAnalysis, equirectangular)},
        Verdict{"OfAWideFilmDoNot", pictured(seams(0.1)), as(imageAnalysis, standard)},
        Verdict{"BetweenTheTwoLeaveItToTheShape", pictured(seams(0.42)), sphereByShape},
        Verdict{"OfNothingLeaveItToTheShape", pictured(greys()), sphereByShape},
        Verdict{"InATieSayNothing", pictured({seams(1)[0], seams(0.1)[0]}), sphereByShape},
        Verdict{"InDisagreementOfAllSayNothingOfEyes", pictured({twice(sideBySide), twice(overUnder), squares()[0]}),
                sphereByShape},
        Verdict{"OfImplausibleEyesAreMono", pictured(Frames(3, twice(sideBySide)), 1920, 1080),
                as(aspectRatio, standard)},
        Verdict{"OfPlausibleEyesAreOverUnder", pictured(Frames(3, twice(overUnder)), 3840, 3840),
                as(imageAnalysis, equirectangular, overUnder)},
        Verdict{"WithACircleAreAFisheye", pictured({disc()}, 2100, 1920), withCircle(as(imageAnalysis, domemaster))},
        Verdict{"WithACircleInAWideFrameAreNot", pictured({disc()}, 1920, 1080), as(imageAnalysis, standard)},
        Verdict{"ThatAreSquareWithoutACircleAreHalfASphere", pictured(squares(), 1920, 1920),
                as(imageAnalysis, halfEquirectangular)},
        Verdict{"AreSearchedForACircleWhereTheNameSaysFisheye", pictured({disc()}, 1920, 1080, "fisheye"),
                withCircle(as(fileName, domemaster))}),
    nameOf);

INSTANTIATE_TEST_SUITE_P(
    Shape, Verdicts,
    testing::Values(Verdict{"OfASphere", {}, sphereByShape},
                    Verdict{"OfADome", shaped(4096, 4096), as(aspectRatio, domemaster)},
                    Verdict{"OfAPairOfSquares", named("sbs"), as(fileName, halfEquirectangular, sideBySide)},
                    Verdict{"OfACube", shaped(3000, 2000), as(aspectRatio, eac)},
                    Verdict{"OfAFilm", shaped(1920, 1080), as(aspectRatio, standard)},
                    Verdict{"OfNothing", shaped(0, 0), as(aspectRatio, standard)},
                    Verdict{"OfALine", shaped(1, 0, "tb"), as(fileName, halfEquirectangular, overUnder)}),
    nameOf);

INSTANTIATE_TEST_SUITE_P(
    Statement, Verdicts,
    testing::Values(Verdict{"GoesBeforeTheContainer",
                            stated({halfEquirectangular, sideBySide}, Container{equirectangular, overUnder, true}),
                            as(metadata, halfEquirectangular, sideBySide)},
                    Verdict{"OfAFisheyeHasItsCircleSearched",
                            {1920, 1080, {}, "clip", false, {disc()}, {.projection = domemaster}},
                            withCircle(as(imageAnalysis, domemaster))},
                    Verdict{"OfAnotherProjectionTakesTheLensAway",
                            stated({.projection = halfEquirectangular}, {}, true),
                            as(aspectRatio, halfEquirectangular)},
                    Verdict{"OfTheEyesGoesBeforeAll",
                            stated({.eyesSwapped = false}, Container{halfEquirectangular, sideBySide, true}),
                            as(metadata, halfEquirectangular, sideBySide)},
                    Verdict{"OfSwappedEyesMeansNothingInMono", stated({equirectangular, mono, true}), sphereByShape}),
    nameOf);

TEST(Majority, IsMoreThanHalfOfTheVotes) {
    EXPECT_EQ(majority(std::vector<int>{}), std::nullopt);
    EXPECT_EQ(majority(std::vector{7}), 7);
    EXPECT_EQ(majority(std::vector{1, 2}), std::nullopt);
    EXPECT_EQ(majority(std::vector{2, 1, 2}), 2);
    EXPECT_EQ(majority(std::vector{1, 1, 2, 3}), std::nullopt);
    EXPECT_EQ(majority(std::vector<bool>{false, true, false}), false);
}

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

struct Recording {
    const char* name;
    test::SyntheticClip clip;
    Source source = imageAnalysis;

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
    testing::Values(Recording{"Film", Clip{11, standard, mono, false, 512, 288}},
                    // The bars make its halves alike, though not alike enough.
                    Recording{"FilmBetweenBars", Clip{12, standard, mono, false, 512, 288, {}, 180, false, 0, 0, 0.12},
                              aspectRatio},
                    Recording{"FilmPair", Clip{13, standard, sideBySide, false, 768, 216}},
                    Recording{"SphereInNoise", Clip{22, equirectangular, mono, false, 512, 256, {}, 180, false, 0.015}},
                    Recording{"SphereAtNight", Clip{23, equirectangular, mono, false, 512, 256, {}, 180, true, 0.01}},
                    Recording{"SpherePair", Clip{24, equirectangular, overUnder, false, 512, 512}},
                    Recording{"SpherePairSwapped", Clip{25, equirectangular, overUnder, true, 512, 512}},
                    Recording{"SpherePairSideBySide", Clip{26, equirectangular, sideBySide, true, 1024, 256}},
                    Recording{"HalfSphere", Clip{31, halfEquirectangular, mono, false, 384, 384}},
                    Recording{"HalfSpherePair", Clip{32, halfEquirectangular, sideBySide, false, 768, 384}},
                    Recording{"HalfSpherePairSwapped", Clip{33, halfEquirectangular, sideBySide, true, 768, 384}},
                    Recording{"Fisheye", Clip{41, domemaster, mono, false, 384, 384, {0.52, 0.49, 0.46}, 200}},
                    Recording{"FisheyeWithGreyCorners",
                              Clip{42, domemaster, mono, false, 384, 384, {0.5, 0.5, 0.48}, 180, false, 0.02, 0.05}},
                    Recording{"FisheyePair", Clip{43, domemaster, sideBySide, false, 768, 384, {0.5, 0.5, 0.47}, 190}},
                    Recording{"FisheyePairSwapped",
                              Clip{44, domemaster, sideBySide, true, 768, 384, {0.5, 0.5, 0.47}, 190}},
                    Recording{"EquiAngularPair", Clip{51, eac, overUnder, false, 480, 640}}),
    nameOf);

} // namespace
} // namespace panoveer
