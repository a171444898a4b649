#include "Panoveer/Services/Export/ExportFileNaming.h"

#include <gtest/gtest.h>

namespace panoveer {
namespace {

TEST(ExportFileNaming, FolderSafeTextHasNoReservedCharactersAndSingleBlanks) {
    EXPECT_EQ(ExportFileNaming::folderSafe("a/b:c\\d?e%f*g|h\"i<j>k"), "a-b-c-d-e-f-g-h-i-j-k");
    EXPECT_EQ(ExportFileNaming::folderSafe("  dome \t\n  show\u202f2 "), "dome show 2");
    EXPECT_EQ(ExportFileNaming::folderSafe("été 球幕"), "été 球幕");
    EXPECT_EQ(ExportFileNaming::folderSafe("/"), "-");
    EXPECT_EQ(ExportFileNaming::folderSafe(" \n"), "");
}

TEST(ExportFileNaming, SuggestsTheSourceAndTheFormat) {
    const auto suggested = [](const char* path, ProjectionFormat format) {
        return ExportFileNaming::suggestedBaseName(URL::fromFilePath(path), format);
    };
    EXPECT_EQ(suggested("/films/VR 100%.take 2.mov", ProjectionFormat::halfEquirectangular), "VR 100-.take 2 - vr180");
    EXPECT_EQ(suggested("/films/ .mov", ProjectionFormat::mirrorDome), "video - mirror dome");
    EXPECT_EQ(suggested("/films/clip", ProjectionFormat::domemaster), "clip - fisheye");
}

TEST(ExportFileNaming, CleansATypedName) {
    const std::pair<const char*, const char*> names[] = {
        {"final.mp4", "final"},         {" Final.MOV ", "Final"},
        {"final.mov.mp4", "final.mov"}, {"...", ""},
        {". dome .", "dome"},           {".mp4", ""},
        {"a/b.mkv", "a-b.mkv"},         {"", ""},
        {"../../etc/x", "-..-etc-x"},
    };
    for (const auto& [typed, cleaned] : names)
        EXPECT_EQ(ExportFileNaming::sanitizedCustomBaseName(typed), cleaned) << typed;
}

TEST(ExportFileNaming, MaskNamesKeepTheBlanksOfTheSource) {
    EXPECT_EQ(ExportFileNaming::sanitizedMaskBaseName(URL::fromFilePath("/films/a  b:c.mov")), "a  b-c");
    EXPECT_EQ(ExportFileNaming::sanitizedMaskBaseName(URL::fromFilePath("/films/  .mov")), "clip");
}

TEST(ExportFileNaming, ExtensionsAreSettled) {
    EXPECT_EQ(ExportFileNaming::fileName("film", ".mov."), "film.mov");
    EXPECT_EQ(ExportFileNaming::fileName("film", ".."), "film.mp4");
}

TEST(ExportFileNaming, BatchFoldersCarryTimeAndDateOfTheLocale) {
    using namespace std::chrono;
    const auto time = sys_days(2025y / November / 24) + 14h + 45min;
    EXPECT_EQ(ExportFileNaming::batchFolderName(time, "en_US", "gregorian", "America/New_York"),
              "Panoveer - 9-45 AM 11-24-2025");
    EXPECT_EQ(ExportFileNaming::batchFolderName(time, "de_DE", "gregorian", "Europe/Berlin"),
              "Panoveer - 15-45 24.11.2025");
    EXPECT_EQ(ExportFileNaming::batchFolderName(time, "en_US", "buddhist", "UTC"), "Panoveer - 2-45 PM 11-24-2568 BE");
}

} // namespace
} // namespace panoveer
