#include "Panoveer/Services/Diagnostics/AppDiagnosticsCollector.h"

#include <gmock/gmock.h>

#include <cstdlib>
#include <fstream>

namespace panoveer {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;
using testing::Not;

class AppDiagnosticsCollectorTest : public testing::Test {
protected:
    AppDiagnosticsCollectorTest() {
        std::string pattern = (fs::temp_directory_path() / "panoveer-log-XXXXXX").string();
        folder = mkdtemp(pattern.data());
        setenv("TZ", "UTC", 1);
        tzset();
    }
    ~AppDiagnosticsCollectorTest() override { fs::remove_all(folder); }

    std::string report(const std::string& exports = "") {
        return AppDiagnosticsCollector({.version = "1.2",
                                        .recentReports = [&](std::size_t) { return exports; },
                                        .logFile = folder / "panoveer.log",
                                        .now =
                                            [] {
                                                return std::chrono::system_clock::time_point(
                                                    std::chrono::seconds(1'800'000'000)); // 2027-01-15 08:00:00 UTC
                                            }})
            .collect();
    }

    fs::path folder;
};

TEST_F(AppDiagnosticsCollectorTest, JoinsWhatRunsWhereTheTracesAndTheLastHour) {
    std::ofstream(folder / "panoveer.1.log")
        << "[2027-01-15 06:59:59.999] [com.fernhollow.panoveer] [info] [Export] old\n"
           "of that\n"
           "[2027-01-15 07:00:00.001] [com.fernhollow.panoveer] [info] [Export] "
           "first file=My film.mov format=x\n";
    std::ofstream(folder / "panoveer.log") << "[2027-01-15 07:30:00.000] [com.fernhollow.panoveer] [error] [Preview] "
                                              "second\nand more of it\n";
    const auto text = report("Report 20270115-075900-Secret film.jsonl\n{\"output_path\":\"/x\"}\n");
    EXPECT_THAT(text, testing::StartsWith("Application: Panoveer Studio\nVersion: 1.2 (unknown)\nLinux: "));
    EXPECT_THAT(text, HasSubstr("\nArchitecture: "));
    EXPECT_THAT(text, HasSubstr("\nLocale: "));
    EXPECT_THAT(text, testing::EndsWith("\nGenerated: 2027-01-15T08:00:00Z\n\n"
                                        "Report 20270115-075900-<REDACTED_FILE>.jsonl\n"
                                        "{\"output_path\":\"<REDACTED_PATH>\"}\n\n"
                                        "2027-01-15 07:00:00.001 Export first file=<REDACTED_FILE> format=x\n"
                                        "2027-01-15 07:30:00.000 Preview second\nand more of it"));
}

TEST_F(AppDiagnosticsCollectorTest, SaysWhenThereIsNoLogAndLeavesEmptyPartsOut) {
    EXPECT_THAT(report(), testing::EndsWith("Z\n\nApplication log unavailable (panoveer.log: No such file or "
                                            "directory)"));
}

TEST(AppDiagnosticsCollectorTests, KeepsTheEndOfALongReport) {
    constexpr std::size_t most = 262144;
    EXPECT_EQ(AppDiagnosticsCollector::limited(std::string(most, 'a')), std::string(most, 'a'));
    const std::string omitted = "[Earlier log entries omitted]\n";
    EXPECT_EQ(AppDiagnosticsCollector::limited(std::string(most + 1, 'a')), omitted + std::string(most, 'a'));
    EXPECT_EQ(AppDiagnosticsCollector::limited("\xc3\xa4" + std::string(most - 1, 'a')),
              omitted + std::string(most - 1, 'a'))
        << "half a character is none";
}

} // namespace
} // namespace panoveer
