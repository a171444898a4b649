#include "Panoveer/Services/Export/ExportArtifactValidator.h"
#include "Platform/Media/PictureFile.h"
#include "Support/MediaFactory.h"
#include "Support/Thrown.h"

#include <gmock/gmock.h>

#include <filesystem>

namespace panoveer {
namespace {

using namespace test;
using Expectation = ExportMovieValidationExpectation;
using Failure = ExportArtifactValidationError;
using Kind = Failure::Kind;

std::optional<Failure> failureOf(const std::filesystem::path& movie, const Expectation& expectation) {
    return thrown<Failure>([&] { ExportArtifactValidator::validateMovie(URL::fromFilePath(movie), expectation); });
}

// Movies that an export may have staged, each made once.
class StagedMovieTests : public testing::Test {
protected:
    static MovieSpec spec(const char* name) {
        return {.name = name, .width = 64, .height = 32, .frameCount = 15}; // half a second
    }
    static std::filesystem::path make(const MovieSpec& spec) { return makeMovie(folder(), spec); }

    static Expectation expectation() {
        return {.durationSeconds = 0.5, .width = 64, .height = 32, .codec = ExportCodec::h264, .frameRate = 30};
    }
    static const TemporaryFolder& folder() {
        static const TemporaryFolder folder;
        return folder;
    }
};

TEST_F(StagedMovieTests, WhatWasAskedForPassesAndEveryDifferenceIsNamed) {
    auto movie = spec("plain.mp4");
    movie.audio = {{.codec = "aac"}};
    const auto file = make(movie);
    auto expected = expectation();
    expected.audioTrackCount = 1;
    EXPECT_FALSE(failureOf(file, expected)) << failureOf(file, expected)->what();

    struct Row {
        std::function<void(Expectation&)> change;
        const char* message;
    };
    const Row rows[] = {
        {[](auto& e) { e.audioTrackCount = 2; }, "The staged export contains 1 audio tracks; expected 2."},
        {[](auto& e) { e.audioTrackCount = 0; }, "The staged export contains 1 audio tracks; expected 0."},
        {[](auto& e) { e.width = 66; }, "The staged export is 64x32; expected 66x32."},
        {[](auto& e) { e.height = 30; }, "The staged export is 64x32; expected 64x30."},
        {[](auto& e) { e.codec = ExportCodec::hevc10; }, "The staged export uses codec avc1; expected hvc1."},
        {[](auto& e) { e.codec = ExportCodec::proRes422HQ; }, "The staged export uses codec avc1; expected apch."},
        {[](auto& e) { e.checksStereoLayers = true; },
         "The staged MV-HEVC export does not contain a left and a right eye layer."},
        {[](auto& e) { e.codec = ExportCodec::mvhevc8; }, "The staged export is 64x32; expected 32x32."},
        {[](auto& e) { e.colorMode = ExportColorMode::hdrHLG; },
         "The staged export color metadata does not match the selected HDR/SDR mode."},
    };
    for (const auto& row : rows) {
        auto changed = expected;
        row.change(changed);
        const auto failure = failureOf(file, changed);
        EXPECT_EQ(failure ? failure->what() : std::string(), row.message);
    }
}

TEST_F(StagedMovieTests, TheDurationMayBeOffByTwoFramesButNotLessThanASixthOfASecond) {
    const auto file = make(spec("duration.mp4"));
    struct Row {
        std::optional<double> frameRate;
        double tolerance;
    };
    for (const auto& row : {Row{60.0, 0.15}, Row{5.0, 0.4}, Row{0.5, 2.0}, Row{std::nullopt, 0.15}}) {
        auto expected = expectation();
        expected.frameRate = row.frameRate;
        for (double sign : {-1.0, 1.0}) {
            expected.durationSeconds = 0.5 + sign * (row.tolerance - 0.01);
            EXPECT_FALSE(failureOf(file, expected)) << row.tolerance;
            expected.durationSeconds = 0.5 + sign * (row.tolerance + 0.01);
            const auto failure = failureOf(file, expected);
            ASSERT_TRUE(failure) << row.tolerance;
            EXPECT_EQ(failure->kind(), Kind::invalidDuration);
        }
    }
    auto expected = expectation();
    expected.durationSeconds = 2;
    EXPECT_STREQ(failureOf(file, expected)->what(),
                 "The staged export duration is 0.500 s; expected 2.000 s (tolerance 0.150 s).");
}

TEST_F(StagedMovieTests, FilesThatAreNoMoviesAreNamedFirst) {
    writeFile(folder() / "empty.mov", {});
    const std::uint8_t text[] = {'n', 'o', ' ', 'm', 'o', 'v', 'i', 'e', '\n'};
    writeFile(folder() / "text.mov", text);
    auto movie = spec("foreign.mp4");
    movie.codec = "libvpx-vp9";
    const auto foreign = make(movie);
    auto bytes = readFile(make(spec("cut.mp4")));
    bytes.resize(bytes.size() / 2); // the movie box lies at the end
    writeFile(folder() / "cut.mp4", bytes);

    const std::pair<std::filesystem::path, std::string> rows[] = {
        {folder() / "gone.mov", "The staged export is missing or empty (gone.mov)."},
        {folder() / "empty.mov", "The staged export is missing or empty (empty.mov)."},
        {folder().path(), "The staged export is missing or empty (" + folder().path().filename().string() + ")."},
        {folder() / "text.mov", "AVFoundation cannot play the staged export (text.mov)."},
        {folder() / "cut.mp4", "AVFoundation cannot play the staged export (cut.mp4)."},
        {foreign, "AVFoundation cannot play the staged export (foreign.mp4)."},
    };
    for (const auto& [file, message] : rows) {
        const auto failure = failureOf(file, expectation());
        EXPECT_EQ(failure ? failure->what() : std::string(), message);
    }
}

TEST_F(StagedMovieTests, TracksColoursAndRotationAreReadFromTheFile) {
    auto movie = spec("two.mov");
    movie.outputOptions = {"-map", "0:v"};
    EXPECT_STREQ(failureOf(make(movie), expectation())->what(),
                 "The staged export contains 2 video tracks instead of one.");

    movie = spec("hdr.mov");
    movie.codec = "libx265";
    movie.pixelFormat = "yuv420p10le";
    movie.primaries = "bt2020";
    movie.transfer = "arib-std-b67";
    movie.matrix = "bt2020nc";
    movie.outputOptions = {"-tag:v", "hvc1"};
    const auto hdr = make(movie);
    auto expected = expectation();
    expected.codec = ExportCodec::hevc10;
    EXPECT_EQ(failureOf(hdr, expected)->kind(), Kind::colorMetadataMismatch);
    expected.colorMode = ExportColorMode::hdrHLG;
    EXPECT_FALSE(failureOf(hdr, expected));

    // An export is written upright. A turned one has the right size for a player, but not for a reader of frames.
    movie = spec("turned.mov");
    movie.rotationDegrees = 90;
    const auto turned = make(movie);
    EXPECT_EQ(failureOf(turned, expectation())->kind(), Kind::invalidDimensions);
    expected = expectation();
    std::swap(expected.width, expected.height);
    EXPECT_EQ(failureOf(turned, expected)->kind(), Kind::ffmpegMetadataMismatch);
}

TEST(ExportArtifactValidatorTests, AMaskFolderHoldsExactlyTheExpectedPictures) {
    const TemporaryFolder folder;
    const auto url = URL::fromFilePath(folder.path());
    const auto write = [&](const char* name, int width, int height) {
        writePNG(*PixelBuffer::make(pixelFormat::bgra, width, height), folder / name);
    };
    const std::vector<std::string> names = {"a.png", "b.png"};
    const auto messageOf = [&](const std::vector<std::string>& expected) {
        const auto failure =
            thrown<Failure>([&] { ExportArtifactValidator::validatePNGDirectory(url, expected, 8, 4); });
        return failure ? std::string(failure->what()) : std::string();
    };
    const std::string incomplete = "The staged Alpha Masks folder is incomplete.";
    const std::string secondIsInvalid = "The staged Alpha Mask is invalid (b.png).";

    write("a.png", 8, 4);
    EXPECT_EQ(messageOf(names), incomplete);
    write("b.png", 8, 4);
    writeFile(folder / "notes.txt", {});
    EXPECT_EQ(messageOf(names), "");
    EXPECT_EQ(messageOf({"a.png"}), incomplete);
    EXPECT_EQ(messageOf({"a.png", "c.png"}), incomplete);

    write("b.png", 4, 8);
    EXPECT_EQ(messageOf(names), secondIsInvalid);
    writeFile(folder / "b.png", {});
    EXPECT_EQ(messageOf(names), secondIsInvalid);
    auto damaged = readFile(folder / "a.png");
    damaged[damaged.size() / 2] ^= 1;
    writeFile(folder / "b.png", damaged);
    EXPECT_EQ(messageOf(names), secondIsInvalid);
    std::filesystem::remove(folder / "b.png");
    std::filesystem::create_directory(folder / "b.png");
    EXPECT_EQ(messageOf(names), secondIsInvalid);

    const auto gone = url.appendingPathComponent("gone");
    EXPECT_THROW(ExportArtifactValidator::validatePNGDirectory(gone, names, 8, 4), Error);
}

} // namespace
} // namespace panoveer
