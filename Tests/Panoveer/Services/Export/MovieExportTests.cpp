#include "ExportFixture.h"
#include "Panoveer/Services/Export/ExportArtifactValidator.h"
#include "Panoveer/Services/Export/SpatialBoxInspector.h"
#include "Platform/Core/Localization.h"
#include "Platform/Media/AssetReader.h"
#include "Support/FileSizeLimit.h"
#include "Support/Thrown.h"

#include <nlohmann/json.hpp>

#include <cerrno>
#include <future>
#include <limits>
#include <numeric>
#include <semaphore>
#include <thread>

namespace panoveer {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using test::FileSizeLimit;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

// Pictures of given times, numbered from 0.
class ScriptedSource final : public SegmentFrameSource {
public:
    explicit ScriptedSource(std::vector<double> times, std::function<void(int)> onRead = {})
        : times_(std::move(times)), onRead_(std::move(onRead)) {}

    std::optional<SegmentFrame> next() override {
        const auto index = index_++;
        if (onRead_)
            onRead_(index);
        if (index >= int(times_.size()))
            return std::nullopt;
        auto picture = PixelBuffer::make(pixelFormat::bgra, 160, 90);
        std::vector<std::uint8_t> pixels(160 * 90 * 4);
        test::paintFrameIndex(index, 160, 90, pixels);
        for (std::size_t y = 0; y < 90; ++y)
            std::memcpy(picture->plane(0).data + y * picture->plane(0).rowBytes, &pixels[y * 160 * 4], 160 * 4);
        return SegmentFrame{std::move(picture), {}, times_[std::size_t(index)]};
    }

private:
    std::vector<double> times_;
    std::function<void(int)> onRead_;
    int index_ = 0;
};

class MovieExportTest : public ExportFixture {
protected:
    // The failure beneath the one that the export reports, with or without a partial movie.
    Error failureOf(const std::vector<VRClipSegment>& clips,
                    VRExportError::Case end = VRExportError::Case::codecExportFailed) {
        const auto error = endOf(clips);
        EXPECT_EQ(error.which(), end) << error.what();
        EXPECT_TRUE(error.underlying());
        return error.underlying() ? *error.underlying() : error;
    }

    // Number and slot of every picture of a movie.
    std::vector<std::pair<int, std::int64_t>> pictures(const fs::path& movie, double framesPerSecond = rate) {
        const auto asset = test::loaded(movie);
        AssetReader reader(asset, 0, 1e6);
        reader.addOutput(asset->videoTracks().front(), pixelFormat::yCbCr420VideoRange);
        EXPECT_TRUE(reader.startReading());
        std::vector<std::pair<int, std::int64_t>> result;
        while (const auto sample = reader.copyNextSampleBuffer())
            result.emplace_back(test::frameIndex(*sample->imageBuffer),
                                std::llround(sample->presentationSeconds * framesPerSecond));
        return result;
    }

    std::vector<int> numbers(const fs::path& movie) {
        std::vector<int> result;
        for (const auto& [number, slot] : pictures(movie))
            result.push_back(number);
        return result;
    }
};

std::vector<int> countTo(int end) {
    std::vector<int> result(std::size_t(end), 0);
    std::iota(result.begin(), result.end(), 0);
    return result;
}

TEST_F(MovieExportTest, GoesOverToFFmpegInTheMiddleOfAMovieAndBack) {
    const auto first = clip({.name = "a.mp4", .frameCount = 5});
    const auto other =
        clip({.name = "b.webm", .frameCount = 5, .codec = "libvpx-vp9", .outputOptions = {"-deadline", "realtime"}});
    auto chosen = clip({.name = "c.mp4", .frameCount = 5});
    chosen.videoDecodingBackend = VideoDecodingBackend::ffmpeg;
    run({first, other, chosen, first});
    EXPECT_THAT(numbers(out / "movie.mp4"), ElementsAre(0, 1, 2, 3, 4, 0, 1, 2, 3, 4, 0, 1, 2, 3, 4, 0, 1, 2, 3, 4));
    EXPECT_EQ(events.count("ffmpeg_video_fallback"), 1);
    EXPECT_EQ(events.count("ffmpeg_video_selected"), 1);
    EXPECT_THAT(written(), UnorderedElementsAre("movie.mp4"));
}

// Without an index the way into a stream may lie behind the only key frame.
TEST_F(MovieExportTest, FindsTheFirstPictureOfASegmentFarBehindItsKeyFrame) {
    auto late = clip({.name = "a.ts", .frameCount = 60, .keyFrameInterval = 250});
    late.videoDecodingBackend = VideoDecodingBackend::ffmpeg;
    late.start = 1.5;
    run({late});
    EXPECT_THAT(numbers(out / "movie.mp4"), ElementsAre(45, 46, 47, 48, 49, 50, 51, 52, 53, 54, 55, 56, 57, 58, 59));
}

// Nor is a picture lost that comes late, where there is none before it and a reader cannot go back.
TEST_F(MovieExportTest, StartsWithALatePictureWhereThereIsNoneBefore) {
    auto gap = clip({.name = "gap.flv",
                     .frameCount = 60,
                     .codec = "flv",
                     .outputOptions = {"-vf", "select='not(between(n,15,44))'", "-fps_mode", "passthrough"}});
    gap.videoDecodingBackend = VideoDecodingBackend::ffmpeg;
    gap.start = 1;
    run({gap});
    EXPECT_EQ(numbers(out / "movie.mp4").size(), 30U);
}

TEST_F(MovieExportTest, ReadsASegmentAgainThatTheNativeRoadGivesNoPictureOf) {
    roads.openNative = [](auto&&...) { return std::make_unique<ScriptedSource>(std::vector<double>{}); };
    run({clip({.frameCount = 6})});
    EXPECT_EQ(numbers(out / "movie.mp4"), countTo(6));
    EXPECT_EQ(events.count("ffmpeg_video_fallback"), 1);
}

TEST_F(MovieExportTest, PutsPicturesIntoTheSlotsOfTheirTimes) {
    constexpr double nan = std::numeric_limits<double>::quiet_NaN();
    const auto given = [&](std::vector<double> times) {
        fs::remove(out / "movie.mp4");
        roads.openNative = [times](auto&&...) { return std::make_unique<ScriptedSource>(times); };
        run({clipOf("/source", 0, 10 / rate)});
        return pictures(out / "movie.mp4");
    };
    using P = std::pair<int, std::int64_t>;
    // A slot that is taken moves a picture on, one behind the end closes the segment, the last one stays to the end.
    EXPECT_THAT(given({-0.02, 1 / rate, 1 / rate, 6 / rate, 5}),
                ElementsAre(P(0, 0), P(1, 1), P(2, 2), P(3, 6), P(3, 7), P(3, 8), P(3, 9)));
    EXPECT_THAT(given({nan, 9 / rate}), ElementsAre(P(0, 0), P(1, 9)));
    // A movie begins with a picture.
    EXPECT_THAT(given({8 / rate, 9 / rate}),
                ElementsAre(P(0, 0), P(0, 1), P(0, 2), P(0, 3), P(0, 4), P(0, 5), P(0, 6), P(0, 7), P(0, 8), P(1, 9)));
}

TEST_F(MovieExportTest, GivesEachEyeALayerAndChecksThatBothAreThere) {
    settings.codec = ExportCodec::mvhevc8;
    settings.stereoLayout = StereoVideoLayout::sideBySide;
    settings.customWidth = 320;
    run({clip({.frameCount = 6})});
    const auto movie = out / "movie.mov";
    EXPECT_THAT(written(), UnorderedElementsAre("movie.mov"));
    const auto inspected = SpatialBoxInspector::inspect(URL::fromFilePath(movie)).tracks.at(0);
    EXPECT_TRUE(inspected.secondaryLayer && inspected.extendedUsage);

    auto expectation = movieValidationExpectation({.resolution = {320, 90}, .codec = ExportCodec::mvhevc8});
    expectation.durationSeconds = 6 / rate;
    EXPECT_TRUE(expectation.checksStereoLayers);
    ExportArtifactValidator::validateMovie(URL::fromFilePath(movie), expectation);
    // The same movie without the other eye's parameter sets, as one that knows a single layer would have written it.
    auto bytes = test::readFile(movie);
    constexpr std::string_view layer = "lhvC", nothing = "free";
    for (auto found = std::ranges::search(bytes, layer); found.begin() != bytes.end();
         found = std::ranges::search(bytes, layer))
        std::ranges::copy(nothing, found.begin());
    test::writeFile(folder / "flat.mov", bytes);
    const auto failure = test::thrown<ExportArtifactValidationError>(
        [&] { ExportArtifactValidator::validateMovie(URL::fromFilePath(folder / "flat.mov"), expectation); });
    ASSERT_TRUE(failure) << "a track without the right eye passed";
    EXPECT_EQ(failure->kind(), ExportArtifactValidationError::Kind::missingStereoLayers) << failure->what();
}

TEST_F(MovieExportTest, TakesALayerOfAlphaForNoEye) {
    settings.codec = ExportCodec::hevcWithAlpha;
    settings.stereoLayout = StereoVideoLayout::sideBySide;
    run({clip({.frameCount = 3})});
    EXPECT_THAT(written(), UnorderedElementsAre("movie.mov"));
}

TEST_F(MovieExportTest, GivesAClipShorterThanAFrameOnePicture) {
    auto shortest = clip({.frameCount = 10});
    shortest.start = 0.1;
    shortest.end = 0.101;
    run({shortest});
    EXPECT_THAT(numbers(out / "movie.mp4"), ElementsAre(3));
}

TEST_F(MovieExportTest, TakesTheNearestPictureOfEachSourceForEverySlotOfAMixedMovie) {
    struct Source {
        const char* rate;
        double framesPerSecond;
    };
    constexpr int frames = 12;
    constexpr double output = 60000 / 1001.0;
    std::vector<VRClipSegment> clips;
    std::vector<int> expected;
    double end = 0;
    for (const auto& [text, fps] : {Source{"24", 24}, Source{"25", 25}, Source{"30000/1001", 30000 / 1001.0},
                                    Source{"50", 50}, Source{"60000/1001", output}}) {
        clips.push_back(
            clip({.name = std::to_string(clips.size()) + ".mp4", .frameRate = text, .frameCount = frames}, fps));
        const auto first = std::llround(end * output);
        end += frames / fps;
        for (std::int64_t slot = 0; slot < std::llround(end * output) - first; ++slot) {
            // On a tie, the earlier one.
            const auto nearest = std::int64_t(std::ceil(double(slot) / output * fps - 0.5 - 1e-4));
            expected.push_back(int(std::min<std::int64_t>(nearest, frames - 1)));
        }
    }
    run(clips);
    EXPECT_EQ(numbers(out / "movie.mp4"), expected);
    const auto stream = test::ffprobeJSON(out / "movie.mp4")["streams"][0];
    EXPECT_EQ(stream["r_frame_rate"], "60000/1001");
    EXPECT_EQ(stream["time_base"], "1/60000");
}

TEST_F(MovieExportTest, LivesWithTheSmallestNumberOfBuffers) {
    renderer.workingSetSize = 0;
    const auto slow = clip({.name = "slow.mp4", .frameRate = "15", .frameCount = 8}, 15);
    run({slow, clip({.name = "fast.mp4", .frameCount = 16})});
    EXPECT_EQ(pictures(out / "movie.mp4").size(), 32u);
    EXPECT_LE(renderer.mostOutputs, 2);
    EXPECT_EQ(renderer.mostInFlight, 2) << "one running ahead of the one that is waited for";
}

TEST_F(MovieExportTest, DecodesAheadOfThePictureThatIsWaitedFor) {
    constexpr int ahead = 5; // three in flight; then the three that may wait, of which the last is being read
    std::binary_semaphore isRead(0);
    roads.openNative = [&](auto&&...) {
        return std::make_unique<ScriptedSource>(std::vector<double>(10, 0.0), [&](int index) {
            if (index == ahead)
                isRead.release();
        });
    };
    bool isAhead = false;
    renderer.onWait = [&](int index) {
        if (index == 0)
            isAhead = isRead.try_acquire_for(20s);
    };
    run({clipOf("/source", 0, 10 / rate)});
    EXPECT_TRUE(isAhead);
}

TEST_F(MovieExportTest, EndsAtOnceWhenCancelledWhileTheDecoderIsStuck) {
    class StuckSource final : public SegmentFrameSource {
    public:
        StuckSource(std::stop_token stop, std::promise<void>& entered) : stop_(std::move(stop)), entered_(entered) {}
        std::optional<SegmentFrame> next() override {
            entered_.set_value();
            std::mutex mutex;
            std::unique_lock lock(mutex);
            std::condition_variable_any().wait(lock, stop_, [] { return false; });
            throw Cancelled();
        }

    private:
        std::stop_token stop_;
        std::promise<void>& entered_;
    };
    std::promise<void> entered;
    roads.openNative = [&](const VRClipSegment&, std::stop_token token, auto&&...) {
        return std::make_unique<StuckSource>(std::move(token), entered);
    };
    const std::jthread user([&] {
        entered.get_future().wait();
        stop.request_stop();
    });
    EXPECT_THROW(run({clipOf("/source", 0, 1)}), Cancelled);
    EXPECT_THAT(written(), IsEmpty());
    EXPECT_EQ(events.count("export_cancelled"), 1);
}

struct CancelRow {
    const char* name;
    ExportCodec codec;
    int stopAt;          // the picture as whose rendering starts the user stops; -1: while the movie is finished
    const char* partial; // what is left; none when it is empty
};

class Cancelling : public MovieExportTest, public testing::WithParamInterface<CancelRow> {};

// What is kept plays to its end: every picture that the encoder was given, in its place.
TEST_P(Cancelling, KeepsEveryPictureThatWasWritten) {
    const auto& row = GetParam();
    settings.codec = row.codec;
    settings.outputFormat = ProjectionFormat::equirectangular; // so that there is metadata to inject
    const auto source = clip({.frameCount = 60});
    int rendered = 0;
    renderer.onRender = [&](int) {
        if (rendered++ == row.stopAt)
            stop.request_stop();
    };
    double largestFraction = 0;
    bool isToldOfPartial = false;
    onProgress = [&](const ExportProgress& progress) {
        if (row.stopAt < 0 && progress.message == localized("export.progress.finalizing"))
            stop.request_stop();
        isToldOfPartial |= progress.message == localized("export.progress.finalizing_partial");
        largestFraction = std::max(largestFraction, isToldOfPartial ? progress.fraction : 0);
    };
    if (std::string_view(row.partial).empty()) {
        EXPECT_THROW(run({source}), Cancelled);
        EXPECT_THAT(written(), IsEmpty());
        EXPECT_EQ(events.count("export_cancelled"), 1);
        return;
    }
    for (const auto& name : {std::string(row.partial), std::string(row.partial).insert(13, "-2")}) {
        stop = {};
        rendered = 0;
        isToldOfPartial = false;
        const auto end = endOf({source});
        EXPECT_EQ(end.which(), VRExportError::Case::cancelledPartialSaved);
        EXPECT_EQ(end.url().lastPathComponent(), name);
        const auto shown = numbers(out / name);
        EXPECT_EQ(shown, countTo(int(shown.size())));
        EXPECT_GE(int(shown.size()), row.stopAt < 0 ? 60 : 2);
        EXPECT_EQ(
            test::runProgram({"ffmpeg", "-v", "error", "-i", (out / name).string(), "-f", "null", "-"}).standardError,
            "");
    }
    EXPECT_LT(largestFraction, 0.999);
    EXPECT_TRUE(isToldOfPartial);
    EXPECT_EQ(events.count("export_cancelled_partial_saved"), 2);
    EXPECT_EQ(written().size(), 2u);
}

INSTANTIATE_TEST_SUITE_P(Stages, Cancelling,
                         testing::Values(CancelRow("BeforeTheFirstPicture", ExportCodec::h264, 0, ""),
                                         CancelRow("InTheMiddleOfAnMP4", ExportCodec::h264, 20, "movie.partial.mp4"),
                                         CancelRow("InTheMiddleOfAQuickTimeMovie", ExportCodec::proRes422LT, 20,
                                                   "movie.partial.mov"),
                                         CancelRow("WhileItIsFinished", ExportCodec::h264, -1, "movie.partial.mp4")),
                         [](const auto& test) { return test.param.name; });

TEST_F(MovieExportTest, SaysWhatTheRendererSaidAndKeepsThePicturesBefore) {
    renderer.onWait = [](int index) {
        if (index == 4)
            throw Error("the device was lost", "VulkanErrorDomain", -4);
    };
    const auto failure = failureOf({clip({})}, VRExportError::Case::failedPartialSaved);
    EXPECT_STREQ(failure.what(), "the device was lost");
    EXPECT_EQ(failure.code(), -4);
    EXPECT_EQ(numbers(out / "movie.partial.mp4"), countTo(4));
    EXPECT_THAT(written(), UnorderedElementsAre("movie.partial.mp4"));
    EXPECT_EQ(events.count("export_failed_partial_saved"), 1);
    EXPECT_EQ(events.count("export_failed"), 1);
}

TEST_F(MovieExportTest, FinishesWhatIsOpenWhenSourcesAreDeletedAndNamesTheOneThatIsGone) {
    const auto first = clip({.name = "a.mp4"}), second = clip({.name = "b.mp4"});
    settings.mode = ExportMode::separateClips;
    renderer.onRender = [&](int) {
        fs::remove(first.sourceURL.path());
        fs::remove(second.sourceURL.path());
    };
    EXPECT_THAT(failureOf({first, second}).what(), HasSubstr("No such file"));
    EXPECT_THAT(written(), UnorderedElementsAre("a - standard.mp4"));
    EXPECT_EQ(numbers(out / "a - standard.mp4"), countTo(30));
}

TEST_F(MovieExportTest, FailsWhenASourceLosesItsEndWhileItIsRead) {
    const auto source = clip(
        {.name = "a.mov", .width = 640, .height = 360, .frameCount = 60, .codec = "mjpeg", .pixelFormat = "yuvj420p"});
    renderer.onRender = [&](int) {
        fs::resize_file(source.sourceURL.path(), fs::file_size(source.sourceURL.path()) / 4);
    };
    failureOf({source}, VRExportError::Case::failedPartialSaved);
    EXPECT_THAT(written(), UnorderedElementsAre("movie.partial.mp4"));
}

TEST_F(MovieExportTest, KeepsTheOldMovieWhenTheNewOneCannotBeWrittenToItsEnd) {
    settings.outputFormat = ProjectionFormat::equirectangular;
    const auto source = clip({.frameCount = 90});
    run({source});
    const auto before = test::readFile(out / "movie.mp4");
    const auto size = before.size();
    using enum VRExportError::Case;
    // While pictures are written; at the last of them; while the metadata goes in, when the movie is complete.
    for (const auto& [limit, end] : {std::pair(size / 2, codecExportFailed), std::pair(size - 2000, codecExportFailed),
                                     std::pair(size - 1, failedPartialSaved)}) {
        const FileSizeLimit disk(limit);
        const auto failure = failureOf({source}, end);
        EXPECT_EQ(failure.domain(), posixErrorDomain) << failure.what();
        EXPECT_EQ(failure.code(), EFBIG) << failure.what();
        EXPECT_EQ(test::readFile(out / "movie.mp4"), before);
    }
    EXPECT_THAT(written(), UnorderedElementsAre("movie.mp4", "movie.partial.mp4"));
    EXPECT_EQ(numbers(out / "movie.partial.mp4"), countTo(90));
}

// A QuickTime movie whose writer fails: 12 s of one, with fragments at 1 s and 11 s, and less than a second of another.
TEST_F(MovieExportTest, KeepsTheCompleteFragmentsOfAWriterThatFailed) {
    settings.codec = ExportCodec::proRes422Proxy;
    const auto source = clip({.frameRate = "10", .frameCount = 120}, 10);
    run({source});
    const auto size = fs::file_size(out / "movie.mov");
    fs::remove(out / "movie.mov");
    {
        const FileSizeLimit disk(size * 97 / 100);
        EXPECT_EQ(failureOf({source}, VRExportError::Case::failedPartialSaved).code(), EFBIG);
    }
    EXPECT_EQ(numbers(out / "movie.partial.mov"), countTo(110));
    const FileSizeLimit disk(size / 24);
    EXPECT_EQ(failureOf({source}).code(), EFBIG);
    EXPECT_THAT(written(), UnorderedElementsAre("movie.partial.mov"));
    EXPECT_EQ(std::get<std::string>(events.fieldsOf("partial_recovery_skipped").at("reason")),
              "no_complete_movie_fragment");
}

TEST_F(MovieExportTest, EndsBeforeTheDiskIsFullAndKeepsThePicturesBefore) {
    double free = 2e9, uptime = 100;
    readings.freeDiskBytes = [&](const URL&) { return free; };
    readings.uptimeSeconds = [&] { return uptime; };
    renderer.onRender = [&](int index) {
        if (index == 20) {
            free = 0.9e9;
            uptime += 5;
        }
    };
    const auto failure = failureOf({clip({})}, VRExportError::Case::failedPartialSaved);
    EXPECT_THAT(failure.what(), HasSubstr("900 MB"));
    EXPECT_THAT(numbers(out / "movie.partial.mp4").size(), testing::Ge(10u));
}

TEST_F(MovieExportTest, RefusesANameThatCannotBeTakenBeforeItReadsAnything) {
    const auto source = clip({.name = "a.mp4", .frameCount = 5});
    renderer.onRender = [](int) { FAIL() << "work was done for nothing"; };
    fs::create_hard_link(source.sourceURL.path(), out / "movie.mp4");
    EXPECT_THROW(run({source}), Error);
    EXPECT_TRUE(fs::equivalent(source.sourceURL.path(), out / "movie.mp4"));
    fs::remove(out / "movie.mp4");
    fs::create_directories(out / "movie.mp4");
    EXPECT_EQ(failureOf({source}).code(), EISDIR);
    EXPECT_THAT(written(), UnorderedElementsAre("movie.mp4"));
}

} // namespace
} // namespace panoveer
