#include "Panoveer/Services/Audio/AudioBlockSource.h"
#include "Panoveer/Services/Audio/FFmpegAudioReader.h"
#include "Panoveer/Services/Audio/SourceAudioInspector.h"
#include "Platform/Media/AudioSampleBuffer.h"
#include "Support/SpatialAudioBox.h"

#include <dlfcn.h>
#include <gmock/gmock.h>
#include <unistd.h>

#include <cmath>
#include <filesystem>
#include <functional>

// Stands in front of the C library's, for the libraries too.
std::function<void()> onRead;
extern "C" ssize_t read(int descriptor, void* bytes, size_t count) {
    if (onRead)
        onRead();
    static const auto next = reinterpret_cast<ssize_t (*)(int, void*, size_t)>(dlsym(RTLD_NEXT, "read"));
    return next(descriptor, bytes, count);
}

namespace panoveer {
namespace {

namespace fs = std::filesystem;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using Track = SourceAudioTrack;

// What a track is, in a word.
std::string kindOf(const Track& track) {
    if (const auto* speakers = std::get_if<Track::Speakers>(&track.kind))
        return "speakers " + testing::PrintToString(speakers->labels);
    if (const auto* field = std::get_if<Track::Ambisonic>(&track.kind))
        return "ambisonic " + std::to_string(field->order) + " + " + std::to_string(field->extraChannels) +
               (field->normalization == AmbisonicNormalization::sn3d ? "" : " of another scaling");
    return "discrete";
}

std::vector<std::string> kinds(const fs::path& movie, bool usesFFmpegDecode) {
    std::vector<std::string> result;
    for (const auto& track : SourceAudioInspector::tracks(URL::fromFilePath(movie), usesFFmpegDecode)) {
        result.push_back(kindOf(track));
        EXPECT_EQ(std::holds_alternative<Track::FFmpegBackend>(track.backend), usesFFmpegDecode);
    }
    return result;
}

struct FileCase {
    const char* name;
    const char* file;
    std::vector<test::AudioSpec> audio;
    std::string boxedEntry; // the sample entry that gets an SA3D box, if any
    int order, channels;
    std::vector<std::string> expected;
};

void PrintTo(const FileCase& each, std::ostream* out) { *out << each.name; }

class SourceAudioFile : public testing::TestWithParam<FileCase> {};

test::MovieSpec movie(const char* name, std::vector<test::AudioSpec> audio) {
    return {.name = name, .frameCount = 10, .audio = std::move(audio)};
}

TEST_P(SourceAudioFile, IsRecognisedOnBothRoads) {
    const auto& given = GetParam();
    const test::TemporaryFolder folder;
    const auto file = test::makeMovie(folder, movie(given.file, given.audio));
    if (!given.boxedEntry.empty())
        test::appendSpatialAudio(file, given.boxedEntry, given.order, given.channels, given.channels == 6);
    EXPECT_EQ(kinds(file, false), given.expected);
    EXPECT_EQ(kinds(file, true), given.expected);
}

const test::AudioSpec aac51 = {.codec = "aac", .layout = "5.1"}, quad = {.codec = "aac", .layout = "quad"};
const test::AudioSpec third = {.layout = "ambisonic 3"}, six = {.codec = "pcm_s24le", .layout = "6.0"};
const test::AudioSpec mono = {.layout = "mono"}, ac3 = {.codec = "ac3"};
const test::AudioSpec opus = {.codec = "libopus", .layout = "ambisonic 3", .options = {"-mapping_family", "2"}};

INSTANTIATE_TEST_SUITE_P(
    , SourceAudioFile,
    testing::Values(FileCase("FirstOrderInAAC", "a.mp4", {quad}, "mp4a", 1, 4, {"ambisonic 1 + 0"}),
                    FileCase("ThirdOrderInPCM", "a.mov", {third}, "sowt", 3, 16, {"ambisonic 3 + 0"}),
                    FileCase("HeadLockedInPCM", "a.mov", {six}, "in24", 1, 6, {"ambisonic 1 + 2"}),
                    FileCase("ThirdOrderInOpus", "a.mp4", {opus}, "", 0, 0, {"ambisonic 3 + 0"}),
                    FileCase("UnmarkedChannels", "a.mkv", {third}, "", 0, 0, {"discrete"}),
                    FileCase("SeveralTracks", "a.mkv", {aac51, mono, ac3}, "", 0, 0,
                             {"speakers { 1, 2, 3, 4, 5, 6 }", "speakers { 42 }", "speakers { 1, 2 }"}),
                    FileCase("NoSound", "a.mp4", {}, "", 0, 0, {})),
    [](const auto& each) { return each.param.name; });

TEST(SourceAudioFileTest, LeavesOutWhatNoDecoderOpens) {
    const test::TemporaryFolder folder;
    const auto file = test::makeMovie(folder, movie("a.mkv", {{.codec = "ac3"}, {.codec = "aac"}}));
    auto bytes = test::readFile(file);
    const std::string codec = "A_AC3";
    const auto name = std::ranges::search(bytes, codec);
    ASSERT_FALSE(name.empty());
    name.front() = 'X';
    test::writeFile(file, bytes);
    for (const bool usesFFmpegDecode : {false, true}) {
        const auto tracks = SourceAudioInspector::tracks(URL::fromFilePath(file), usesFFmpegDecode);
        ASSERT_THAT(tracks, SizeIs(1));
        EXPECT_THAT(tracks[0].codecDescription, testing::ContainsRegex("AAC|aac"));
    }
}

// One channel of what a source gives from a time on, at so many frames, with 0 where it gives nothing.
std::vector<float> samples(AudioBlockSource& source, double start, std::size_t frames) {
    std::vector<float> result(frames);
    while (const auto block = source.next()) {
        const auto first = std::llround((block->seconds.value() - start) * audioSampleRate);
        for (std::int64_t frame = 0; frame < block->frames; ++frame)
            if (const auto at = first + frame; at >= 0 && std::size_t(at) < frames)
                result[std::size_t(at)] = block->samples[std::size_t(frame * block->channelCount)];
    }
    return result;
}

struct CodecCase {
    const char* name;
    const char* file;
    const char* codec;
};

class StartInTheMiddle : public testing::TestWithParam<CodecCase> {};

// What the ear hears as a click: the difference from sound that was decoded from the beginning.
TEST_P(StartInTheMiddle, SoundsAsIfItHadPlayedOn) {
    const test::TemporaryFolder folder;
    const auto url = URL::fromFilePath(test::makeMovie(
        folder, {.name = GetParam().file,
                 .frameCount = 60,
                 .audio = {{.codec = GetParam().codec, .layout = "mono", .expression = "0.5*sin(2*PI*440*t)"}}}));
    const auto difference = [&](auto&& open) {
        constexpr double start = 1.2345;
        constexpr std::size_t frames = 9600;
        const auto whole = samples(*open(0.0), start, frames), part = samples(*open(start), start, frames);
        float worst = 0, loudest = 0;
        for (std::size_t frame = 0; frame < frames; ++frame) {
            worst = std::max(worst, std::abs(whole[frame] - part[frame]));
            loudest = std::max(loudest, std::abs(part[frame]));
        }
        EXPECT_GT(loudest, 0.4f);
        return worst;
    };
    NativeAudioRoad native;
    EXPECT_LT(difference([&](double start) { return openFFmpegAudio(url, 1, start, 0, 0); }), 0.01f);
    EXPECT_LT(difference([&](double start) { return native(url, 1, start, std::nullopt); }), 0.01f);
}

INSTANTIATE_TEST_SUITE_P(, StartInTheMiddle,
                         testing::Values(CodecCase{"AAC", "a.mp4", "aac"}, CodecCase{"MP3", "a.mkv", "libmp3lame"},
                                         CodecCase{"AC3", "a.mov", "ac3"}, CodecCase{"Opus", "a.mp4", "libopus"},
                                         CodecCase{"PCM", "a.mov", "pcm_s16le"}),
                         [](const auto& each) { return each.param.name; });

TEST(FFmpegAudioSourceTest, RunsOnWithoutAHoleWhereTheContainerCountsMilliseconds) {
    for (const auto* codec : {"aac", "ac3", "libmp3lame", "libvorbis", "pcm_s16le"}) {
        const test::TemporaryFolder folder;
        const auto url = URL::fromFilePath(test::makeMovie(
            folder, {.name = "a.mkv", .frameCount = 30, .audio = {{.codec = codec, .sampleRate = 44100}}}));
        const auto source = openFFmpegAudio(url, 1, 0, 0, 0);
        double worst = 0;
        std::optional<double> end;
        while (const auto block = source->next()) {
            worst = std::max(worst, block->seconds.value() - end.value_or(*block->seconds));
            end = *block->seconds + double(block->frames) / audioSampleRate;
        }
        EXPECT_LT(worst * audioSampleRate, 1) << codec;
        EXPECT_NEAR(end.value(), 1, 0.05) << codec;
    }
}

// Where the sound ends long before the picture, whoever looks for more reads on to the end of the file.
TEST(AudioBlockSourceTest, StopsInTheMiddleOfALongSearchForMoreSound) {
    const test::TemporaryFolder folder;
    const auto url = URL::fromFilePath(test::makeMovie(
        folder, {.name = "a.mkv", .frameCount = 600, .codec = "rawvideo", .audio = {{}}, .audioSeconds = 0.1}));
    for (const bool isNative : {true, false}) {
        std::stop_source stop;
        const auto source = isNative ? NativeAudioRoad()(url, 1, 0, std::nullopt, stop.get_token())
                                     : openFFmpegAudio(url, 1, 0, 0, 0, stop.get_token());
        constexpr int stoppedAt = 100; // of several hundred
        int reads = 0;
        onRead = [&] {
            if (++reads == stoppedAt)
                stop.request_stop();
        };
        EXPECT_THROW(while (source->next());, Cancelled);
        onRead = {};
        EXPECT_EQ(reads, stoppedAt);
    }
}

TEST(FFmpegAudioSourceTest, PassesOverWhatIsDamaged) {
    const test::TemporaryFolder folder;
    const auto file = test::makeMovie(folder, {.name = "a.mkv", .frameCount = 60, .audio = {{.codec = "ac3"}}});
    auto bytes = test::readFile(file);
    // Every third frame of AC-3 loses its sync word.
    int found = 0;
    for (std::size_t at = 0; at + 1 < bytes.size(); ++at)
        if (bytes[at] == 0x0b && bytes[at + 1] == 0x77 && found++ % 3 == 1)
            bytes[at] = bytes[at + 1] = 0;
    ASSERT_GT(found, 30);
    test::writeFile(file, bytes);

    FFmpegAudioReader reader(URL::fromFilePath(file), 0, 0);
    EXPECT_THROW(while (reader.copyNextFrame());, FFmpegReaderError);
    const auto source = openFFmpegAudio(URL::fromFilePath(file), 1, 0, 0, 0);
    double end = 0;
    while (const auto block = source->next())
        end = block->seconds.value() + double(block->frames) / audioSampleRate;
    EXPECT_NEAR(end, 2, 0.1);
}

} // namespace
} // namespace panoveer
