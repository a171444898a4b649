#include "Clips.h"
#include "Panoveer/Services/Audio/ExportAudioPlanner.h"
#include "Panoveer/Services/Diagnostics/GenerationFailureDescriber.h"
#include "Panoveer/Services/Export/ExportAudioTrackFeeder.h"
#include "Panoveer/Services/Export/VRExportError.h"

#include <gmock/gmock.h>

#include <cmath>
#include <limits>
#include <numeric>
#include <set>
#include <utility>

namespace panoveer {
namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Pair;

constexpr double frameSeconds = 1.0 / audioSampleRate;

// Keeps what a feeder appends, and holds it to the rules of an input.
class RecordingAudioInput final : public AudioInput {
public:
    bool isReadyForMoreMediaData() const override { return true; }
    bool append(AudioSampleBuffer buffer) override {
        EXPECT_EQ(buffer.presentationTime, (MediaTime{frames, audioSampleRate}));
        EXPECT_EQ(std::int64_t(buffer.samples.size()), buffer.frames * buffer.format->channelCount);
        EXPECT_GT(buffer.frames, 0);
        frames += buffer.frames;
        samples.insert(samples.end(), buffer.samples.begin(), buffer.samples.end());
        largestSilence = std::max(largestSilence, buffer.samples.front() == 0 ? buffer.frames : 0);
        return frames <= refusedFrom;
    }
    void markAsFinished() override {}

    std::vector<float> samples;
    std::int64_t frames = 0;
    std::int64_t largestSilence = 0; // of the buffers that begin with a zero
    std::int64_t refusedFrom = std::numeric_limits<std::int64_t>::max();
};

class ScriptedSource final : public AudioBlockSource {
public:
    explicit ScriptedSource(std::vector<AudioBlock> blocks, bool failsAtEnd = false)
        : blocks_(std::move(blocks)), failsAtEnd_(failsAtEnd) {}
    std::optional<AudioBlock> next() override {
        if (next_ < blocks_.size())
            return blocks_[next_++];
        if (failsAtEnd_)
            throw Error("the decoder gave up");
        return std::nullopt;
    }

private:
    std::vector<AudioBlock> blocks_;
    std::size_t next_ = 0;
    bool failsAtEnd_;
};

// One channel whose samples are numbered from `first` on; numbers below 2^24 are exact.
AudioBlock numbered(std::optional<double> seconds, std::int64_t first, std::int64_t frames) {
    AudioBlock block{std::vector<float>(std::size_t(frames)), frames, 1, seconds};
    std::iota(block.samples.begin(), block.samples.end(), float(first));
    return block;
}

// Runs of the output: number of the first sample, or 0 for silence, and how many.
using Samples = std::pair<std::int64_t, std::int64_t>;
std::vector<Samples> runs(const std::vector<float>& samples) {
    std::vector<Samples> result;
    for (const float sample : samples) {
        const auto number = std::int64_t(sample);
        const bool goesOn = !result.empty() && (number == 0 ? result.back().first == 0
                                                            : result.back().first != 0 &&
                                                                  number == result.back().first + result.back().second);
        if (goesOn)
            ++result.back().second;
        else
            result.emplace_back(number, 1);
    }
    return result;
}

class KeptEvents final : public ExportDiagnostics {
public:
    void record(std::string_view event, const DiagnosticFields& fields) override { events.emplace_back(event, fields); }
    std::ptrdiff_t count(const std::string& name) const {
        return std::ranges::count(events, name, &std::pair<std::string, DiagnosticFields>::first);
    }
    std::vector<std::pair<std::string, DiagnosticFields>> events;
};

class ExportAudioTrackFeederTest : public testing::Test {
protected:
    ExportAudioTrackFeederTest() {
        track.backend = SourceAudioTrack::FFmpegBackend{1};
        track.channelCount = 1;
        track.kind = SourceAudioTrack::Speakers{{AudioChannelLabels::mono}};
        track.canonicalOrder = {0};
    }

    void run(const std::vector<VRClipSegment>& segments, const SourceAudioTracks& sources) {
        input.samples.clear();
        input.frames = 0;
        ExportAudioTrackFeeder feeder(plan, input, 0, [] {}, &diagnostics, roads);
        feeder.run(segments, sources, stop.get_token());
        EXPECT_EQ(feeder.framesWritten(), input.frames);
    }
    void run(const VRClipSegment& segment) { run({segment}, {{segment.sourceURL, {track}}}); }

    void script(std::vector<AudioBlock> blocks) {
        roads.openFFmpeg = [blocks](auto&&...) { return std::make_unique<ScriptedSource>(blocks); };
    }

    ExportAudioTrackPlan plan = ExportAudioPlanner::speakerDeliveryPlan(1);
    SourceAudioTrack track;
    AudioRoads roads;
    RecordingAudioInput input;
    KeptEvents diagnostics;
    std::stop_source stop;
};

struct StepCase {
    const char* name;
    std::vector<std::pair<std::optional<double>, std::int64_t>> blocks; // frames behind the segment's start, length
    std::vector<Samples> expected;
    std::int64_t decoded;
};

class InStep : public ExportAudioTrackFeederTest, public testing::WithParamInterface<StepCase> {};

TEST_P(InStep, WhateverTheSourceDoes) {
    constexpr double start = 10;
    std::vector<AudioBlock> blocks;
    std::int64_t number = 1;
    for (const auto& [offset, frames] : GetParam().blocks) {
        const auto seconds = offset ? std::optional(start + *offset * frameSeconds) : std::nullopt;
        blocks.push_back(numbered(seconds, number, frames));
        number += frames;
    }
    script(blocks);
    run(clipOf("/source", start, start + 1000 * frameSeconds));
    EXPECT_THAT(runs(input.samples), ElementsAreArray(GetParam().expected));
    const auto& fields = diagnostics.events.at(0).second;
    EXPECT_EQ(fields.at("decoded_frames"), DiagnosticValue(GetParam().decoded));
    EXPECT_EQ(fields.at("padded_frames"), DiagnosticValue(1000 - GetParam().decoded));
}

constexpr double nan = std::numeric_limits<double>::quiet_NaN();

INSTANTIATE_TEST_SUITE_P(
    , InStep,
    testing::Values(StepCase{"Complete", {{0, 600}, {600, 400}}, {{1, 1000}}, 1000},
                    StepCase{"ThreeFramesLate", {{3, 997}}, {{0, 3}, {1, 997}}, 1000},
                    StepCase{"TwoFramesLateAreRounding", {{2, 998}}, {{1, 998}, {0, 2}}, 998},
                    StepCase{"ThreeFramesEarly", {{-3, 1003}}, {{4, 1000}}, 1000},
                    StepCase{"TwoFramesEarlyAreRounding", {{-2, 1002}}, {{1, 1000}}, 1000},
                    StepCase{"Short", {{0, 300}}, {{1, 300}, {0, 700}}, 300},
                    StepCase{"AHole", {{0, 300}, {500, 500}}, {{1, 300}, {0, 200}, {301, 500}}, 1000},
                    StepCase{"AnOverlap", {{0, 600}, {500, 500}}, {{1, 600}, {701, 400}}, 1000},
                    StepCase{"ABlockAlreadyHeard", {{0, 600}, {100, 300}, {600, 400}}, {{1, 600}, {901, 400}}, 1000},
                    StepCase{"LongerThanTheSegment", {{0, 5000}}, {{1, 1000}}, 1000},
                    StepCase{"BehindTheSegment", {{2000, 500}}, {{0, 1000}}, 1000},
                    StepCase{"NoTimes", {{{}, 400}, {{}, 400}}, {{1, 800}, {0, 200}}, 800},
                    StepCase{"TimesThatAreNone", {{nan, 400}, {1e300, 400}}, {{1, 400}, {0, 600}}, 1000},
                    StepCase{"DriftOfAFrameAtATime",
                             {{0, 300}, {302, 300}, {604, 300}},
                             {{1, 600}, {0, 4}, {601, 300}, {0, 96}},
                             904},
                    StepCase{"Nothing", {}, {{0, 1000}}, 0}),
    [](const auto& each) { return each.param.name; });

TEST_F(ExportAudioTrackFeederTest, PutsEverySegmentWhereItsPictureIs) {
    struct Film {
        double seconds;
        int segments;
    };
    for (const auto& [length, count] : {Film{1 / 30.0, 1000}, Film{1001 / 30000.0, 1000}, Film{1 / 44100.0, 3000}}) {
        std::vector<VRClipSegment> segments;
        for (int index = 0; index < count; ++index)
            segments.push_back(clipOf("/source", index * length, (index + 1) * length));
        roads.openFFmpeg = [](const URL&, std::int32_t, double start, double duration, auto&&...) {
            const auto first = std::llround(start * audioSampleRate);
            return std::make_unique<ScriptedSource>(
                std::vector{numbered(start, first + 1, std::llround(duration * audioSampleRate) + 2)});
        };
        run(segments, {{segments.front().sourceURL, {track}}});
        EXPECT_EQ(input.frames, std::llround(count * length * audioSampleRate));
        // A source that is cut up and put together again sounds as before, to the frame.
        float worst = 0;
        for (std::size_t frame = 0; frame < input.samples.size(); ++frame)
            worst = std::max(worst, std::abs(input.samples[frame] - float(frame + 1)));
        EXPECT_LE(worst, 1) << "segments of " << length;
    }
}

TEST_F(ExportAudioTrackFeederTest, FillsClipsWithoutSoundWithSmallBlocksOfSilence) {
    script({numbered(0, 1, 10000)});
    auto silent = clipOf("/silent", 0, 10000 * frameSeconds), reversed = clipOf("/source", 5, 4);
    run({silent, reversed, clipOf("/source", 0, 10 * frameSeconds), clipOf("/unknown", 0, 5 * frameSeconds)},
        {{silent.sourceURL, {}}, {reversed.sourceURL, {track}}});
    EXPECT_THAT(runs(input.samples), ElementsAre(Samples(0, 10000), Samples(1, 10), Samples(0, 5)));
    EXPECT_LE(input.largestSilence, 4096);
    EXPECT_EQ(diagnostics.count("audio_segment_conformed"), 4);
    EXPECT_EQ(diagnostics.events[0].second.at("decoded_frames"), DiagnosticValue(std::int64_t(0)));
}

TEST_F(ExportAudioTrackFeederTest, AsksTheDecoderForTheLayoutOfThePlan) {
    std::optional<AudioChannelLayout> asked;
    std::vector<std::uint64_t> masks;
    roads.openNative = [&](const URL&, std::int32_t, double, const std::optional<AudioChannelLayout>& layout,
                           auto&&...) {
        asked = layout;
        return std::make_unique<ScriptedSource>(std::vector<AudioBlock>{}, true);
    };
    roads.openFFmpeg = [&](const URL&, std::int32_t, double, double, std::uint64_t mask, auto&&...) {
        masks.push_back(mask);
        return std::make_unique<ScriptedSource>(std::vector<AudioBlock>{});
    };
    plan = ExportAudioPlanner::speakerDeliveryPlan(6);
    track.backend = SourceAudioTrack::AVFoundationBackend{1};
    track.ffmpegFallbackStreamIndex = 1;
    const auto clip = clipOf("/source", 0, 0.01);
    run(clip);
    EXPECT_EQ(asked, plan.bufferLayout);
    track.kind = SourceAudioTrack::Discrete{};
    run(clip);
    EXPECT_EQ(asked, std::nullopt) << "channels without places keep their numbers";
    EXPECT_THAT(masks, ElementsAre(0x3Fu, 0u));
}

TEST_F(ExportAudioTrackFeederTest, MixesByTheMatrixWhereThereIsOne) {
    plan = ExportAudioPlanner::plan(std::vector<std::vector<SourceAudioTrack>>{{[] {
                                        SourceAudioTrack field;
                                        field.kind = SourceAudioTrack::Ambisonic{};
                                        field.channelCount = 4;
                                        return field;
                                    }()}},
                                    ExportCodec::hevc8, ExportAudioMode::automatic)
               .at(0);
    track.kind = SourceAudioTrack::Ambisonic{1, AmbisonicNormalization::fuma, 0};
    track.channelCount = 4;
    track.canonicalOrder = {0, 1, 2, 3};
    script({{{1, 2, 3, 4, 10, 20, 30, 40, 0, 0, 0, 0}, 3, 4, -1 * frameSeconds}, {{5, 6, 7, 8}, 1, 4, std::nullopt}});
    run(clipOf("/source", 0, 4 * frameSeconds));
    const float root = std::sqrt(2.0f);
    EXPECT_THAT(input.samples, ElementsAre(root, 3, 4, 2, 10 * root, 30, 40, 20, 0, 0, 0, 0, 5 * root, 7, 8, 6));
}

TEST_F(ExportAudioTrackFeederTest, GoesOnWithFFmpegWhereTheNativeRoadStops) {
    track.backend = SourceAudioTrack::AVFoundationBackend{7};
    track.ffmpegFallbackStreamIndex = 3;
    roads.openNative = [](auto&&...) {
        return std::make_unique<ScriptedSource>(std::vector{numbered(1, 1, 300)}, true);
    };
    roads.openFFmpeg = [](const URL&, std::int32_t stream, auto&&...) {
        EXPECT_EQ(stream, 3);
        return std::make_unique<ScriptedSource>(
            std::vector{numbered(1, 1, 200), numbered(1 + 200 * frameSeconds, 201, 800)});
    };
    const auto clip = clipOf("/folder/source.mov", 1, 1 + 1000 * frameSeconds);
    run(clip);
    EXPECT_THAT(runs(input.samples), ElementsAre(Samples(1, 1000)));
    ASSERT_EQ(diagnostics.count("audio_ffmpeg_fallback"), 1);
    EXPECT_THAT(diagnostics.events[0].second,
                ElementsAre(Pair("avfoundation_diagnostic", DiagnosticValue(std::string("(0): the decoder gave up"))),
                            Pair("source", DiagnosticValue(std::string("source.mov")))));

    track.ffmpegFallbackStreamIndex.reset();
    try {
        run(clip);
        ADD_FAILURE() << "nothing was thrown";
    } catch (const VRExportError& error) {
        const auto text = GenerationFailureDescriber::message(error);
        EXPECT_THAT(text, AllOf(HasSubstr("source.mov"), HasSubstr("the decoder gave up")));
    }
}

TEST_F(ExportAudioTrackFeederTest, EndsWithTheExportsErrorWhenTheWriterRefuses) {
    track.backend = SourceAudioTrack::AVFoundationBackend{1};
    track.ffmpegFallbackStreamIndex = 1;
    roads.openNative = [](auto&&...) { return std::make_unique<ScriptedSource>(std::vector{numbered(0, 1, 100)}); };
    input.refusedFrom = 50;
    try {
        run(clipOf("/source", 0, 1));
        ADD_FAILURE() << "nothing was thrown";
    } catch (const VRExportError& error) {
        EXPECT_EQ(error.which(), VRExportError::Case::audioAppendFailed);
    }
    EXPECT_EQ(diagnostics.count("audio_ffmpeg_fallback"), 0) << "the source is not to blame";
}

TEST_F(ExportAudioTrackFeederTest, StopsBeforeTheNextDecode) {
    int opened = 0;
    roads.openFFmpeg = [&](const URL&, std::int32_t, double, double, std::uint64_t, const std::stop_token& given) {
        ++opened;
        stop.request_stop();
        EXPECT_TRUE(given.stop_requested());
        return std::make_unique<ScriptedSource>(std::vector{numbered(0, 1, 480)});
    };
    const auto clip = clipOf("/source", 0, 0.01);
    EXPECT_THROW(run({clip, clip}, {{clip.sourceURL, {track}}}), Cancelled);
    EXPECT_EQ(opened, 1);
}

} // namespace
} // namespace panoveer
