#include "Panoveer/Services/Audio/FFmpegChannel.h"
#include "Panoveer/Services/Audio/SourceAudioInspector.h"

#include <gmock/gmock.h>

#include <numeric>

namespace panoveer {

void PrintTo(const SourceAudioInspector::Classification& found, std::ostream* out) {
    *out << (found.kind.index() == 0   ? "speakers"
             : found.kind.index() == 1 ? "ambisonic"
                                       : "discrete")
         << ", order " << testing::PrintToString(found.canonicalOrder);
    if (const auto* speakers = std::get_if<SourceAudioTrack::Speakers>(&found.kind))
        *out << ", labels " << testing::PrintToString(speakers->labels);
}

namespace {

using Track = SourceAudioTrack;
using Labels = std::vector<AudioChannelLabel>;
namespace Tags = AudioChannelLayoutTags;

std::vector<int> counting(int count) {
    std::vector<int> order(std::size_t(count), 0);
    std::iota(order.begin(), order.end(), 0);
    return order;
}

struct ClassificationCase {
    const char* name;
    int channelCount;
    std::optional<AudioChannelLayout> layout;
    std::optional<int> ffmpegOrder;
    bool isLinearPCM;
    SourceAudioInspector::Classification expected;
};

class Classification : public testing::TestWithParam<ClassificationCase> {};

TEST_P(Classification, FollowsLayoutAndFFmpeg) {
    const auto& given = GetParam();
    EXPECT_EQ(SourceAudioInspector::classify(given.channelCount, given.layout, given.ffmpegOrder, given.isLinearPCM),
              given.expected);
}

Track::Ambisonic field(int order, AmbisonicNormalization normalization, int extra = 0) {
    return {order, normalization, extra};
}

constexpr auto sn3d = AmbisonicNormalization::sn3d;

AudioChannelLayout tagged(AudioChannelLayoutTag tag) { return {.tag = tag}; }

INSTANTIATE_TEST_SUITE_P(
    , Classification,
    testing::Values(
        ClassificationCase("OrdinaryStereo", 2, {}, {}, true, {Track::Speakers{Labels{1, 2}}, counting(2)}),
        ClassificationCase("NothingIsKnown", 4, {}, {}, true, {Track::Discrete{}, counting(4)}),
        ClassificationCase("FFmpegSeesASoundField", 4, tagged(Tags::quadraphonic), 1, false,
                           {field(1, sn3d), counting(4)}),
        ClassificationCase("HeadLockedChannelsFollow", 6, tagged(Tags::discreteInOrder | 6), 1, true,
                           {field(1, sn3d, 2), counting(6)}),
        ClassificationCase("SN3DByTag", 16, tagged(Tags::hoaACNSN3D | 16), {}, true, {field(3, sn3d), counting(16)}),
        ClassificationCase("N3DByTagWithTwoMore", 18, tagged(Tags::hoaACNN3D | 18), {}, true,
                           {field(3, AmbisonicNormalization::n3d, 2), counting(18)}),
        ClassificationCase("FuMa", 4, tagged(Tags::ambisonicBFormat), {}, true,
                           {field(1, AmbisonicNormalization::fuma), counting(4)}),
        ClassificationCase("CompressedSoundIsSorted", 6,
                           tagged(Tags::mpeg51D), // C L R Ls Rs LFE
                           {}, false, {Track::Speakers{Labels{1, 2, 3, 4, 5, 6}}, {1, 2, 0, 5, 3, 4}}),
        ClassificationCase("LinearSoundStaysInItsOrder", 6, tagged(Tags::mpeg51D), {}, true,
                           {Track::Speakers{Labels{3, 1, 2, 5, 6, 4}}, counting(6)}),
        ClassificationCase("SidesAndBack", 8,
                           tagged(Tags::mpeg71C), // L R C LFE Ls Rs Rls Rrs
                           {}, false, {Track::Speakers{Labels{1, 2, 3, 4, 33, 34, 5, 6}}, {0, 1, 2, 3, 6, 7, 4, 5}}),
        ClassificationCase("OneLabelTooFew", 3, tagged(Tags::stereo), {}, true, {Track::Discrete{}, counting(3)}),
        ClassificationCase("APlaceTwice", 3, AudioChannelLayout::ofLabels({1, 2, 2}), {}, true,
                           {Track::Discrete{}, counting(3)}),
        ClassificationCase("AnUnknownLabel", 2, AudioChannelLayout::ofLabels({1, AudioChannelLabels::unknown}), {},
                           true, {Track::Discrete{}, counting(2)})),
    [](const auto& each) { return each.param.name; });

TEST(SourceAudioInspectorTest, ReadsStreamsOfFFmpeg) {
    const auto kind = [](FFmpegAudioStreamInfo stream) { return SourceAudioInspector::inspect(stream).kind; };
    const auto surround = [](std::vector<std::int32_t> channels) {
        FFmpegAudioStreamInfo stream{.channelCount = int(channels.size()), .channelIDs = std::move(channels)};
        for (const auto id : stream.channelIDs)
            stream.channelMask |= std::uint64_t(1) << id;
        return stream;
    };
    EXPECT_EQ(kind({.channelCount = 11, .ambisonicOrder = 2}), Track::Kind(field(2, sn3d, 2)));
    EXPECT_EQ(kind({.channelCount = 2, .ambisonicOrder = 1}), Track::Kind(field(1, sn3d, 0)));
    EXPECT_EQ(kind({.channelCount = 1}), Track::Kind(Track::Speakers{Labels{AudioChannelLabels::mono}}));
    EXPECT_EQ(kind({.channelCount = 2}), Track::Kind(Track::Speakers{Labels{1, 2}}));
    EXPECT_EQ(kind({.channelCount = 3}), Track::Kind(Track::Discrete{}));
    EXPECT_EQ(kind(surround({0, 1, 2, 3, 9, 10})), Track::Kind(Track::Speakers{Labels{1, 2, 3, 4, 10, 11}}));
    EXPECT_EQ(kind(surround({0, 1, 60})), Track::Kind(Track::Discrete{})) << "a place that has no name here";
}

TEST(SourceAudioInspectorTest, PairsNativeTracksWithTheirStreams) {
    AudioTrack native;
    native.streamIndex = 2;
    native.channelCount = 4;
    native.languageCode = "ita";
    const std::vector<FFmpegAudioStreamInfo> streams = {{.streamIndex = 1, .channelCount = 2},
                                                        {.streamIndex = 2, .channelCount = 4, .ambisonicOrder = 1}};
    const auto track = SourceAudioInspector::inspect(native, streams);
    EXPECT_EQ(track.backend, Track::Backend(Track::AVFoundationBackend{2}));
    EXPECT_EQ(track.ffmpegFallbackStreamIndex, 2);
    EXPECT_EQ(track.kind, Track::Kind(field(1, sn3d)));
    EXPECT_EQ(track.languageCode, "ita");
    EXPECT_EQ(SourceAudioInspector::inspect(native, {}).ffmpegFallbackStreamIndex, std::nullopt);
}

TEST(FFmpegChannelTest, LabelsAndPlacesCorrespond) {
    std::uint64_t masks = 0;
    for (const auto channel : allFFmpegChannels()) {
        const Labels labels = {label(channel)};
        EXPECT_EQ(ffmpegChannels(labels), std::optional(std::vector{channel})) << int(channel);
        EXPECT_EQ(ffmpegChannel(std::int32_t(channel)), channel);
        masks |= mask(channel);
    }
    EXPECT_EQ(std::popcount(masks), 25);
    EXPECT_EQ(masks, 0x0000000FE003FFFFULL);
}

} // namespace
} // namespace panoveer
