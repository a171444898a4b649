#include "BoxBuilding.h"
#include "Panoveer/Services/Export/PartialOutputRecovery.h"
#include "Panoveer/Services/Export/StaleExportRecovery.h"
#include "Platform/Core/FileLock.h"
#include "Platform/Core/UUID.h"
#include "Support/MediaFactory.h"

#include <gmock/gmock.h>

#include <filesystem>
#include <map>

namespace panoveer {
namespace {

namespace fs = std::filesystem;
using test::box;
using test::Bytes;
using test::header;
using test::joined;
using test::namesIn;
using test::zeros;
using testing::ElementsAre;
using testing::UnorderedElementsAre;

const Bytes head = joined({box("ftyp", {zeros(8)}), box("moov", {box("mvex")}), box("mdat", {zeros(10)})});
const Bytes fragment = joined({box("moof", {zeros(16)}), box("mdat", {zeros(100)})});
const Bytes finished = joined({box("ftyp", {zeros(8)}), box("mdat", {zeros(10)}), box("moov", {box("mvhd")})});

Bytes without(Bytes bytes, std::size_t count) {
    bytes.resize(bytes.size() - count);
    return bytes;
}

TEST(PartialOutputRecoveryTests, ACompleteFragmentIsAMovieFragmentWithItsMedia) {
    struct Row {
        const char* what;
        Bytes bytes;
        bool isComplete;
    };
    const test::TemporaryFolder folder;
    for (const auto& row :
         {Row("one", joined({head, fragment}), true), Row("only the head", head, false), Row("nothing", {}, false),
          Row("media cut short", without(joined({head, fragment}), 1), false),
          Row("second cut short", without(joined({head, fragment, fragment}), 1), true),
          Row("media ahead of the header", joined({head, box("moof")}), false),
          Row("other box between", joined({head, box("moof"), box("free"), box("mdat")}), true),
          Row("size of 64 bits", joined({head, box("moof"), test::wideHeader("mdat", 20), zeros(4)}), true),
          Row("size that overflows", joined({head, box("moof"), test::wideHeader("mdat", ~std::uint64_t(0) - 8)}),
              false),
          Row("open size", joined({head, header("free", 0), fragment}), false),
          Row("size below the header", joined({head, header("free", 7), fragment}), false),
          Row("wide size below the header", joined({head, test::wideHeader("free", 15), fragment}), false)}) {
        test::writeFile(folder / "movie.mov", row.bytes);
        EXPECT_EQ(PartialOutputRecovery::containsCompleteMovieFragment(URL::fromFilePath(folder / "movie.mov")),
                  row.isComplete)
            << row.what;
    }
}

TEST(PartialOutputRecoveryTests, NumbersPartialFilesAndKeepsTheirNamesShort) {
    const test::TemporaryFolder folder;
    const auto partialOf = [&](const std::string& name) {
        return PartialOutputRecovery::uniquePartialOutputURL(URL::fromFilePath(folder / name)).lastPathComponent();
    };
    EXPECT_EQ(partialOf("film.mov"), "film.partial.mov");
    test::writeFile(folder / "film.partial.mov", {});
    EXPECT_EQ(partialOf("film.mov"), "film.partial-2.mov");
    fs::create_symlink("nowhere", folder / "film.partial-2.mov");
    EXPECT_EQ(partialOf("film.mov"), "film.partial-3.mov");
    EXPECT_EQ(partialOf("film"), "film.partial");
    const auto longest = partialOf(std::string(251, 'n') + ".mov");
    EXPECT_EQ(longest.size(), 255u);
    EXPECT_TRUE(longest.ends_with("n.partial.mov"));
}

constexpr std::string_view uuid = "6F9619FF-8B86-4011-B42D-00CF4FC964FF";

struct NameRow {
    std::string name;
    bool isStaged;
};

TEST(StaleExportRecoveryTests, KnowsTheNamesThatExportsMakeAndNoOthers) {
    const std::string id(uuid);
    for (const auto& [name, isStaged] : {
             NameRow{"film.panoveer-" + id + ".tmp.mov", true},
             NameRow{"a.b.panoveer-" + id + ".tmp.mp4", true},
             NameRow{".alpha-masks.panoveer-" + id + ".tmp", true},
             NameRow{"film.panoveer-" + id + ".tmp.mov.spatial-" + id + ".tmp", true},
             NameRow{"film.panoveer-" + id + ".tmp", false}, // a movie has an extension
             NameRow{".panoveer-" + id + ".tmp", false},     // a picture's
             NameRow{".panoveer-" + id + ".tmp.mov", false},
             NameRow{"film.panoveer-" + id + ".tmp.mkv", false},
             NameRow{"film.panoveer-" + id + ".mov", false},
             NameRow{"film.panoveer-" + id.substr(1) + ".tmp.mov", false},
             NameRow{"film.panoveer-6f9619ff-8b86-4011-b42d-00cf4fc964ff.tmp.mov", false},
             NameRow{"film.panoveer-" + id + "x.tmp.mov", false},
             NameRow{"film.mov.spatial-" + id + ".tmp", false},
             NameRow{"film.tmp.mov", false},
             NameRow{"film.mov", false},
         })
        EXPECT_EQ(StaleExportRecovery::parse(name).has_value(), isStaged) << name;
}

TEST(StaleExportRecoveryTests, PromotesWhatPlaysAndRemovesTheRest) {
    const test::TemporaryFolder folder;
    const auto staged = [&](const std::string& name) {
        const auto path = folder / (name + UUID::random().text() + ".tmp");
        return path.string();
    };
    test::writeFile(staged("plays.panoveer-") + ".mov", joined({head, fragment}));
    test::writeFile(staged("short.panoveer-") + ".mov", head);
    test::writeFile(staged("done.panoveer-") + ".mp4", finished);
    test::writeFile(staged("begun.panoveer-") + ".mp4", joined({box("ftyp"), zeros(100)}));
    const auto withCopy = staged("copy.panoveer-") + ".mov";
    test::writeFile(withCopy, joined({head, fragment}));
    test::writeFile(withCopy + ".spatial-" + std::string(uuid) + ".tmp", head);
    test::writeFile(staged("gone.panoveer-") + ".mov.spatial-" + std::string(uuid) + ".tmp", head);
    const auto masks = staged(".alpha-masks.panoveer-");
    fs::create_directories(masks);
    test::writeFile(fs::path(masks) / "clip-1.png", head);
    fs::create_directories(staged("folder.panoveer-") + ".mov");
    fs::create_symlink("plays.mov", staged("link.panoveer-") + ".mov");
    test::writeFile(folder / "film.mov", head);

    std::vector<std::string> partials;
    for (const auto& url : StaleExportRecovery::recover(URL::fromFilePath(folder.path())))
        partials.push_back(url.lastPathComponent());
    EXPECT_THAT(partials, ElementsAre("copy.partial.mov", "done.partial.mp4", "plays.partial.mov"));
    EXPECT_THAT(namesIn(folder.path()),
                UnorderedElementsAre("copy.partial.mov", "done.partial.mp4", "plays.partial.mov", "film.mov",
                                     testing::StartsWith("folder.panoveer-"), testing::StartsWith("link.panoveer-")));
    EXPECT_EQ(test::readFile(folder / "plays.partial.mov"), joined({head, fragment}));
}

TEST(StaleExportRecoveryTests, LeavesARunningExportAlone) {
    const test::TemporaryFolder folder;
    const auto movie = folder / ("film.panoveer-" + std::string(uuid) + ".tmp.mov");
    const auto copy = movie.string() + ".spatial-" + std::string(uuid) + ".tmp";
    const auto masks = folder / (".alpha-masks.panoveer-" + std::string(uuid) + ".tmp");
    test::writeFile(movie, joined({head, fragment}));
    test::writeFile(copy, head);
    fs::create_directories(masks);
    const auto before = namesIn(folder.path());
    {
        const auto running = FileLock::shared(movie), runningToo = FileLock::shared(masks);
        EXPECT_THAT(StaleExportRecovery::recover(URL::fromFilePath(folder.path())), testing::IsEmpty());
        EXPECT_EQ(namesIn(folder.path()), before);
    }
    EXPECT_EQ(StaleExportRecovery::recover(URL::fromFilePath(folder.path())).size(), 1u);
    EXPECT_THAT(namesIn(folder.path()), UnorderedElementsAre("film.partial.mov"));
}

} // namespace
} // namespace panoveer
