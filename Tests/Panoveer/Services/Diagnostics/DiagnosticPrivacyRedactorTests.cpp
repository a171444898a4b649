#include "Panoveer/Services/Diagnostics/DiagnosticPrivacyRedactor.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <cstdlib>
#include <optional>
#include <string>

namespace panoveer {
namespace {

using nlohmann::json;
using Redactor = DiagnosticPrivacyRedactor;

class Home {
public:
    explicit Home(const char* folder) {
        if (const char* before = std::getenv("HOME"))
            before_ = before;
        setenv("HOME", folder, 1);
    }
    ~Home() { before_ ? setenv("HOME", before_->c_str(), 1) : unsetenv("HOME"); }

private:
    std::optional<std::string> before_;
};

struct TextRow {
    const char* name;
    const char* home;
    std::string text;
    std::string redacted;
};

class RedactedText : public testing::TestWithParam<TextRow> {};

TEST_P(RedactedText, NamesNobody) {
    const Home home(GetParam().home);
    EXPECT_EQ(Redactor::redact(GetParam().text), GetParam().redacted);
}

constexpr const char* ann = "/home/ann";

INSTANTIATE_TEST_SUITE_P(
    Rules, RedactedText,
    testing::Values(
        TextRow{"HomeComesFirst", ann, "opened /HOME/Ann/Movies", "opened <HOME>/Movies"},
        TextRow{"HomeOfRoot", "/root", "in /root, not /rootfs", "in <HOME>, not /rootfs"},
        TextRow{"HomeIsNoPartOfALongerName", ann, "cp /home/anna/a b.txt", "cp <REDACTED_PATH>"},
        TextRow{"SlashIsNobodysHome", "/", "a / b", "a / b"},
        TextRow{"Mail", ann, "From Ann.B+x@mail.example.org.", "From <EMAIL>."},
        TextRow{"Token", ann, "Authorization: BEARER  abc.DEF_1~", "Authorization: Bearer <REDACTED>"},
        TextRow{"PathWithBlanksEndsAtAKey", ann, "x /Volumes/My Disk/A film.mov format=mp4",
                "x <REDACTED_PATH> format=mp4"},
        TextRow{"PathEndsAtPunctuation", ann, "(/Users/x/a b), \"/tmp/q\"", "(<REDACTED_PATH>), \"<REDACTED_PATH>\""},
        TextRow{"PathEndsWithItsLine", ann, "a /var/log/my file\nb", "a <REDACTED_PATH>\nb"},
        TextRow{"FileURL", ann, "see file:///Users/x/y z", "see <REDACTED_PATH>"},
        TextRow{"AnyRoot", ann, "/data/nas/Film one.mov: No space left", "<REDACTED_PATH>: No space left"},
        TextRow{"MediaAndMounts", ann, "at=/media/bob/SD CARD/x, /mnt/y/z; /run/media/c/d",
                "at=<REDACTED_PATH>, <REDACTED_PATH>; <REDACTED_PATH>"},
        TextRow{"FractionsAndAddressesStay", ann, "30000/1001 at 2/1/3, and/or https://x.example/a/b",
                "30000/1001 at 2/1/3, and/or https://x.example/a/b"},
        TextRow{"LabelsStay", ann, "export begin file=My film.mov format=mp4 source=a.mkv",
                "export begin file=<REDACTED_FILE> format=mp4 source=<REDACTED_FILE>"},
        TextRow{"NamedAfterFor", ann, "video reader failed for My Rome trip.MP4; trying FFmpeg",
                "video reader failed for <REDACTED_FILE>; trying FFmpeg"},
        TextRow{"BareName", ann, "left out Löwe_(1).jpeg: bad", "left out <REDACTED_FILE>: bad"},
        TextRow{"OtherExtensionsStay", ann, "libx265.so and a.movie", "libx265.so and a.movie"},
        TextRow{"JSONLine", ann, "a\n{\"source_files\":[\"a b.mov\",\"c\"],\"n\":1}\nb",
                "a\n{\"n\":1,\"source_files\":[\"<REDACTED_PATH>\",\"<REDACTED_PATH>\"]}\nb"},
        TextRow{"JSONWithAnErrorIsText", ann, "{\"file\":\"/Users/x/a.mov\"", "{\"file\":\"<REDACTED_PATH>\""}),
    [](const auto& test) { return test.param.name; });

TEST(DiagnosticPrivacyRedactorTests, RedactsValuesByTheirKeys) {
    const auto redacted = Redactor::redactJSONObject(json::parse(R"({
        "Output": {"deep": 1}, "requested_partial_path": null, "pixel_buffer_width": 8, "clip_files": [], "an_url": 5,
        "list": ["/tmp/a/b", {"filename": "x"}, 1.5, true, null], "mixed_file": ["a", 1], "text": "to a@b.org"})"));
    EXPECT_EQ(redacted, json::parse(R"({
        "Output": "<REDACTED_PATH>", "requested_partial_path": "<REDACTED_PATH>", "pixel_buffer_width": 8,
        "clip_files": [], "an_url": "<REDACTED_PATH>",
        "list": ["<REDACTED_PATH>", {"filename": "<REDACTED_PATH>"}, 1.5, true, null],
        "mixed_file": "<REDACTED_PATH>", "text": "to <EMAIL>"})"));
    EXPECT_EQ(Redactor::redactJSONLines("7\n\"/Users/x/y\"\n[\"/Users/x/y\"]\n"),
              "7\n\"/Users/x/y\"\n[\"<REDACTED_PATH>\"]\n");
}

// A line as long as a damaged file can make it: slashes are what the path rules go back to.
TEST(DiagnosticPrivacyRedactorTests, IsDoneInTimeWithLongLines) {
    std::string path = "/tmp";
    for (int i = 0; i < 20000; ++i)
        path += "/a b";
    EXPECT_EQ(Redactor::redact("x " + path + "\ny"), "x <REDACTED_PATH>\ny");
}

} // namespace
} // namespace panoveer
