#include "Platform/Core/Error.h"
#include "Platform/Media/PictureFile.h"
#include "Support/MediaFactory.h"
#include "Support/Thrown.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <cerrno>
#include <cstring>

namespace panoveer::test {
namespace {

PixelBufferPtr paintedPicture(int width, int height) {
    auto picture = PixelBuffer::make("BGRA", width, height);
    const auto& plane = picture->plane(0);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            const std::uint8_t pixel[] = {std::uint8_t(x * 7), std::uint8_t(y * 5), std::uint8_t(x + y),
                                          std::uint8_t((x * y) % 256)};
            std::memcpy(plane.data + std::size_t(y) * plane.rowBytes + std::size_t(x) * 4, pixel, 4);
        }
    return picture;
}

int errorCode(const std::function<void()>& work, std::string_view domain) {
    const auto error = thrown<Error>(work);
    EXPECT_EQ(error.value().domain(), domain) << error->what();
    return error->code();
}

TEST(PictureFile, ReadsBackEveryPixelOfWhatItWrote) {
    const TemporaryFolder folder;
    const auto path = folder / "mask.png";
    writeFile(path, std::vector<std::uint8_t>{1, 2, 3}); // is replaced
    const auto written = paintedPicture(101, 67);
    writePNG(*written, path);
    EXPECT_EQ(readPNGInfo(path), (PictureInfo{101, 67, 1}));
    const auto read = readPNG(path);
    ASSERT_EQ(read->format(), pixelFormat::bgra);
    for (int y = 0; y < 67; ++y)
        ASSERT_EQ(std::memcmp(read->plane(0).data + std::size_t(y) * read->plane(0).rowBytes,
                              written->plane(0).data + std::size_t(y) * written->plane(0).rowBytes, 101 * 4),
                  0)
            << "row " << y;
    const auto stream = ffprobeJSON(path)["streams"][0];
    EXPECT_EQ(stream["pix_fmt"], "rgba");
    const auto bytes = readFile(path);
    const std::string text(bytes.begin(), bytes.end());
    EXPECT_NE(text.find("sRGB"), std::string::npos);
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder.path()), {}), 1);
}

TEST(PictureFile, TellsADamagedFileFromAWholeOne) {
    const TemporaryFolder folder;
    const auto path = folder / "a.png";
    writePNG(*paintedPicture(64, 64), path);
    const auto whole = readFile(path);
    for (const auto& [name, change] :
         std::initializer_list<std::pair<const char*, std::function<void(std::vector<std::uint8_t>&)>>>{
             {"cut", [](auto& bytes) { bytes.resize(bytes.size() - 20); }},
             {"spoiled", [](auto& bytes) { bytes[bytes.size() / 2] ^= 1; }},
             {"foreign", [](auto& bytes) { bytes[0] = 'x'; }},
             {"empty", [](auto& bytes) { bytes.clear(); }}}) {
        auto bytes = whole;
        change(bytes);
        writeFile(path, bytes);
        EXPECT_LT(errorCode([&] { readPNGInfo(path); }, mediaErrorDomain), 0) << name;
    }
}

TEST(PictureFile, PassesOnWhatTheFileSystemSays) {
    const TemporaryFolder folder;
    const auto picture = paintedPicture(8, 8);
    EXPECT_EQ(errorCode([&] { writePNG(*picture, folder / "absent" / "a.png"); }, posixErrorDomain), ENOENT);
    EXPECT_EQ(errorCode([&] { readPNGInfo(folder / "absent.png"); }, posixErrorDomain), ENOENT);
    // A folder of that name stands in the way of the rename: nothing stays behind.
    std::filesystem::create_directory(folder / "taken.png");
    EXPECT_EQ(errorCode([&] { writePNG(*picture, folder / "taken.png"); }, posixErrorDomain), EISDIR);
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder.path()), {}), 1);
    EXPECT_LT(errorCode([&] { writePNG(*PixelBuffer::make("420v", 8, 8), folder / "b.png"); }, mediaErrorDomain), 0);
}

} // namespace
} // namespace panoveer::test
