#include "Panoveer/Services/Audio/AudioChannelLayouts.h"
#include "Panoveer/Services/Audio/AudioChannelMatrix.h"
#include "Panoveer/Services/Audio/ExportAudioPlanner.h"

#include <gmock/gmock.h>

#include <cmath>
#include <numeric>

namespace panoveer {

void PrintTo(const AudioChannelTap& tap, std::ostream* out) { *out << tap.gain << " x " << tap.input; }

namespace {

namespace Tags = AudioChannelLayoutTags;
using Plan = ExportAudioTrackPlan;
using Track = SourceAudioTrack;
using Row = AudioChannelMatrix::Row;
using testing::ElementsAre;
using testing::FloatNear;
using testing::IsEmpty;
using testing::SizeIs;

Track track(Track::Kind kind, int channelCount) {
    Track result;
    result.kind = std::move(kind);
    result.channelCount = channelCount;
    result.canonicalOrder.resize(std::size_t(channelCount));
    std::iota(result.canonicalOrder.begin(), result.canonicalOrder.end(), 0);
    return result;
}

Track speakers(std::vector<AudioChannelLabel> labels) {
    const auto count = int(labels.size());
    return track(Track::Speakers{std::move(labels)}, count);
}
Track stereo() { return speakers({1, 2}); }
Track surround71() { return speakers({1, 2, 3, 4, 33, 34, 5, 6}); }
Track soundField(int order, int extra = 0, AmbisonicNormalization scaling = AmbisonicNormalization::sn3d) {
    return track(Track::Ambisonic{order, scaling, extra}, (order + 1) * (order + 1) + extra);
}
Track discrete(int channels) { return track(Track::Discrete{}, channels); }

Plan planFor(const Track& source, ExportCodec codec) {
    const std::vector<std::vector<Track>> lists = {{source}};
    const auto plans = ExportAudioPlanner::plan(lists, codec, ExportAudioMode::automatic);
    EXPECT_THAT(plans, SizeIs(1));
    return plans.at(0);
}

struct PlanCase {
    const char* name;
    Track source;
    ExportCodec codec;
    Plan::Content content;
    int channelCount;
    std::int64_t bitRate; // 0: PCM
    AudioChannelLayout bufferLayout, writerLayout;
    std::optional<SpatialAudioDescriptor> spatialAudio = {};
};

class TrackPlan : public testing::TestWithParam<PlanCase> {};

TEST_P(TrackPlan, FollowsTheSourceAndTheCodec) {
    const auto& expected = GetParam();
    const auto plan = planFor(expected.source, expected.codec);
    EXPECT_EQ(plan.encoding, expected.bitRate > 0 ? Plan::Encoding(Plan::AAC{expected.bitRate}) : Plan::PCM24{});
    EXPECT_EQ(plan.content, expected.content);
    EXPECT_EQ(plan.channelCount, expected.channelCount);
    EXPECT_EQ(plan.bufferLayout, expected.bufferLayout);
    EXPECT_EQ(plan.writerLayout, expected.writerLayout);
    EXPECT_EQ(plan.spatialAudio, expected.spatialAudio);
}

AudioChannelLayout tag(AudioChannelLayoutTag value) { return {.tag = value}; }

constexpr auto hevc = ExportCodec::hevc10;
constexpr auto master = ExportCodec::proRes422HQ;
const auto quad = tag(Tags::quadraphonic);

INSTANTIATE_TEST_SUITE_P(
    , TrackPlan,
    testing::Values(
        PlanCase{"Mono", speakers({42}), hevc, Plan::Speakers{4}, 1, 128000, tag(Tags::mono), tag(Tags::mono)},
        PlanCase{"Stereo", stereo(), hevc, Plan::Speakers{3}, 2, 256000, tag(Tags::stereo), tag(Tags::stereo)},
        PlanCase{"Three", speakers({3, 1, 2}), hevc, Plan::Speakers{7}, 3, 288000, tag(Tags::mpeg30A),
                 tag(Tags::mpeg30B)},
        PlanCase{"Quad", speakers({1, 2, 5, 6}), hevc, Plan::Speakers{0x33}, 4, 384000, quad, quad},
        PlanCase{"Five", speakers({1, 2, 3, 5, 6}), hevc, Plan::Speakers{0x37}, 5, 480000, tag(Tags::mpeg50A),
                 tag(Tags::mpeg50D)},
        PlanCase{"SevenOneBecomesFiveOne", surround71(), hevc, Plan::Speakers{0x3F}, 6, 576000, tag(Tags::mpeg51A),
                 tag(Tags::mpeg51D)},
        PlanCase{"ZerothOrder", soundField(0), hevc, Plan::Speakers{4}, 1, 128000, tag(Tags::mono), tag(Tags::mono)},
        PlanCase{"ThirdOrderKeepsTheFirst", soundField(3), hevc, Plan::Ambisonic{1, 0}, 4, 384000, quad, quad,
                 SpatialAudioDescriptor{1, 4, false}},
        PlanCase{"HeadLockedIsDropped", soundField(1, 2), hevc, Plan::Ambisonic{1, 0}, 4, 384000, quad, quad,
                 SpatialAudioDescriptor{1, 4, false}},
        PlanCase{"DiscreteIsCapped", discrete(16), hevc, Plan::Discrete{}, 6, 576000, tag(Tags::mpeg51A),
                 tag(Tags::mpeg51D)},
        PlanCase{"StereoMaster", stereo(), master, Plan::Speakers{3}, 2, 0, tag(Tags::stereo), tag(Tags::stereo)},
        PlanCase{"MonoMaster", speakers({42}), master, Plan::Speakers{4}, 1, 0, tag(Tags::mono), tag(Tags::mono)},
        PlanCase{"SurroundMasterIsSorted", surround71(), master, Plan::Speakers{0x63F}, 8, 0,
                 AudioChannelLayout::ofLabels({1, 2, 3, 4, 5, 6, 10, 11}),
                 AudioChannelLayout::ofLabels({1, 2, 3, 4, 5, 6, 10, 11})},
        PlanCase{"ThirdOrderMaster", soundField(3, 1), master, Plan::Ambisonic{3, 0}, 16, 0, tag(Tags::hoaACNSN3D | 16),
                 tag(Tags::hoaACNSN3D | 16), SpatialAudioDescriptor{3, 16, false}},
        PlanCase{"HeadLockedMaster", soundField(1, 2), master, Plan::Ambisonic{1, 2}, 6, 0,
                 tag(Tags::discreteInOrder | 6), tag(Tags::discreteInOrder | 6), SpatialAudioDescriptor{1, 6, true}},
        PlanCase{"DiscreteMaster", discrete(16), master, Plan::Discrete{}, 16, 0, tag(Tags::discreteInOrder | 16),
                 tag(Tags::discreteInOrder | 16)}),
    [](const auto& each) { return each.param.name; });

TEST(ExportAudioPlannerTest, GivesAsManyTracksAsTheRichestSource) {
    auto first = stereo(), second = soundField(1), third = discrete(3);
    first.languageCode = "ita";
    second.languageCode = "eng";
    third.extendedLanguageTag = "pt-BR";
    const std::vector<std::vector<Track>> lists = {{}, {first}, {third, second}};
    const auto automatic = ExportAudioPlanner::plan(lists, hevc, ExportAudioMode::automatic);
    ASSERT_THAT(automatic, SizeIs(2));
    EXPECT_EQ(automatic[0].languageCode, "ita");
    EXPECT_EQ(automatic[0].channelCount, 2) << "of the first source that has a first track";
    EXPECT_EQ(automatic[1].languageCode, "eng");
    EXPECT_EQ(automatic[1].content, Plan::Content(Plan::Ambisonic{1, 0}));

    const auto folded = ExportAudioPlanner::plan(lists, master, ExportAudioMode::stereo);
    ASSERT_THAT(folded, SizeIs(1));
    EXPECT_EQ(folded[0].encoding, Plan::Encoding(Plan::PCM24{}));
    EXPECT_EQ(folded[0].languageCode, "ita");

    EXPECT_THAT(ExportAudioPlanner::plan(lists, hevc, ExportAudioMode::none), IsEmpty());
    const std::vector<std::vector<Track>> silent = {{}, {}};
    EXPECT_THAT(ExportAudioPlanner::plan(silent, hevc, ExportAudioMode::stereo), IsEmpty());
    EXPECT_THAT(ExportAudioPlanner::plan(silent, hevc, ExportAudioMode::automatic), IsEmpty());
}

AudioChannelMatrix conformed(const Track& source, const Plan& plan) {
    const auto result = AudioChannelMatrix::conform(source, plan);
    EXPECT_FALSE(result.decodesConverted);
    EXPECT_THAT(result.matrix.rows, SizeIs(std::size_t(plan.channelCount)));
    return result.matrix;
}

TEST(AudioChannelMatrixTest, LeavesTheMixingOfSpeakersToTheDecoder) {
    const auto result = AudioChannelMatrix::conform(surround71(), planFor(stereo(), hevc));
    EXPECT_TRUE(result.decodesConverted);
    EXPECT_EQ(result.matrix, AudioChannelMatrix::identity(2));
    EXPECT_TRUE(result.matrix.isIdentity());
}

TEST(AudioChannelMatrixTest, MakesAmbiXOfEveryScaling) {
    const auto plan = planFor(soundField(3), master);
    auto fuma = soundField(1, 0, AmbisonicNormalization::fuma);
    const auto fromFuMa = conformed(fuma, plan).rows;
    EXPECT_THAT(fromFuMa[0], ElementsAre(AudioChannelTap{0, std::sqrt(2.0f)}));
    EXPECT_THAT(fromFuMa[1], ElementsAre(AudioChannelTap{2, 1})); // Y
    EXPECT_THAT(fromFuMa[2], ElementsAre(AudioChannelTap{3, 1})); // Z
    EXPECT_THAT(fromFuMa[3], ElementsAre(AudioChannelTap{1, 1})); // X
    for (std::size_t acn = 4; acn < 16; ++acn)
        EXPECT_THAT(fromFuMa[acn], IsEmpty()) << acn;

    const auto fromN3D = conformed(soundField(3, 0, AmbisonicNormalization::n3d), plan).rows;
    const std::vector<int> degrees = {0, 1, 1, 1, 2, 2, 2, 2, 2, 3, 3, 3, 3, 3, 3, 3};
    for (std::size_t acn = 0; acn < 16; ++acn)
        EXPECT_FLOAT_EQ(fromN3D[acn].at(0).gain, float(1 / std::sqrt(2.0 * degrees[acn] + 1))) << acn;

    // Four channels of a third-order source are those of its first order.
    EXPECT_TRUE(AudioChannelMatrix::identity(4).rows == conformed(soundField(3), planFor(soundField(3), hevc)).rows);
    // What the container put elsewhere is taken from there.
    fuma.canonicalOrder = {3, 2, 1, 0};
    EXPECT_EQ(conformed(fuma, plan).rows[1], (Row{{1, 1}}));
    EXPECT_THAT(AudioChannelMatrix::ambisonicTaps(4, AmbisonicNormalization::sn3d, fuma.canonicalOrder), IsEmpty());
}

// What each output channel hears of a plane wave of amplitude 1 from an azimuth (degrees to the left), in SN3D.
std::vector<float> heard(const AudioChannelMatrix& matrix, double azimuth) {
    const double radians = azimuth * M_PI / 180;
    const std::vector<float> wave = {1, float(std::sin(radians)), 0, float(std::cos(radians))};
    std::vector<float> output;
    matrix.apply(wave, 4, 1, output);
    return output;
}

TEST(AudioChannelMatrixTest, LetsSpeakersHearASoundFieldFromTheirDirection) {
    const auto pair = conformed(soundField(1), planFor(stereo(), hevc));
    EXPECT_THAT(heard(pair, 90), ElementsAre(FloatNear(1, 1e-6f), FloatNear(0, 1e-6f)));
    EXPECT_THAT(heard(pair, -90), ElementsAre(FloatNear(0, 1e-6f), FloatNear(1, 1e-6f)));
    EXPECT_THAT(heard(pair, 0), ElementsAre(FloatNear(0.5f, 1e-6f), FloatNear(0.5f, 1e-6f)));
    EXPECT_THAT(heard(conformed(soundField(1), planFor(speakers({42}), hevc)), 180), ElementsAre(1));

    const auto surround = heard(conformed(soundField(1), planFor(surround71(), hevc)), 110);
    ASSERT_THAT(surround, SizeIs(6));
    EXPECT_EQ(surround[3], 0) << "a sound field has no low frequency effects";
    EXPECT_EQ(std::ranges::max_element(surround) - surround.begin(), 4) << "the left one behind";

    const auto headLocked = conformed(soundField(1, 2), planFor(stereo(), hevc)).rows;
    EXPECT_EQ(headLocked[0].back(), (AudioChannelTap{4, 1}));
    EXPECT_EQ(headLocked[1].back(), (AudioChannelTap{5, 1}));
}

} // namespace
} // namespace panoveer
