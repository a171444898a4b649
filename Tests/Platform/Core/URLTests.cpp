#include "Platform/Core/URL.h"

#include <gtest/gtest.h>

namespace panoveer {
namespace {

TEST(URL, FilePathsSurviveTheirTextForm) {
    for (const auto* path : {"/", "/films/clip.mov", "/a b/100%/#1?.mov", "/été/球幕.mp4", "/latin\xe9.mov"}) {
        const auto url = URL::fromFilePath(path);
        EXPECT_TRUE(url.isFileURL());
        EXPECT_EQ(url.path(), path);
        EXPECT_EQ(URL::fromString(url.absoluteString()), url) << url.absoluteString();
    }
    EXPECT_EQ(URL::fromFilePath("/a b/#1.mov").absoluteString(), "file:///a%20b/%231.mov");
}

TEST(URL, RelativePathsStartAtTheCurrentDirectoryAndTrailingSlashesGo) {
    EXPECT_EQ(URL::fromFilePath("clip.mov").path(), std::filesystem::current_path() / "clip.mov");
    EXPECT_EQ(URL::fromFilePath("/films/").path(), "/films");
    EXPECT_TRUE(URL::fromFilePath("").empty());
}

TEST(URL, OnlyAbsoluteTextsAreURLs) {
    const auto web = URL::fromString("https://example.org/dome/mesh.data");
    ASSERT_TRUE(web);
    EXPECT_FALSE(web->isFileURL());
    EXPECT_TRUE(web->path().empty());
    EXPECT_EQ(web->absoluteString(), "https://example.org/dome/mesh.data");
    EXPECT_EQ(URL::fromString("FILE:///films/clip.mov"), URL::fromFilePath("/films/clip.mov"));
    for (const auto* text : {"", "clip.mov", "/films/clip.mov", "file:", "file:clip.mov", "file:///%zz", "ht tp://x"})
        EXPECT_EQ(URL::fromString(text), std::nullopt) << text;
}

struct Components {
    const char* path;
    const char* last;
    const char* base;
    const char* extension;
};

TEST(URL, ComponentsFollowTheLastSlashAndTheLastDot) {
    const Components table[] = {
        {"/films/clip.mov", "clip.mov", "clip", "mov"}, {"/films/take.2.MP4", "take.2.MP4", "take.2", "MP4"},
        {"/films.d/clip", "clip", "clip", ""},          {"/films/.hidden", ".hidden", ".hidden", ""},
        {"/films/clip.", "clip.", "clip.", ""},         {"/", "/", "/", ""},
    };
    for (const auto& [path, last, base, extension] : table) {
        const auto url = URL::fromFilePath(path);
        EXPECT_EQ(url.lastPathComponent(), last);
        EXPECT_EQ(url.baseName(), base) << path;
        EXPECT_EQ(url.pathExtension(), extension) << path;
    }
}

TEST(URL, PartsAreTakenAwayAndAppended) {
    const auto clip = URL::fromFilePath("/films/clip.mov");
    EXPECT_EQ(clip.deletingPathExtension(), URL::fromFilePath("/films/clip"));
    EXPECT_EQ(clip.deletingPathExtension().deletingPathExtension(), URL::fromFilePath("/films/clip"));
    EXPECT_EQ(clip.deletingLastPathComponent(), URL::fromFilePath("/films"));
    EXPECT_EQ(clip.deletingLastPathComponent().deletingLastPathComponent(), URL::fromFilePath("/"));
    EXPECT_EQ(URL::fromFilePath("/").appendingPathComponent("a b"), URL::fromFilePath("/a b"));
    EXPECT_EQ(clip.appendingPathExtension("partial"), URL::fromFilePath("/films/clip.mov.partial"));
    EXPECT_EQ(URL::fromFilePath("/films/./b/../clip.mov").standardized(), clip);
}

} // namespace
} // namespace panoveer
