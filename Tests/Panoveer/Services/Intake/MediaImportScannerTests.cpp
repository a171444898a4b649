#include "Panoveer/Services/Intake/MediaImportScanner.h"
#include "Platform/Core/Error.h"
#include "Platform/Core/Localization.h"
#include "Support/MediaFactory.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

namespace panoveer {

void PrintTo(const MediaImportSkippedItem& item, std::ostream* stream) {
    *stream << item.name << " (" << describe(item.reason) << ')';
}

namespace {

namespace fs = std::filesystem;
using Reason = MediaImportSkipReason;
using testing::ElementsAre;
using testing::IsEmpty;

// A folder tree of empty files, scanned with a test that counts and answers as told.
class MediaImportScannerTests : public testing::Test {
protected:
    void SetUp() override { setLanguage("en"); }

    void makeFiles(std::initializer_list<const char*> names) {
        for (const char* name : names) {
            fs::create_directories((folder / name).parent_path());
            test::writeFile(folder / name, {});
        }
    }

    URL url(const fs::path& name = "") const { return URL::fromFilePath(folder.path() / name); }

    MediaImportScan scan(const std::vector<URL>& urls) {
        return MediaImportScanner::scan(urls, [this](const URL& file) {
            tested.push_back(file.lastPathComponent());
            return recognizesVideo;
        });
    }
    MediaImportScan scanFolder() { return scan({url()}); }

    static std::vector<std::string> names(const std::vector<URL>& urls) {
        std::vector<std::string> result;
        for (const auto& each : urls)
            result.push_back(each.lastPathComponent());
        return result;
    }

    static MediaImportSkippedItem skipped(std::string name, Reason reason) {
        return {std::move(name), std::move(reason)};
    }

    const test::TemporaryFolder folder;
    std::vector<std::string> tested;
    bool recognizesVideo = false;
};

TEST_F(MediaImportScannerTests, KnownExtensionsDecideAloneAndOnlyUnknownOnesAreOpened) {
    makeFiles({"film.MP4", "take.crm", "show.PnVee", "lens.insv", "lens.insp", "lens.360", "notes.txt", "README"});
    const auto found = scanFolder();
    EXPECT_THAT(names(found.videoURLs), ElementsAre("film.MP4", "take.crm"));
    EXPECT_THAT(names(found.projectURLs), ElementsAre("show.PnVee"));
    EXPECT_THAT(found.skipped,
                ElementsAre(skipped("lens.360", Reason::Case::unstitchedCameraOriginal),
                            skipped("lens.insp", Reason::Case::unstitchedCameraOriginal),
                            skipped("lens.insv", Reason::Case::unstitchedCameraOriginal),
                            skipped("notes.txt", Reason::Case::noVideo), skipped("README", Reason::Case::noVideo)));
    EXPECT_THAT(tested, ElementsAre("notes.txt", "README"));
    recognizesVideo = true;
    EXPECT_THAT(names(scan({url("README")}).videoURLs), ElementsAre("README"));
}

TEST_F(MediaImportScannerTests, WalksFoldersToTheBottomInTheOrderOfAFileBrowser) {
    makeFiles(
        {"clip 10.mov", "clip 2.mov", "Day 2/a.mov", "day 10/a.mov", ".hidden.mov", ".trash/b.mov", "._clip.mov"});
    std::vector<std::string> paths;
    for (const auto& video : scanFolder().videoURLs)
        paths.push_back(video.path().lexically_relative(folder.path()).string());
    EXPECT_THAT(paths, ElementsAre("clip 2.mov", "clip 10.mov", "Day 2/a.mov", "day 10/a.mov"));
}

TEST_F(MediaImportScannerTests, NumberedPicturesBecomeOneItemForEachFolderStemAndKind) {
    makeFiles({"a/frame12.jpg", "a/shot_01.jpg", "a/shot_01.png", "b/0001.png", "b/0002.png", "b/x001.png",
               "b/x002.PNG", "b/portrait.heic", "c/x001.png", "c/x٠٢.png"});
    EXPECT_THAT(scanFolder().skipped,
                ElementsAre(skipped("portrait.heic", Reason::Case::photo), skipped("frame12.jpg", Reason::Case::photo),
                            skipped("shot_01.jpg", Reason::Case::photo), skipped("shot_01.png", Reason::Case::photo),
                            skipped("0001.png", Reason::imageSequence(2)),
                            skipped("x001.png", Reason::imageSequence(2)),
                            skipped("x001.png", Reason::imageSequence(2))));
}

TEST_F(MediaImportScannerTests, AFolderWithoutMediaIsEmptyEvenWhenItHoldsProjects) {
    fs::create_directories(folder / "nothing");
    makeFiles({"projects/a.pnvee", "pictures/a.png", "pictures/.b.mov"});
    const auto found = scan({url("nothing"), url("projects"), url("pictures")});
    EXPECT_THAT(names(found.projectURLs), ElementsAre("a.pnvee"));
    EXPECT_THAT(found.skipped,
                ElementsAre(skipped("nothing", Reason::Case::emptyFolder),
                            skipped("projects", Reason::Case::emptyFolder), skipped("a.png", Reason::Case::photo)));
}

TEST_F(MediaImportScannerTests, MissingItemsAreReportedUnlessTheirExtensionIsKnown) {
    const auto missing = localized("import.skip.missing");
    const auto found = scan({url("gone"), url("gone.txt"), url("gone.mov"), url("gone.pnvee")});
    EXPECT_THAT(found.skipped, ElementsAre(skipped("gone", Reason::unreadable(missing)),
                                           skipped("gone.txt", Reason::unreadable(missing))));
    EXPECT_THAT(names(found.videoURLs), ElementsAre("gone.mov"));
    EXPECT_THAT(names(found.projectURLs), ElementsAre("gone.pnvee"));
    EXPECT_THAT(tested, IsEmpty());
}

TEST_F(MediaImportScannerTests, LinksToFilesCountAndLoopsOfLinksEnd) {
    makeFiles({"media/film.mov", "drop/inner/own.mov"});
    fs::create_directory_symlink(folder.path() / "drop", folder / "drop/inner/up");
    fs::create_symlink(folder.path() / "media/film.mov", folder / "drop/linked.mov");
    fs::create_symlink("turning", folder / "drop/turning");
    fs::create_symlink(folder.path() / "gone.mov", folder / "drop/broken.mov");
    const auto found = scan({url("drop")});
    EXPECT_THAT(names(found.videoURLs), ElementsAre("own.mov", "linked.mov"));
    const auto missing = Reason::unreadable(localized("import.skip.missing"));
    EXPECT_THAT(found.skipped, ElementsAre(skipped("broken.mov", missing), skipped("turning", missing)));
    fs::create_directory_symlink(folder.path() / "media", folder / "shortcut");
    EXPECT_THAT(names(scan({url("shortcut")}).videoURLs), ElementsAre("film.mov"));
}

TEST_F(MediaImportScannerTests, PipesAreNeverOpened) {
    ASSERT_EQ(::mkfifo((folder / "pipe.mov").c_str(), 0600), 0);
    EXPECT_THAT(scan({url("pipe.mov")}).skipped, ElementsAre(skipped("pipe.mov", Reason::Case::noVideo)));
    EXPECT_THAT(scanFolder().skipped, ElementsAre(skipped(url().lastPathComponent(), Reason::Case::emptyFolder)));
}

// Permissions do not bind root, as whom containers often run tests: another user then does the scan.
class WithoutPrivileges {
public:
    WithoutPrivileges() : user_(::geteuid()) {
        if (user_ == 0) {
            EXPECT_EQ(::seteuid(65534), 0);
        }
    }
    ~WithoutPrivileges() { EXPECT_EQ(::seteuid(user_), 0); }

private:
    uid_t user_;
};

TEST_F(MediaImportScannerTests, FoldersThatCannotBeReadAreReportedBesideWhatCan) {
    makeFiles({"open/film.mov", "closed/film.mov"});
    fs::permissions(folder.path(), fs::perms::all);
    fs::permissions(folder / "closed", fs::perms::none);
    const auto found = [this] {
        const WithoutPrivileges nobody;
        return scanFolder();
    }();
    fs::permissions(folder / "closed", fs::perms::owner_all);
    EXPECT_THAT(names(found.videoURLs), ElementsAre("film.mov"));
    ASSERT_EQ(found.skipped.size(), 1u);
    EXPECT_EQ(found.skipped[0].name, "closed");
    EXPECT_EQ(found.skipped[0].reason.value, Reason::Case::unreadable);
    EXPECT_THAT(found.skipped[0].reason.message, testing::HasSubstr("Permission denied"));
}

TEST_F(MediaImportScannerTests, OddExtensionsAreJudgedByTheirContent) {
    const auto film = test::makeMovie(folder, {.name = "film.mov", .frameCount = 5});
    fs::rename(film, folder / "film.dat");
    fs::rename(test::makeMovie(folder, {.name = "still.mov", .frameCount = 1, .codec = "png", .pixelFormat = "rgb24"}),
               folder / "still.dat");
    fs::rename(test::makeMovie(folder, {.name = "sound.mov", .frameCount = 0, .audio = {{}}, .audioSeconds = 0.2}),
               folder / "sound.dat");
    test::writeText(folder / "note.nfo", "Ripped by nobody\nEnjoy\n");
    const std::vector<URL> urls{url()};
    const auto found = MediaImportScanner::scan(urls);
    EXPECT_THAT(names(found.videoURLs), ElementsAre("film.dat"));
    EXPECT_THAT(found.skipped,
                ElementsAre(skipped("note.nfo", Reason::Case::noVideo), skipped("sound.dat", Reason::Case::noVideo),
                            skipped("still.dat", Reason::Case::noVideo)));
}

TEST(MediaImportReport, SaysHowMuchCameInAndListsAtMostEightItems) {
    setLanguage("en");
    MediaImportReport report;
    EXPECT_EQ(report.title(), "Nothing was imported");
    EXPECT_EQ(report.message(), std::nullopt);

    report.importedCount = 1;
    report.skipped = {{"a1.png", Reason::imageSequence(300)},
                      {"b", Reason::unreadable("It broke.")},
                      {"c.insv", Reason::Case::unstitchedCameraOriginal},
                      {"d.jpg", Reason::Case::photo},
                      {"e.txt", Reason::Case::noVideo},
                      {"f", Reason::Case::emptyFolder}};
    EXPECT_EQ(report.title(), "1 movie imported, 6 items left out");
    const auto message = report.message().value();
    EXPECT_EQ(std::ranges::count(message, '\n'), 5);
    EXPECT_THAT(message, testing::StartsWith("a1.png: An image sequence of 300 frames."));
    EXPECT_THAT(message, testing::HasSubstr("\nb: It broke.\n"));
    EXPECT_THAT(message, testing::Not(testing::HasSubstr("import.skip")));

    report.skipped.assign(8, {"x.jpg", Reason::Case::photo});
    EXPECT_EQ(std::ranges::count(*report.message(), '\n'), 7);
    report.skipped.push_back({"y.jpg", Reason::Case::photo});
    EXPECT_THAT(*report.message(), testing::EndsWith("\nAnd 1 more item."));
}

} // namespace
} // namespace panoveer
