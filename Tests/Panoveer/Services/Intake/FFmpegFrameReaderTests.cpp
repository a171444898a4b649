#include "Panoveer/Services/Intake/FFmpegFrameReader.h"
#include "Support/MediaFactory.h"
#include "Support/Thrown.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>

namespace panoveer::test {
namespace {

using testing::ElementsAre;

class FFmpegFrameReaderTest : public testing::Test {
protected:
    URL movie(MovieSpec spec) const {
        if (spec.frameRate == "30")
            spec.frameRate = "10";
        if (spec.keyFrameInterval == 0)
            spec.keyFrameInterval = 10;
        return URL::fromFilePath(makeMovie(folder_, spec));
    }

    static std::vector<int> remainingFrames(FFmpegFrameReader& reader) {
        std::vector<int> shown;
        while (const auto frame = reader.copyFrame())
            shown.push_back(frameIndex(*frame->pixelBuffer));
        return shown;
    }

    const TemporaryFolder folder_;
};

TEST_F(FFmpegFrameReaderTest, HandsOutPicturesThatOutliveIt) {
    std::vector<FFmpegDecodedFrame> frames;
    {
        FFmpegFrameReader reader(movie({.frameCount = 12}));
        while (auto frame = reader.copyFrame())
            frames.push_back(std::move(*frame));
    }
    ASSERT_EQ(frames.size(), 12u);
    for (int index = 0; index < 12; ++index) {
        const auto& frame = frames[std::size_t(index)];
        EXPECT_EQ(frame.pixelBuffer->format(), pixelFormat::bgra);
        EXPECT_EQ(frame.pixelBuffer->width(), 160);
        EXPECT_EQ(frame.pixelBuffer->height(), 96);
        EXPECT_EQ(frameIndex(*frame.pixelBuffer), index);
        EXPECT_NEAR(frame.ptsSeconds, index / 10.0, 1e-6);
    }
}

TEST_F(FFmpegFrameReaderTest, ReadsARangeATimeAndWhereItIsSent) {
    FFmpegFrameReader reader(movie({.frameCount = 40}), 1.5, 0.5);
    EXPECT_EQ(frameIndex(*reader.copyFrame(1.5)->pixelBuffer), 15);
    EXPECT_THAT(remainingFrames(reader), ElementsAre(16, 17, 18, 19, 20));
    reader.seek(0.55);
    EXPECT_EQ(frameIndex(*reader.copyFrame(0.55)->pixelBuffer), 6);
    EXPECT_FALSE(reader.copyFrame(99));
}

TEST_F(FFmpegFrameReaderTest, PreviewsInYCbCrUnlessTheSourceHasAlpha) {
    const auto opaque = movie({.name = "opaque.mov", .frameCount = 8});
    FFmpegFrameReader preview(opaque, 0, std::nullopt, CGSizeValue{100.9, 1e12}, true);
    const auto frame = preview.copyFrame();
    EXPECT_EQ(frame->pixelBuffer->format(), pixelFormat::yCbCr420VideoRange);
    EXPECT_EQ(frame->pixelBuffer->width(), 100);
    EXPECT_EQ(frame->pixelBuffer->height(), 60);
    EXPECT_EQ(frameIndex(*frame->pixelBuffer), 0);
    EXPECT_EQ(frameIndex(*preview.copyFrame(0.45)->pixelBuffer), 5);
    EXPECT_EQ(FFmpegFrameReader(opaque).copyFrame()->pixelBuffer->format(), pixelFormat::bgra);

    FFmpegFrameReader alpha(
        movie({.name = "alpha.mov",
               .frameCount = 2,
               .codec = "qtrle",
               .pixelFormat = "argb",
               .painter = [](int, int, int,
                             std::span<std::uint8_t> rgba) { std::ranges::fill(rgba, std::uint8_t(90)); }}),
        0, std::nullopt, std::nullopt, true);
    const auto transparent = alpha.copyFrame();
    EXPECT_EQ(transparent->pixelBuffer->format(), pixelFormat::bgra);
    EXPECT_EQ(int(transparent->pixelBuffer->plane(0).data[3]), 90);
}

TEST_F(FFmpegFrameReaderTest, TakesNoLimitFromASizeThatIsNone) {
    const auto url = movie({.frameCount = 1});
    constexpr double infinity = std::numeric_limits<double>::infinity();
    for (const auto& size :
         {CGSizeValue{0.9, 50}, CGSizeValue{-4, -4}, CGSizeValue{std::nan(""), 10}, CGSizeValue{infinity, infinity}})
        EXPECT_EQ(FFmpegFrameReader(url, 0, std::nullopt, size).outputWidth(), 160);
    EXPECT_EQ(FFmpegFrameReader(url, 0, std::nullopt, CGSizeValue{infinity, 48}).outputWidth(), 80);
}

TEST_F(FFmpegFrameReaderTest, TellsACancelledTaskFromACancelledWait) {
    FFmpegFrameReader reader(movie({.frameCount = 20}));
    FFmpegReadCancellationToken token;
    token.cancel(); // before the read, which it leaves alone
    EXPECT_EQ(frameIndex(*reader.copyFrame(0.0, &token)->pixelBuffer), 0);

    std::stop_source stop;
    EXPECT_TRUE(reader.copyFrame(std::nullopt, nullptr, stop.get_token()));
    stop.request_stop();
    EXPECT_THROW(reader.copyFrame(std::nullopt, nullptr, stop.get_token()), Cancelled);
    EXPECT_THROW(reader.copyFrame(99, &token, stop.get_token()), Cancelled);
    reader.seek(0);
    EXPECT_TRUE(reader.copyFrame());
}

TEST_F(FFmpegFrameReaderTest, SaysWhyAFileCannotBeOpenedAndReadsOnAfterABadFrame) {
    const auto missing =
        thrown<FFmpegReaderError>([&] { FFmpegFrameReader reader(URL::fromFilePath(folder_ / "missing.mov")); });
    ASSERT_TRUE(missing);
    EXPECT_EQ(missing->reason(), FFmpegReaderError::Case::openFailed);
    EXPECT_EQ(missing->errorDescription(),
              "FFmpeg could not open the video: Could not open media: No such file or directory");

    const auto url = movie({.name = "damaged.mkv", .frameCount = 30, .codec = "ffv1"});
    auto bytes = readFile(url.path());
    std::fill_n(bytes.begin() + std::ptrdiff_t(bytes.size() / 2), 600, std::uint8_t(0xff));
    writeFile(url.path(), bytes);
    FFmpegFrameReader reader(url);
    int frames = 0, failures = 0;
    for (bool hasEnded = false; !hasEnded && frames + failures < 100;) {
        const auto failure = thrown<FFmpegReaderError>([&] {
            hasEnded = !reader.copyFrame();
            frames += !hasEnded;
        });
        EXPECT_TRUE(!failure || (failure->reason() == FFmpegReaderError::Case::readFailed && failure->payload() != ""));
        failures += failure.has_value();
    }
    EXPECT_GT(frames, 10);
    EXPECT_LT(failures, 10);
    reader.seek(0);
    EXPECT_EQ(frameIndex(*reader.copyFrame()->pixelBuffer), 0);
}

} // namespace
} // namespace panoveer::test
