#include "CopyingRenderer.h"
#include "Panoveer/Services/Export/ExportDiagnosticsRecorder.h"
#include "Panoveer/Services/Export/ExportRuntimeMonitor.h"
#include "Support/MediaFactory.h"
#include "Support/Thrown.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include <filesystem>
#include <limits>
#include <sstream>

namespace panoveer {
namespace {

namespace fs = std::filesystem;
using nlohmann::json;
using std::chrono::system_clock;

class Samples final : public ExportDiagnostics {
public:
    void record(std::string_view event, const DiagnosticFields& fields) override {
        EXPECT_EQ(event, "runtime_sample");
        samples.push_back(fields);
    }
    double number(const std::string& field) const { return std::get<double>(samples.back().at(field)); }

    std::vector<DiagnosticFields> samples;
};

class ExportRuntimeMonitorTest : public testing::Test {
protected:
    ExportSystemReadings readings() {
        return {.uptimeSeconds = [this] { return uptime; },
                .fileSize = [this](auto&) { return fileSize; },
                .freeDiskBytes = [this](auto&) { return free; },
                .residentMemoryBytes = [] { return std::nullopt; },
                .virtualMemoryBytes = [] { return 7.0; },
                .thermalState = [] { return "nominal"; },
                .physicalMemoryBytes = [] { return 1e9; }};
    }
    ExportRuntimeMonitor monitor(double estimatedBytes) {
        return {{URL::fromFilePath("/out/film.mov"), estimatedBytes, 100}, &samples, renderer, readings()};
    }

    CopyingRenderer renderer;
    Samples samples;
    double uptime = 1000;
    double fileSize = 0;
    std::optional<double> free = 1e12;
};

TEST_F(ExportRuntimeMonitorTest, SamplesEveryFiveSecondsUnlessItIsForced) {
    auto watched = monitor(1e9);
    struct Row {
        double after;
        bool force;
        std::size_t samples;
    };
    std::int64_t frames = 0;
    for (const auto& row :
         {Row{2, false, 1}, Row{4.9, false, 1}, Row{0.1, false, 2}, Row{1, true, 3}, Row{4.9, false, 3}}) {
        uptime += row.after;
        watched.sampleIfNeeded(frames += 30, std::nullopt, 1, "reading_source", row.force);
        EXPECT_EQ(samples.samples.size(), row.samples) << uptime;
    }
    EXPECT_DOUBLE_EQ(samples.number("recent_frames_per_second"), 30) << "30 more frames in the last second";
    EXPECT_DOUBLE_EQ(samples.number("elapsed_seconds"), 8);
    EXPECT_EQ(samples.samples.back().contains("process_resident_memory_bytes"), false);
    EXPECT_DOUBLE_EQ(samples.number("process_virtual_memory_bytes"), 7);
}

struct SpaceRow {
    const char* name;
    double estimated, written, presentation, elapsed;
    std::optional<double> free;
    bool ends;
};

class SpaceGuard : public ExportRuntimeMonitorTest, public testing::WithParamInterface<SpaceRow> {};

TEST_P(SpaceGuard, EndsTheExportBeforeTheDiskIsFull) {
    const auto& row = GetParam();
    auto watched = monitor(row.estimated);
    uptime += row.elapsed;
    fileSize = row.written;
    free = row.free;
    const auto sample = [&] { watched.sampleIfNeeded(1, row.presentation, 1, "reading_source"); };
    if (!row.ends) {
        EXPECT_NO_THROW(sample());
        return;
    }
    const auto error = test::thrown<ExportRuntimeMonitorError>(sample);
    ASSERT_TRUE(error) << "the export goes on";
    EXPECT_EQ(error->availableBytes, *row.free);
    EXPECT_GT(error->requiredFreeBytes, *row.free);
    EXPECT_EQ(samples.samples.size(), 1u) << "the trace tells why";
}

INSTANTIATE_TEST_SUITE_P(Readings, SpaceGuard,
                         testing::Values(SpaceRow{"TwoGigabytesNeedThreePointOne", 2e9, 0, 0, 0, 3e9, true},
                                         SpaceRow{"JustEnough", 2e9, 0, 0, 0, 3.1e9, false},
                                         SpaceRow{"WhatIsWrittenCountsNoMore", 3e9, 1e9, 0, 0, 3.1e9, false},
                                         SpaceRow{"NothingKnownOfTheDisk", 2e9, 0, 0, 0, std::nullopt, false},
                                         SpaceRow{"NothingExpected", 0, 0, 0, 0, 1.0, false},
                                         SpaceRow{"LargerThanEstimated", 1e9, 1e9, 10, 10, 9e9, true}, // 10 GB in all
                                         SpaceRow{"BeforeTenSecondsOnlyTheEstimateCounts", 1e9, 1e9, 10, 9.9, 9e9,
                                                  false},
                                         SpaceRow{"BeforeOnePerCentOnlyTheEstimateCounts", 1e9, 1e9, 1, 10, 9e9, false},
                                         SpaceRow{"MoreThanAll", 1e9, 5e9, 1000, 10, 1e9, false}),
                         [](const auto& test) { return test.param.name; });

TEST(ExportDiagnosticsRecorderTests, LeavesOneJSONObjectALineWithoutNames) {
    const test::TemporaryFolder folder;
    ExportDiagnosticsRecorder recorder(URL::fromFilePath("/out/My film: one.mov"), folder.path(),
                                       [] { return system_clock::time_point(std::chrono::seconds(1'800'000'000)); });
    recorder.markStage("reading_source", {{"source", std::string("/media/ann/Rome.mov")},
                                          {"source_files", std::vector<std::string>{"/a.mov", "/b.mov"}},
                                          {"frames_written", std::int64_t(7)}});
    recorder.record("odd", {{"diagnostic", std::string("Cannot write film one.mov\n\xff")},
                            {"rate", std::numeric_limits<double>::infinity()}});
    EXPECT_EQ(recorder.stage(), "reading_source");
    EXPECT_THAT(recorder.url().lastPathComponent(), testing::MatchesRegex("[0-9]{8}-[0-9]{6}-My film- one\\.jsonl"));

    std::istringstream file(std::string(reinterpret_cast<const char*>(test::readFile(recorder.url().path()).data()),
                                        fs::file_size(recorder.url().path())));
    std::vector<json> lines;
    for (std::string line; std::getline(file, line);)
        lines.push_back(json::parse(line));
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_EQ(lines[0], json::parse(R"({"event":"created","timestamp":"2027-01-15T08:00:00.000Z"})"));
    EXPECT_EQ(lines[1]["event"], "stage_changed");
    EXPECT_EQ(lines[1]["stage"], "reading_source");
    EXPECT_EQ(lines[1]["source"], "<REDACTED_PATH>");
    EXPECT_EQ(lines[1]["source_files"], json({"<REDACTED_PATH>", "<REDACTED_PATH>"}));
    EXPECT_EQ(lines[1]["frames_written"], 7);
    EXPECT_EQ(lines[2]["diagnostic"].get<std::string>().contains("one.mov"), false);
}

TEST(ExportDiagnosticsRecorderTests, KeepsTracesForAMonthAndShowsTheLatestFirst) {
    const test::TemporaryFolder folder;
    const auto write = [&](const std::string& name, const std::string& text, std::chrono::hours age) {
        test::writeText(folder / name, text);
        fs::last_write_time(folder / name, fs::file_time_type::clock::now() - age);
    };
    write("expired.jsonl", "x\n", std::chrono::hours(24 * 30 + 1));
    write("expired.txt", "x\n", std::chrono::hours(24 * 30 + 1));
    write("old.jsonl", "first\nsecond\nthird\n", std::chrono::hours(24 * 29));
    write("new.jsonl", "a\n", std::chrono::hours(1));
    const auto output = URL::fromFilePath("/out/film.mov");
    const auto clock = [] { return system_clock::now(); };
    const ExportDiagnosticsRecorder one(output, folder.path(), clock), other(output, folder.path(), clock);
    EXPECT_NE(one.url(), other.url());
    EXPECT_FALSE(fs::exists(folder / "expired.jsonl"));
    EXPECT_TRUE(fs::exists(folder / "expired.txt"));
    fs::remove(one.url().path());
    fs::remove(other.url().path());

    const std::string newest = "Report new.jsonl\na\n", heading = "\nReport old.jsonl\n";
    const auto recent = [&](std::size_t bytes) {
        return ExportDiagnosticsRecorder::recentReports(bytes, folder.path());
    };
    EXPECT_EQ(recent(1000), newest + heading + "first\nsecond\nthird\n");
    // Of what has no room the end: that tells what went wrong.
    EXPECT_EQ(recent(newest.size() + heading.size() + 15), newest + heading + "second\nthird\n");
    EXPECT_EQ(recent(newest.size()), newest);
    EXPECT_EQ(ExportDiagnosticsRecorder::recentReports(1000, folder / "none"), "");
}

} // namespace
} // namespace panoveer
