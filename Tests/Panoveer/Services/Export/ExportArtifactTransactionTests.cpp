#include "Panoveer/Services/Export/ExportArtifactTransaction.h"
#include "Platform/Core/Error.h"
#include "Support/MediaFactory.h"
#include "Support/Thrown.h"

#include <gmock/gmock.h>

#include <cerrno>
#include <filesystem>
#include <functional>

namespace panoveer {
namespace {

using test::readFile;
using test::TemporaryFolder;
using Transaction = ExportArtifactTransaction;
using Bytes = std::vector<std::uint8_t>;

void write(const std::filesystem::path& path, const Bytes& bytes) { test::writeFile(path, bytes); }

int posixCodeOf(const std::function<void()>& work) {
    const auto error = test::thrown<Error>(work);
    return error && error->domain() == posixErrorDomain ? error->code() : 0;
}

TEST(ExportArtifactTransactionTests, StagedNamesStayInTheFolderAndKeepTheExtension) {
    const std::string uuid = "[0-9A-F]{8}(-[0-9A-F]{4}){3}-[0-9A-F]{12}";
    const std::pair<std::string, std::string> names[] = {
        {"film.mov", "film\\.panoveer-" + uuid + "\\.tmp\\.mov"},
        {"film.final.MP4", "film\\.final\\.panoveer-" + uuid + "\\.tmp\\.MP4"},
        {"film", "film\\.panoveer-" + uuid + "\\.tmp"},
        {".hidden", "\\.hidden\\.panoveer-" + uuid + "\\.tmp"},
    };
    for (const auto& [name, pattern] : names) {
        const auto url = URL::fromFilePath("/exports/" + name);
        const auto staged = Transaction::stagedFileURL(url);
        EXPECT_EQ(staged.deletingLastPathComponent(), url.deletingLastPathComponent());
        EXPECT_THAT(staged.lastPathComponent(), testing::MatchesRegex(pattern));
        EXPECT_NE(staged, Transaction::stagedFileURL(url));
    }
}

TEST(ExportArtifactTransactionTests, TheLongestNameThatAFileSystemTakesCanBeStaged) {
    const TemporaryFolder folder;
    std::string name;
    while (name.size() + 3 + 4 <= 255)
        name += "\u5168"; // three bytes in UTF-8
    const auto final = URL::fromFilePath(folder / (name + ".mov"));
    const auto staged = Transaction::stagedFileURL(final);
    write(staged.path(), {1});
    Transaction::commitFile(staged, final);
    EXPECT_EQ(readFile(final.path()), Bytes{1});
    EXPECT_EQ(staged.pathExtension(), "mov");
    // Cut between characters: what is left is still UTF-8.
    EXPECT_EQ(staged.lastPathComponent().find(".panoveer-") % 3, 0u);
}

TEST(ExportArtifactTransactionTests, ACommitReplacesTheOldMovieAndAFailedOneLeavesEverything) {
    const TemporaryFolder folder;
    const auto final = URL::fromFilePath(folder / "film.mov");
    const auto staged = Transaction::stagedFileURL(final);
    write(final.path(), {1});

    EXPECT_EQ(posixCodeOf([&] { Transaction::commitFile(staged, final); }), ENOENT);
    EXPECT_EQ(readFile(final.path()), Bytes{1});

    write(staged.path(), {2, 3});
    const auto missing = URL::fromFilePath(folder / "gone" / "film.mov");
    EXPECT_EQ(posixCodeOf([&] { Transaction::commitFile(staged, missing); }), ENOENT);
    EXPECT_EQ(readFile(staged.path()), (Bytes{2, 3}));

    Transaction::commitFile(staged, final);
    EXPECT_EQ(readFile(final.path()), (Bytes{2, 3}));
    EXPECT_FALSE(std::filesystem::exists(staged.path()));
}

TEST(ExportArtifactTransactionTests, FoldersTakeTheFirstFreeNameAndNeverMerge) {
    const TemporaryFolder folder;
    const auto parent = URL::fromFilePath(folder / "deep" / "er");
    // An empty folder and a file take names just as a full folder does.
    std::filesystem::create_directories(parent.appendingPathComponent("Masks").path());
    write(parent.appendingPathComponent("Masks 2").path(), {1});
    for (const auto* expected : {"Masks 3", "Masks 4"}) {
        const auto staged = Transaction::createStagedDirectory(parent);
        EXPECT_THAT(staged.lastPathComponent(), testing::MatchesRegex("\\.alpha-masks\\.panoveer-.{36}\\.tmp"));
        write(staged.appendingPathComponent("0001.png").path(), {7});
        const auto final = Transaction::commitUniqueDirectory(staged, parent, "Masks");
        EXPECT_EQ(final, parent.appendingPathComponent(expected));
        EXPECT_EQ(readFile(final.appendingPathComponent("0001.png").path()), Bytes{7});
        EXPECT_FALSE(std::filesystem::exists(staged.path()));
    }
    EXPECT_TRUE(std::filesystem::is_empty(parent.appendingPathComponent("Masks").path()));

    const auto gone = parent.appendingPathComponent("gone");
    EXPECT_EQ(posixCodeOf([&] { Transaction::commitUniqueDirectory(gone, parent, "Other"); }), ENOENT);
    const auto file = parent.appendingPathComponent("Masks 2");
    EXPECT_EQ(posixCodeOf([&] { Transaction::createStagedDirectory(file); }), ENOTDIR);
}

} // namespace
} // namespace panoveer
