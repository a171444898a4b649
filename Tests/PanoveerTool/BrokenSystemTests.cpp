#include "PanoveerTool/CommandLine.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <random>

namespace panoveer::test {
namespace {

namespace fs = std::filesystem;

struct MovieCase {
    const char* extension;
    const char* codec;
};

// Conversions over an older movie while the file system fails or the process is killed, at every call that may matter
// or at random ones; the seed is fixed.
class BrokenSystem : public testing::TestWithParam<MovieCase> {
protected:
    const TemporaryFolder folder;
    const fs::path out = folder / "out";
    const fs::path target = out / (std::string("movie.") + GetParam().extension);
    const std::string older = "an older movie";
    std::mt19937 random{20261};

    struct Outcome : ProgramResult {
        long calls = 0;                // that could have been struck
        std::set<std::string> strays;  // names beside the target
        bool isOlderMovie = false;     // at the target
        std::uintmax_t targetSize = 0; // bytes
    };

    fs::path source(int frameCount) {
        return makeMovie(folder, {.name = "source.mov", .frameCount = frameCount, .codec = "mpeg4"});
    }

    Outcome convert(const fs::path& movie, const std::string& plan) {
        fs::remove_all(out);
        fs::create_directories(out);
        std::ofstream(target) << older;
        const auto count = folder / "count";
        fs::remove(count);
        Outcome outcome;
        std::vector<std::string> command = {"env", std::string("LD_PRELOAD=") + PANOVEER_FAULT_INJECTION,
                                            "ASAN_OPTIONS=detect_leaks=0:verify_asan_link_order=0"};
        command.insert(command.end(), {"PANOVEER_FAULT_FOLDER=" + out.string(), "PANOVEER_FAULT=" + plan,
                                       "PANOVEER_FAULT_COUNT=" + count.string(), PANOVEER_PROGRAM, "convert"});
        command.insert(command.end(),
                       {movie.string(), "-o", target.string(), "--overwrite", "--codec", GetParam().codec,
                        "--source-format", "equirectangular", "--format", "equirectangular", "--size", "160x80"});
        static_cast<ProgramResult&>(outcome) = runProgram(command);
        std::ifstream(count) >> outcome.calls;
        outcome.strays = namesIn(out);
        outcome.strays.erase(target.filename().string());
        const auto bytes = readFile(target);
        outcome.targetSize = bytes.size();
        outcome.isOlderMovie = std::string(bytes.begin(), bytes.end()) == older;
        return outcome;
    }

    // What a next start makes of what a killed one has left.
    std::set<std::string> namesAfterTheNextStart(const fs::path& movie) {
        const auto next = runProgram({PANOVEER_PROGRAM, "convert", movie.string(), "-o", (out / "next.mp4").string(),
                                      "--codec", "h264", "--out", "0.1", "--size", "160x80"});
        EXPECT_EQ(next.exitCode, 0) << next.standardError;
        auto names = namesIn(out);
        for (const auto& expected : {target.filename().string(), std::string("next.mp4")})
            EXPECT_EQ(names.erase(expected), 1U) << expected;
        return names;
    }

    std::string partialName() const { return std::string("movie.partial.") + GetParam().extension; }

    int below(long limit) { return int(random() % std::max(limit, 1L)); }
};

// Of an independent player that plays a movie to its end.
std::string complaints(const fs::path& movie) {
    const auto result = runProgram({"ffmpeg", "-v", "error", "-i", movie.string(), "-f", "null", "-"});
    return result.exitCode == 0 ? result.standardError : "failed: " + result.standardError;
}

TEST_P(BrokenSystem, SaysWhatFailedAndKeepsWhatStoodThere) {
    const auto movie = source(30);
    const auto whole = convert(movie, "none");
    ASSERT_EQ(whole.exitCode, 0) << whole.standardError;
    ASSERT_GE(whole.calls, 8);
    EXPECT_FALSE(whole.isOlderMovie);
    struct Fault {
        std::string kind;
        int code;
    };
    const Fault faults[] = {{"error", EIO}, {"error", ENOSPC}, {"full", ENOSPC}, {"full", EDQUOT}, {"error", EFBIG}};
    // The last calls are those of the metadata and the commit.
    std::set<long> calls;
    for (long call = whole.calls - 9; call <= whole.calls; ++call)
        calls.insert(std::max(call, 1L));
    for (int trial = 0; trial < 8; ++trial)
        calls.insert(1 + below(whole.calls));
    for (const auto call : calls) {
        const auto& fault = faults[below(std::size(faults))];
        const auto plan = fault.kind + ":" + std::to_string(call) + ":" + std::to_string(fault.code);
        SCOPED_TRACE(plan);
        const auto outcome = convert(movie, plan);
        for (const auto& stray : outcome.strays) {
            EXPECT_EQ(stray, partialName());
            EXPECT_NE(outcome.standardError.find(stray), std::string::npos) << outcome.standardError;
            EXPECT_EQ(complaints(out / stray), "");
        }
        if (outcome.exitCode == 0) { // what is struck is done as well as can be, as flushing the folder is
            EXPECT_EQ(outcome.targetSize, whole.targetSize);
            EXPECT_TRUE(outcome.strays.empty());
            EXPECT_GT(call, whole.calls - 2);
            continue;
        }
        EXPECT_EQ(outcome.exitCode, 1);
        EXPECT_TRUE(outcome.isOlderMovie);
        const std::string reason =
            fault.code == ENOSPC || fault.code == EDQUOT ? "disk is full" : std::strerror(fault.code);
        EXPECT_NE(outcome.standardError.find(reason), std::string::npos) << outcome.standardError;
    }
    for (const std::string kind : {"short", "interrupt"})
        for (int trial = 0; trial < 3; ++trial) {
            const auto plan = kind + ":" + std::to_string(1 + below(whole.calls - 4));
            SCOPED_TRACE(plan);
            const auto outcome = convert(movie, plan);
            EXPECT_EQ(outcome.exitCode, 0) << outcome.standardError;
            EXPECT_EQ(outcome.targetSize, whole.targetSize);
            EXPECT_TRUE(outcome.strays.empty());
        }
}

// Where the last whole fragment of a movie ends that was cut off; 0 without one.
std::size_t endOfWholeFragments(const std::vector<std::uint8_t>& movie) {
    std::size_t end = 0;
    bool hasFragment = false;
    for (const auto& box : boxesIn(movie, 0, movie.size())) {
        hasFragment |= box.type == "moof";
        if (box.type == "mdat" && hasFragment)
            end = box.end;
    }
    return end;
}

TEST_P(BrokenSystem, LeavesNoHalfMovieUnderItsNameWhenKilled) {
    const auto movie = source(340);
    const auto whole = convert(movie, "none");
    ASSERT_EQ(whole.exitCode, 0) << whole.standardError;
    int playable = 0;
    for (int moment = 0; moment < 15; ++moment) {
        const auto plan = "kill:" + std::to_string(1 + below(whole.calls));
        SCOPED_TRACE(plan);
        const auto outcome = convert(movie, plan);
        EXPECT_EQ(outcome.exitCode, 128 + SIGKILL);
        EXPECT_TRUE(outcome.isOlderMovie || outcome.targetSize == whole.targetSize);
        for (const auto& name : namesAfterTheNextStart(movie)) {
            EXPECT_EQ(name, partialName());
            ++playable;
            // Players go on into what was cut off; what comes before it is sound.
            const auto bytes = readFile(out / name);
            const auto end = endOfWholeFragments(bytes);
            const auto sound = folder / "sound.mov";
            writeFile(sound, std::span(bytes).first(end > 0 ? end : bytes.size()));
            EXPECT_EQ(complaints(sound), "");
            const auto frames = videoStream(sound, {"-count_frames"})["nb_read_frames"].get<std::string>();
            EXPECT_GE(std::stoi(frames), 30) << "the first fragment holds a second";
        }
    }
    if (GetParam().extension == std::string("mov")) {
        EXPECT_GT(playable, 0);
    }
}

INSTANTIATE_TEST_SUITE_P(Movies, BrokenSystem,
                         testing::Values(MovieCase{"mp4", "h264"}, MovieCase{"mov", "proRes422HQ"}),
                         [](const auto& test) { return test.param.extension; });

} // namespace
} // namespace panoveer::test
