#include "PanoveerTool/CommandLine.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <regex>
#include <sstream>
#include <tuple>

namespace panoveer::test {
namespace {

namespace fs = std::filesystem;

using Names = std::set<std::string>;

class CommandLine : public testing::Test {
protected:
    CommandLine() { isolate(); }

    TemporaryFolder folder;

    std::string path(const std::string& name) const { return (folder / name).string(); }
    std::string movie(const MovieSpec& spec) { return makeMovie(folder, spec).string(); }

    // Into a small flat H.264 movie, unless the options say more.
    ProgramResult convert(const std::string& source, const std::string& target,
                          const std::vector<std::string>& options = {}) const {
        std::vector<std::string> arguments = {"convert",  source,   "-o",     target,    "--format",
                                              "standard", "--size", "160x90", "--codec", "h264"};
        arguments.insert(arguments.end(), options.begin(), options.end());
        return panoveer(arguments);
    }
};

TEST_F(CommandLine, TellsWrongUsageFromFailure) {
    const auto source = movie({.frameCount = 6, .audio = {{}}, .audioSeconds = 4});
    const auto mesh = path("mesh.data");
    std::ofstream(mesh) << "2\n2 1\n1.6 0 0 0 1\n1.6 0 0\n";
    struct Row {
        std::vector<std::string> arguments;
        int exitCode;
        std::string says;
    };
    const auto converting = [&](const std::vector<std::string>& options) {
        std::vector<std::string> arguments = {"convert", source, "-o", path("a.mp4")};
        arguments.insert(arguments.end(), options.begin(), options.end());
        return arguments;
    };
    for (const auto& row : {
             Row{{}, 2, "subcommand"},
             Row{{"convert", source}, 2, "--output"},
             Row{{"convert", source, "-o", ""}, 2, "-o"},
             Row{{"convert", source, "-o", path("a.mkv")}, 2, ".mov"},
             Row{{"convert", source, "-o", path(std::string(260, 'a') + ".mp4"), "--codec", "h264"}, 1, "too long"},
             Row{converting({"--codec", "vhs"}), 2, "h264"},
             Row{converting({"--size", "wide"}), 2, "3840x1920"},
             Row{converting({"--audio", "loud"}), 2, "stereo"},
             Row{converting({"--pitch", "91"}), 2, "-90"},
             Row{converting({"--in", "3"}), 2, "lasts only 0.200 s"},
             Row{converting({"--source-format", "mirrorDome"}), 2, "output only"},
             Row{converting({"--warp-mesh", mesh}), 2, "mirrorDome"},
             Row{converting({"--format", "mirrorDome", "--warp-mesh", mesh}), 1,
                 "panoveer: Line 4: malformed Mirror Dome node: 1.6 0 0\n"},
             Row{{"frame", source, "--at", "0", "-o", path("a.png"), "--format", "mirrorDome", "--warp-mesh", "/gone"},
                 1,
                 "panoveer: Cannot read Mirror Dome warp mesh: /gone\n"},
             Row{{"convert", path("gone.mp4"), "-o", path("a.mp4")}, 1, "gone.mp4"},
             Row{converting({"--out", "nan"}), 2, "--out"},
             Row{{"frame", source, "--at", "3", "-o", path("a.png")}, 2, "lasts only 0.200 s"},
             Row{{"frame", source, "--at", "0", "-o", path("no/a.png")}, 1, "no folder"},
             Row{{"inspect", path("gone.mp4")}, 1, "gone.mp4"},
             Row{{"transcode", path("gone.mp4")}, 1, "gone.mp4"},
             Row{{"transcode", source, "-o", path("a.mov")}, 2, ".mp4"},
             Row{{"transcode", mesh}, 1, "mesh.data"},
         }) {
        const auto result = panoveer(row.arguments);
        EXPECT_EQ(result.exitCode, row.exitCode) << result.standardError;
        EXPECT_NE(result.standardError.find(row.says), std::string::npos) << result.standardError;
    }
    EXPECT_EQ(namesIn(folder.path()), (Names{"movie.mov", "mesh.data"}));
}

// A file system knows bytes, not text.
TEST_F(CommandLine, TakesNamesThatAreNoText) {
    const auto source = path("caf\xe9.mov");
    fs::rename(movie({.frameCount = 5}), source);
    const auto target = path("th\xe9.mp4");
    for (const auto& result : {panoveer({"probe", source, "--json"}), panoveer({"inspect", source, "--json"}),
                               convert(source, target, {"--json", "--progress", "json"})}) {
        EXPECT_EQ(result.exitCode, 0) << result.standardError;
        EXPECT_NO_THROW(std::ignore = nlohmann::json::parse(result.standardOutput)) << result.standardOutput;
    }
    EXPECT_TRUE(fs::exists(target));
}

TEST_F(CommandLine, SaysInOneLineWhatIsWrongWithAFile) {
    // Sequence headers of MPEG-2 that say 0 x 0, a movie without a length, a pipe that nobody writes into.
    auto damaged = readFile(movie({.name = "damaged.ts", .frameCount = 10, .codec = "mpeg2video"}));
    constexpr std::array<std::uint8_t, 4> sequenceHeader{0, 0, 1, 0xb3};
    for (auto at = damaged.begin();
         (at = std::search(at, damaged.end(), sequenceHeader.begin(), sequenceHeader.end())) != damaged.end();)
        std::fill_n(at += sequenceHeader.size(), 3, std::uint8_t(0));
    writeFile(folder / "damaged.ts", damaged);
    movie({.name = "endless.m2v", .frameCount = 10, .codec = "mpeg2video"});
    writeText(folder / "letter.mp4", "This is a letter and no movie.\n");
    ASSERT_EQ(mkfifo(path("pipe.mp4").c_str(), 0600), 0);
    for (const std::string name : {"damaged.ts", "endless.m2v", "letter.mp4", "pipe.mp4"}) {
        for (const auto& arguments : std::vector<std::vector<std::string>>{
                 {"probe", path(name)}, {"inspect", path(name)}, {"convert", path(name), "-o", path("a.mp4")}}) {
            const auto result = panoveer(arguments);
            const bool isTold = arguments[0] == "probe" && (name == "damaged.ts" || name == "endless.m2v");
            EXPECT_EQ(result.exitCode, isTold ? 0 : 1) << name << arguments[0];
            const int announcements = name == "damaged.ts" && arguments[0] == "convert"; // of what it was taken for
            EXPECT_EQ(std::ranges::count(result.standardError, '\n'), isTold ? 0 : 1 + announcements)
                << result.standardError;
            EXPECT_TRUE(isTold || result.standardError.starts_with("panoveer: ")) << result.standardError;
        }
    }
}

TEST_F(CommandLine, NeverPutsAFileInThePlaceOfADevice) {
    const auto source = movie({.frameCount = 5});
    for (const std::string name : {"device.mp4", "device.png"}) {
        ASSERT_EQ(mkfifo(path(name).c_str(), 0600), 0);
        const auto result =
            name == "device.png"
                ? panoveer({"frame", source, "--at", "0", "-o", path(name), "--size", "160x90", "--overwrite"})
                : panoveer({"convert", source, "-o", path(name), "--size", "160x90", "--overwrite"});
        EXPECT_EQ(result.exitCode, 1);
        EXPECT_NE(result.standardError.find("device"), std::string::npos) << result.standardError;
        EXPECT_TRUE(fs::is_fifo(path(name)));
    }
}

TEST_F(CommandLine, WritesTheSameMasksOnEveryEngine) {
    const auto source = movie({.name = "clip.mov", .width = 96, .height = 96, .frameCount = 5});
    const std::vector<std::string> arguments = {"masks",           source,       "-o",       path("out"),
                                                "--source-format", "domemaster", "--format", "equirectangular",
                                                "--size",          "256x128"};
    const auto first = panoveer(arguments);
    ASSERT_EQ(first.exitCode, 0) << first.standardError;
    EXPECT_EQ(first.standardOutput, path("out/Alpha Masks/clip-1.png") + "\n");
    setenv("PANOVEER_GPU", "software", 1);
    auto again = arguments;
    again.push_back("--json");
    const auto second = panoveer(again);
    unsetenv("PANOVEER_GPU");
    ASSERT_EQ(second.exitCode, 0) << second.standardError;
    const auto made = nlohmann::json::parse(second.standardOutput);
    EXPECT_EQ(made["folder"], path("out/Alpha Masks 2"));
    EXPECT_EQ(readFile(path("out/Alpha Masks/clip-1.png")), readFile(made["masks"][0].get<std::string>()));

    again[3] = source;
    const auto refused = panoveer(again);
    EXPECT_EQ(refused.exitCode, 1);
    EXPECT_NE(refused.standardError.find("not a folder"), std::string::npos) << refused.standardError;
}

TEST_F(CommandLine, KeepsAMovieThatExistsUnlessToldOtherwise) {
    const auto source = movie({.frameCount = 5});
    const auto target = path("made.mp4");
    ASSERT_EQ(convert(source, target).exitCode, 0);
    const auto before = readFile(target);
    const auto refused = convert(source, target);
    EXPECT_EQ(refused.exitCode, 1);
    EXPECT_NE(refused.standardError.find("--overwrite"), std::string::npos);
    EXPECT_EQ(readFile(target), before);

    EXPECT_EQ(convert(source, target, {"--overwrite", "--yaw", "20"}).exitCode, 0);
    EXPECT_NE(readFile(target), before);
    EXPECT_EQ(namesIn(folder.path()), (Names{"movie.mov", "made.mp4"}));
}

// Runs the program with a file system of 48 kB, gone with it, at a mount point whose content it then prints.
ProgramResult runOnSmallDisk(const fs::path& mountPoint, const std::vector<std::string>& arguments) {
    fs::create_directories(mountPoint);
    // In a changed root, "/" is no mount point, and mounts are private already.
    std::vector<std::string> shell = {
        "unshare",
        "--mount",
        "--propagation",
        "unchanged",
        "bash",
        "-c",
        R"(mount --make-rprivate / 2>/dev/null; mount -t tmpfs -o size=48k tmpfs "$0" || exit 99
           "$@"; code=$?; ls -A "$0"; exit $code)",
        mountPoint.string(),
        PANOVEER_PROGRAM};
    // Root needs no user namespace for a mount of its own, and within a changed root there is none to be had.
    if (geteuid() != 0)
        shell.insert(shell.begin() + 1, "--map-root-user");
    shell.insert(shell.end(), arguments.begin(), arguments.end());
    return runProgram(shell);
}

TEST_F(CommandLine, LeavesNothingBehindWhenItCannotWrite) {
    const auto source = movie({.frameCount = 20});
    const auto full = runOnSmallDisk(folder / "small", {"convert", source, "-o", path("small/movie.mov"), "--format",
                                                        "standard", "--size", "640x360", "--codec", "proRes"});
    EXPECT_EQ(full.exitCode, 1) << full.standardError;
    EXPECT_NE(full.standardError.find("not enough space"), std::string::npos) << full.standardError;
    EXPECT_EQ(full.standardOutput, "") << "something was left behind";
    // Nobody, not even root, makes files there.
    const auto refused = panoveer({"convert", source, "-o", "/sys/panoveer/movie.mp4", "--codec", "h264"});
    EXPECT_EQ(refused.exitCode, 1);
    EXPECT_NE(refused.standardError.find("/sys/panoveer"), std::string::npos) << refused.standardError;
}

TEST_F(CommandLine, TellsAtOnceAllThatKeepsAnExportFromStarting) {
    const auto source = movie({.frameCount = 5});
    const auto result = panoveer({"convert", source, "-o", path("a.mp4"), "--format", "equirectangular", "--size",
                                  "12000x6000", "--codec", "h264", "--color", "hlg", "--json"});
    EXPECT_EQ(result.exitCode, 1);
    const auto blockers = nlohmann::json::parse(result.standardOutput)["blockers"];
    ASSERT_EQ(blockers.size(), 2u) << result.standardOutput;
    EXPECT_EQ(blockers[0]["blocker"], "encoderUnavailable");
    EXPECT_EQ(blockers[0]["width"], 12000);
    EXPECT_EQ(blockers[1]["blocker"], "hdrCodecRequired");
    for (const auto& blocker : blockers)
        EXPECT_NE(result.standardError.find("panoveer: " + blocker["message"].get<std::string>() + "\n"),
                  std::string::npos)
            << result.standardError;
    EXPECT_EQ(namesIn(folder.path()), (Names{"movie.mov"}));
}

TEST_F(CommandLine, PrintsAReportThatNamesNobody) {
    const auto source = movie({.name = "Secret.mov", .frameCount = 5});
    ASSERT_EQ(convert(source, path("Hidden film.mp4")).exitCode, 0);
    const auto report = panoveer({"diagnostics"});
    EXPECT_EQ(report.exitCode, 0);
    EXPECT_NE(report.standardOutput.find("\"event\":\"export_completed\""), std::string::npos) << report.standardOutput;
    for (const char* name : {"Secret", "Hidden"})
        EXPECT_EQ(report.standardOutput.find(name), std::string::npos) << report.standardOutput;
}

// A conversion in a process of its own that has begun to write its movie when started() returns.
class RunningConversion {
public:
    explicit RunningConversion(const std::string& source, const fs::path& target, int ignoredSignal = 0) {
        int ends[2];
        if (pipe(ends) != 0)
            throw std::runtime_error("pipe");
        process_ = fork();
        if (process_ == 0) {
            dup2(ends[1], STDERR_FILENO);
            // A shell that starts tests in the background has them ignore some.
            for (const int signal : {SIGINT, SIGTERM, SIGHUP})
                std::signal(signal, signal == ignoredSignal ? SIG_IGN : SIG_DFL);
            execl(PANOVEER_PROGRAM, PANOVEER_PROGRAM, "convert", source.c_str(), "-o", target.c_str(), "--format",
                  "standard", "--size", "640x360", "--codec", "proRes", "--progress", "json", nullptr);
            _exit(127);
        }
        close(ends[1]);
        output_ = ends[0];
    }
    ~RunningConversion() { close(output_); }

    // Waits until a progress line tells of 100 frames or more that are written.
    bool started() {
        static const std::regex manyFrames("\"frames\":[1-9][0-9][0-9]");
        while (!std::regex_search(text_, manyFrames))
            if (!readSome())
                return false;
        return true;
    }

    // Exit code, or 128 plus the signal that ended the process.
    int end(int signal) {
        kill(process_, signal);
        while (readSome()) {
        }
        int status = 0;
        waitpid(process_, &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }

    // All that it has written to standard error.
    const std::string& text() const { return text_; }

private:
    bool readSome() {
        pollfd ready{output_, POLLIN, 0};
        char buffer[4096];
        if (poll(&ready, 1, 60000) <= 0)
            return false;
        const auto count = read(output_, buffer, sizeof buffer);
        if (count > 0)
            text_.append(buffer, std::size_t(count));
        return count > 0;
    }

    pid_t process_ = 0;
    int output_ = -1;
    std::string text_;
};

TEST_F(CommandLine, KeepsWhatIsFinishedWhenInterruptedOrKilled) {
    const auto source = movie({.width = 640, .height = 360, .frameCount = 900});
    fs::create_directories(folder / "out");
    const auto target = folder / "out/movie.mov";
    const auto partial = path("out/movie.partial.mov");
    for (int signal : {SIGINT, SIGTERM, SIGHUP}) {
        RunningConversion conversion(source, target);
        ASSERT_TRUE(conversion.started());
        EXPECT_EQ(conversion.end(signal), 130);
        EXPECT_EQ(namesIn(folder / "out"), Names{"movie.partial.mov"});
        EXPECT_NE(conversion.text().find("{\"event\":\"cancelled\",\"partial\":\"" + partial + "\"}\n"),
                  std::string::npos)
            << conversion.text();
        EXPECT_TRUE(conversion.text().ends_with("panoveer: Cancelled. What was finished is kept in " + partial + ".\n"))
            << conversion.text();
        EXPECT_GE(std::stoi(videoStream(partial, {"-count_frames"})["nb_read_frames"].get<std::string>()), 100);
        fs::remove(partial);
    }

    RunningConversion killed(source, target), running(source, folder / "out/other.mov");
    ASSERT_TRUE(killed.started() && running.started());
    EXPECT_EQ(killed.end(SIGKILL), 128 + SIGKILL);
    EXPECT_FALSE(fs::exists(target));
    ASSERT_EQ(namesIn(folder / "out").size(), 2u) << "both staged";
    const auto next = convert(source, path("out/next.mp4"), {"--out", "1"});
    EXPECT_EQ(next.exitCode, 0);
    EXPECT_NE(next.standardError.find("kept in " + partial + ".\n"), std::string::npos) << next.standardError;
    EXPECT_EQ(videoStream(partial, {"-count_frames"})["nb_read_frames"], "30");
    EXPECT_EQ(running.end(0), 0) << "the export that runs goes on";
    EXPECT_EQ(namesIn(folder / "out"), (Names{"movie.partial.mov", "next.mp4", "other.mov"}));
}

TEST_F(CommandLine, GoesOnWhenItsTerminalClosesIfToldToIgnoreThat) {
    const auto target = folder / "movie.mov";
    RunningConversion conversion(movie({.name = "source.mov", .width = 640, .height = 360, .frameCount = 300}), target,
                                 SIGHUP);
    ASSERT_TRUE(conversion.started());
    EXPECT_EQ(conversion.end(SIGHUP), 0);
    EXPECT_TRUE(fs::exists(target));
}

TEST_F(CommandLine, PrintsOneJSONResultAndProgressBesideIt) {
    const auto source = movie({.frameCount = 10});
    const auto result = convert(source, path("a.mp4"), {"--json", "--progress", "json"});
    ASSERT_EQ(result.exitCode, 0) << result.standardError;
    const auto json = nlohmann::json::parse(result.standardOutput);
    EXPECT_EQ(json["movies"][0]["path"], path("a.mp4"));
    EXPECT_EQ(json["movies"][0]["bytes"], fs::file_size(path("a.mp4")));
    std::istringstream lines(result.standardError);
    std::string first;
    std::getline(lines, first);
    EXPECT_EQ(nlohmann::json::parse(first)["source"], source);
    EXPECT_EQ(nlohmann::json::parse(first)["detection"]["stereoLayout"], "mono");
    double fraction = 0;
    for (std::string line; std::getline(lines, line);) {
        const auto progress = nlohmann::json::parse(line);
        EXPECT_GE(progress["fraction"].get<double>(), fraction);
        fraction = progress["fraction"];
    }
    EXPECT_EQ(fraction, 1);
}

TEST_F(CommandLine, TakesAsMuchSoundAsIsAskedFor) {
    const auto source = movie({.name = "a.mkv",
                               .frameCount = 10,
                               .audio = {{.codec = "ac3", .layout = "5.1"}, {.codec = "aac", .layout = "mono"}},
                               .outputOptions = {"-metadata:s:a:1", "language=ita"}});
    const auto probed = panoveer({"probe", source}).standardOutput;
    EXPECT_NE(probed.find("stream 1: 5.1 speakers, 6 channels, ATSC A/52A"), std::string::npos) << probed;
    EXPECT_NE(probed.find("stream 2: mono, 1 channel, AAC"), std::string::npos) << probed;
    EXPECT_NE(probed.find(", ita\n"), std::string::npos) << probed;

    const auto channelsWith = [&](const std::string& audio) {
        const auto target = path(audio + ".mp4");
        EXPECT_EQ(convert(source, target, {"--audio", audio}).exitCode, 0);
        std::vector<int> channels;
        const auto file = ffprobeJSON(target);
        for (const auto& stream : file["streams"])
            if (stream["codec_type"] == "audio")
                channels.push_back(stream["channels"]);
        return channels;
    };
    EXPECT_EQ(channelsWith("automatic"), (std::vector{6, 1}));
    EXPECT_EQ(channelsWith("stereo"), std::vector{2});
    EXPECT_EQ(channelsWith("none"), std::vector<int>{});
}

TEST_F(CommandLine, FramesASourceAsItWasDetectedUnlessTold) {
    // Red above, blue below; what it is stands in its name.
    const auto source = movie({.name = "beach_360_TB.mp4",
                               .width = 128,
                               .height = 128,
                               .frameCount = 2,
                               .painter = [](int, int, int height, std::span<std::uint8_t> rgba) {
                                   for (std::size_t i = 0; i < rgba.size(); i += 4) {
                                       const bool isAbove =
                                           i < rgba.size() / std::size_t(height) * std::size_t(height / 2);
                                       const std::uint8_t color[] = {std::uint8_t(isAbove ? 255 : 0), 0,
                                                                     std::uint8_t(isAbove ? 0 : 255), 255};
                                       std::ranges::copy(color, rgba.begin() + std::ptrdiff_t(i));
                                   }
                               }});
    const auto facts = nlohmann::json::parse(panoveer({"probe", source, "--json"}).standardOutput)["files"][0];
    EXPECT_EQ(facts["format"], "equirectangular");
    EXPECT_EQ(facts["detection"]["stereoLayout"], "overUnder");
    EXPECT_EQ(facts["detection"]["source"], "fileName");

    struct Row {
        std::vector<std::string> options;
        std::string says;
        bool isRedAbove, isRedBelow;
    };
    for (const auto& row : {
             Row{{}, "equirectangular, overUnder with the left eye first (from its name)", true, true},
             Row{{"--swap-eyes"}, "overUnder with the right eye first as told (from its name)", false, false},
             Row{{"--no-swap-eyes"}, "overUnder with the left eye first as told (from its name)", true, true},
             Row{{"--source-stereo", "mono"}, "equirectangular, mono as told (from its name)", true, false},
         }) {
        std::vector<std::string> arguments = {"frame",  source,        "--at",       "0",
                                              "-o",     path("a.png"), "--format",   "equirectangular",
                                              "--size", "256x128",     "--overwrite"};
        arguments.insert(arguments.end(), row.options.begin(), row.options.end());
        const auto result = panoveer(arguments);
        ASSERT_EQ(result.exitCode, 0) << result.standardError;
        EXPECT_NE(result.standardError.find(row.says), std::string::npos) << result.standardError;
        const auto pixels =
            runProgram({"ffmpeg", "-v", "error", "-i", path("a.png"), "-f", "rawvideo", "-pix_fmt", "rgb24", "-"})
                .standardOutput;
        const auto isRed = [&](std::size_t line) { return std::uint8_t(pixels.at((line * 256 + 128) * 3)) > 128; };
        EXPECT_EQ(isRed(32), row.isRedAbove) << row.says;
        EXPECT_EQ(isRed(96), row.isRedBelow) << row.says;
    }
}

TEST_F(CommandLine, ListsPresetsAndWhatWorksHere) {
    const auto presets = nlohmann::json::parse(panoveer({"presets", "--json"}).standardOutput);
    EXPECT_EQ(presets["delivery"].size(), 11u);
    const auto doctor = nlohmann::json::parse(panoveer({"doctor", "--json"}).standardOutput);
    EXPECT_FALSE(doctor["devices"].empty());
    for (const auto& encoder : doctor["encoders"])
        if (encoder["codec"] == "h264" || encoder["codec"] == "hevc10" || encoder["codec"] == "proRes") {
            EXPECT_TRUE(encoder["works"].get<bool>()) << encoder;
        }
}

TEST_F(CommandLine, SaysInOneLineThatTheLibraryForLayersIsMissing) {
    const auto source = movie({.frameCount = 2});
    setenv("PANOVEER_X265_LIBRARY", "/nowhere/x265.so", 1);
    const auto doctor = nlohmann::json::parse(panoveer({"doctor", "--json"}).standardOutput);
    EXPECT_FALSE(doctor["multiviewLibrary"]["found"].get<bool>());
    EXPECT_THAT(doctor["multiviewLibrary"]["reason"].get<std::string>(), testing::HasSubstr("/nowhere/x265.so"));
    for (const std::string codec : {"mvhevc8", "hevcWithAlpha"}) {
        const auto result = panoveer({"convert", source, "-o", path("eyes.mov"), "--codec", codec, "--size", "256x128",
                                      "--source-format", "standard", "--format", "standard", "--progress", "none"});
        EXPECT_EQ(result.exitCode, 1);
        EXPECT_EQ(std::ranges::count(result.standardError, '\n'), 2) << result.standardError; // with what the source is
        EXPECT_THAT(result.standardError, testing::HasSubstr("is not installed"));
    }
    unsetenv("PANOVEER_X265_LIBRARY");
}

} // namespace
} // namespace panoveer::test
