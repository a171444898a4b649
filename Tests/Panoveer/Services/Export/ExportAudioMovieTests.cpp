#include "ExportFixture.h"
#include "Panoveer/Services/Audio/AudioBlockSource.h"
#include "Panoveer/Services/Audio/SourceAudioInspector.h"
#include "Platform/Media/AssetReader.h"
#include "Platform/Media/AudioSampleBuffer.h"
#include "Platform/Media/MediaAsset.h"
#include "Support/SpatialAudioBox.h"

#include <nlohmann/json.hpp>

#include <cmath>
#include <complex>
#include <format>
#include <numbers>

namespace panoveer {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using Track = SourceAudioTrack;

constexpr std::size_t framesPerPicture = 1600;

// The sound of one track of a movie: interleaved, from second 0 on.
struct Sound {
    int channelCount = 0;
    std::vector<float> samples;

    std::size_t frames() const { return channelCount > 0 ? samples.size() / std::size_t(channelCount) : 0; }
    float at(std::size_t frame, int channel) const {
        return samples[frame * std::size_t(channelCount) + std::size_t(channel)];
    }
    // The amplitude of a sine of this frequency in the middle of a channel.
    double amplitude(int channel, double hertz) const {
        const std::size_t first = frames() / 4, count = frames() / 2;
        std::complex<double> sum = 0;
        for (std::size_t frame = first; frame < first + count; ++frame)
            sum += double(at(frame, channel)) *
                   std::polar(1.0, -2 * std::numbers::pi * hertz * double(frame) / audioSampleRate);
        return 2 * std::abs(sum) / double(count);
    }
};

Sound soundOf(const fs::path& movie, std::int32_t stream) {
    const auto source = NativeAudioRoad()(URL::fromFilePath(movie), stream, 0, std::nullopt);
    Sound sound;
    while (const auto block = source->next()) {
        sound.channelCount = block->channelCount;
        EXPECT_EQ(std::llround(block->seconds.value() * audioSampleRate), std::int64_t(sound.frames()));
        sound.samples.insert(sound.samples.end(), block->samples.begin(), block->samples.end());
    }
    return sound;
}

class ExportAudioMovieTest : public ExportFixture {
protected:
    ExportAudioMovieTest() : ExportFixture(ProjectionFormat::equirectangular, 80) {
        settings.vrMetadataMode = VRMetadataMode::off;
    }
};

// The box that marks a source as ambisonic.
struct Box {
    int order = 0, channels = 0;
    bool headLocked = false;
};

// Channel c of a source is a sine of 220 (c + 1) Hz at 0.25.
struct DeliveryCase {
    const char* name;
    const char* layout;
    std::optional<Box> box;
    ExportCodec codec;
    ExportAudioMode mode;
    const char* expectedKind; // as the program sees its own movie
    std::vector<int> heard;   // which channel of the source each channel of the movie holds; -1 for a mixture
};

void PrintTo(const DeliveryCase& each, std::ostream* out) { *out << each.name; }

class Delivery : public ExportAudioMovieTest, public testing::WithParamInterface<DeliveryCase> {};

std::string kindOf(const Track& track) {
    if (const auto* field = std::get_if<Track::Ambisonic>(&track.kind))
        return std::format("ambisonic {} + {}", field->order, field->extraChannels);
    return std::format("{} {}", std::holds_alternative<Track::Speakers>(track.kind) ? "speakers" : "discrete",
                       track.channelCount);
}

TEST_P(Delivery, HasTheChannelsAndSaysWhatTheyAre) {
    const auto& given = GetParam();
    settings.codec = given.codec;
    settings.audioMode = given.mode;
    const auto source = clip({.name = "a.mov", .frameCount = 45, .audio = {{.layout = given.layout}}});
    if (const auto& box = given.box)
        test::appendSpatialAudio(source.sourceURL.path(), "sowt", box->order, box->channels, box->headLocked);
    const auto movie = run({source});

    const auto tracks = SourceAudioInspector::tracks(URL::fromFilePath(movie), false);
    ASSERT_THAT(tracks, SizeIs(1));
    EXPECT_EQ(kindOf(tracks.front()), given.expectedKind);
    const auto sound = soundOf(movie, 1);
    EXPECT_EQ(sound.frames(), 45 * framesPerPicture);
    ASSERT_EQ(sound.channelCount, int(given.heard.size()));
    for (int channel = 0; channel < sound.channelCount; ++channel) {
        const int expected = given.heard[std::size_t(channel)];
        if (expected >= 0) {
            EXPECT_NEAR(sound.amplitude(channel, 220 * (expected + 1)), 0.25, 0.01) << "channel " << channel;
        }
    }
    EXPECT_EQ(events.count("audio_writer_configured"), 1);
    EXPECT_EQ(events.count("audio_encoding_completed"), 1);
}

std::vector<int> counting(int channels) {
    std::vector<int> result;
    for (int channel = 0; channel < channels; ++channel)
        result.push_back(channel);
    return result;
}

// AAC keeps only the lowest pitches of a low frequency channel.
const std::vector<int> surround = {0, 1, 2, -1, 4, 5};
const std::vector<int> mixed = {-1, -1};
const std::vector<int> mixedSurround = {-1, -1, -1, -1, -1, -1};
const auto thirdOrder = Box{3, 16}, firstOrder = Box{1, 4}, headLocked = Box{1, 6, true};
constexpr auto unmarked = std::nullopt;
constexpr auto h264 = ExportCodec::h264, master = ExportCodec::proRes;
constexpr auto automatic = ExportAudioMode::automatic, folded = ExportAudioMode::stereo;

INSTANTIATE_TEST_SUITE_P(
    , Delivery,
    testing::Values(
        DeliveryCase{"ThirdOrder", "ambisonic 3", thirdOrder, h264, automatic, "ambisonic 1 + 0", counting(4)},
        DeliveryCase{"ThirdOrderMaster", "ambisonic 3", thirdOrder, master, automatic, "ambisonic 3 + 0", counting(16)},
        DeliveryCase{"HeadLocked", "6.0", headLocked, h264, automatic, "ambisonic 1 + 0", counting(4)},
        DeliveryCase{"HeadLockedMaster", "6.0", headLocked, master, automatic, "ambisonic 1 + 2", counting(6)},
        DeliveryCase{"FoldedField", "ambisonic 1", firstOrder, h264, folded, "speakers 2", mixed},
        DeliveryCase{"SevenOneAsFiveOne", "7.1", unmarked, h264, automatic, "speakers 6", mixedSurround},
        DeliveryCase{"FiveOne", "5.1", unmarked, h264, automatic, "speakers 6", surround},
        DeliveryCase{"SevenOneMaster", "7.1", unmarked, master, automatic, "speakers 8", counting(8)},
        DeliveryCase{"FoldedMaster", "5.1", unmarked, master, folded, "speakers 2", mixed},
        DeliveryCase{"DiscreteMaster", "ambisonic 2", unmarked, master, automatic, "discrete 9", counting(9)},
        DeliveryCase{"DiscreteIsCapped", "ambisonic 2", unmarked, h264, automatic, "speakers 6", surround}),
    [](const auto& each) { return each.param.name; });

TEST_F(ExportAudioMovieTest, SplicesStereoIntoASoundField) {
    const auto field = clip({.name = "a.mov", .audio = {{.layout = "ambisonic 1"}}});
    test::appendSpatialAudio(field.sourceURL.path(), "sowt", 1, 4);
    const auto movie = run({field, clip({.name = "b.mov", .audio = {{.layout = "stereo"}}}), clip({.name = "c.mov"})});
    auto sound = soundOf(movie, 1);
    ASSERT_EQ(sound.frames(), 90 * framesPerPicture);
    const auto second = [&](int index) {
        const auto length = std::ptrdiff_t(30 * framesPerPicture) * 4;
        return Sound{4, {sound.samples.begin() + index * length, sound.samples.begin() + (index + 1) * length}};
    };
    EXPECT_NEAR(second(0).amplitude(3, 880), 0.25, 0.01);
    EXPECT_NEAR(second(1).amplitude(0, 220), 0.125, 0.01);
    EXPECT_NEAR(second(1).amplitude(0, 440), 0.125, 0.01);
    EXPECT_NEAR(second(1).amplitude(1, 440), 0, 0.01);
    EXPECT_NEAR(second(2).amplitude(0, 220), 0, 0.01) << "a clip without sound";
}

TEST_F(ExportAudioMovieTest, WritesEveryTrackInItsLanguageOrNone) {
    auto spec = test::MovieSpec{.name = "a.mkv", .audio = {{.codec = "aac"}, {.codec = "aac", .layout = "mono"}}};
    spec.outputOptions = {"-metadata:s:a:0", "language=ita", "-metadata:s:a:1", "language=por"};
    const auto source = clip(spec);
    const auto tracks = SourceAudioInspector::tracks(URL::fromFilePath(run({source})), false);
    ASSERT_THAT(tracks, SizeIs(2));
    EXPECT_EQ(tracks[0].languageCode, "ita");
    EXPECT_EQ(tracks[1].languageCode, "por");
    EXPECT_EQ(tracks[1].channelCount, 1);

    settings.audioMode = ExportAudioMode::none;
    EXPECT_THAT(SourceAudioInspector::tracks(URL::fromFilePath(run({source})), false), IsEmpty());
    EXPECT_EQ(events.count("audio_not_present"), 1);
}

// A movie with a click at the start of every picture whose height tells its number.
test::MovieSpec clicking(const char* name, const char* codec) {
    return {.name = name,
            .frameCount = 60,
            .audio = {{.codec = codec, .layout = "mono", .expression = "if(eq(mod(n,1600),0),(n/1600+1)/100,0)"}}};
}

class InStepWithThePicture : public ExportAudioMovieTest,
                             public testing::WithParamInterface<std::pair<const char*, VideoDecodingBackend>> {};

TEST_P(InStepWithThePicture, ToTheSample) {
    settings.codec = master;
    const auto first = clip(clicking("a.mov", "pcm_s24le")), second = clip(clicking("b.mov", "pcm_s24le"));
    std::vector<VRClipSegment> cut;
    for (const auto& [from, start, end] :
         {std::tuple(&first, 3, 20), {&second, 31, 32}, {&first, 0, 7}, {&second, 40, 60}}) {
        auto piece = nextOf(*from, start / rate, end / rate);
        piece.videoDecodingBackend = GetParam().second;
        cut.push_back(piece);
    }
    const auto movie = run(cut);

    std::vector<int> pictures;
    const auto asset = test::loaded(movie);
    AssetReader reader(asset, 0, 100);
    reader.addOutput(asset->videoTracks().front(), pixelFormat::yCbCr422TenBitVideoRange);
    ASSERT_TRUE(reader.startReading());
    while (const auto sample = reader.copyNextSampleBuffer())
        pictures.push_back(test::frameIndex(*sample->imageBuffer));

    std::vector<int> clicks;
    const auto sound = soundOf(movie, 1);
    for (std::size_t frame = 0; frame < sound.frames(); ++frame)
        if (sound.at(frame, 0) > 0.001f) {
            EXPECT_EQ(frame % framesPerPicture, 0u);
            clicks.push_back(int(std::lround(sound.at(frame, 0) * 100)) - 1);
        }
    EXPECT_EQ(clicks, pictures);
    EXPECT_EQ(sound.frames(), pictures.size() * framesPerPicture);
}

INSTANTIATE_TEST_SUITE_P(, InStepWithThePicture,
                         testing::Values(std::pair("Native", VideoDecodingBackend::avFoundation),
                                         std::pair("FFmpeg", VideoDecodingBackend::ffmpeg)),
                         [](const auto& each) { return each.param.first; });

TEST_F(ExportAudioMovieTest, EndsWithTheFailureOfItsSound) {
    const auto first = clip({.name = "a.mp4", .frameCount = 450, .audio = {{.codec = "aac"}}});
    const auto second = clip({.name = "b.mp4", .audio = {{.codec = "aac"}}});
    renderer.onRender = [&](int index) {
        if (index == 0)
            fs::remove(second.sourceURL.path());
        if (index == 300) // the picture is not to be the first that looks for the file
            events.waitFor("audio_encoding_failed");
    };
    const auto end = endOf({first, second});
    EXPECT_EQ(end.which(), VRExportError::Case::failedPartialSaved);
    EXPECT_THAT(end.what(), HasSubstr("No such file"));
    EXPECT_TRUE(fs::exists(end.url().path()));
    EXPECT_EQ(events.count("audio_encoding_failed"), 1);
    EXPECT_THAT(written(), SizeIs(1));
}

TEST_F(ExportAudioMovieTest, KeepsTheSoundThatWasWrittenWhenItIsCancelled) {
    const auto source = clip({.frameCount = 450, .audio = {{.codec = "pcm_s16le", .layout = "5.1"}}});
    renderer.onRender = [&](int index) {
        if (index == 20)
            stop.request_stop();
    };
    const auto end = endOf({source});
    EXPECT_EQ(end.which(), VRExportError::Case::cancelledPartialSaved);
    const auto partial = MediaAsset::load(end.url());
    ASSERT_EQ(partial->audioTracks().size(), 1u);
    EXPECT_EQ(partial->audioTracks().front().channelCount, 6);
    // Sound may run ten seconds ahead of the picture, but ends with it.
    EXPECT_LT(partial->durationSeconds(), 4);
    EXPECT_THAT(written(), SizeIs(1));
    EXPECT_EQ(events.count("audio_encoding_failed"), 0);
}

} // namespace
} // namespace panoveer
