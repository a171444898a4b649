#include "MovieInspection.h"
#include "Platform/Media/AssetWriter.h"
#include "Platform/Media/EncoderCatalog.h"
#include "Support/FileSizeLimit.h"
#include "Support/MediaFactory.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <atomic>
#include <cerrno>

namespace panoveer::test {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;
using Status = AssetWriter::Status;

constexpr int width = 64;
constexpr int height = 64;
constexpr std::int32_t timescale = 25;

struct Codec {
    const char* name;
    FourCC code;
    FourCC pictureFormat;
};

constexpr Codec h264{"H264", "avc1", pixelFormat::yCbCr420VideoRange};
constexpr Codec proRes{"ProRes", "apcn", pixelFormat::yCbCr422TenBitVideoRange};

VideoSettings settingsFor(const Codec& codec) {
    VideoSettings settings;
    settings.codec = codec.code;
    settings.width = width;
    settings.height = height;
    settings.maximumKeyFrameInterval = timescale;
    settings.frameDuration = {1, timescale};
    if (codec.code == h264.code)
        settings.averageBitRate = 500'000;
    return settings;
}

// A writer of a growing .mov with one input.
struct Writing {
    AssetWriter writer;
    VideoInput* input;

    Writing(const std::filesystem::path& path, const Codec& codec)
        : writer(URL::fromFilePath(path), MovieFileType::quickTimeMovie) {
        writer.setMovieTimeScale(timescale);
        writer.setInitialMovieFragmentInterval({600, 600});
        writer.setMovieFragmentInterval({6000, 600});
        input = writer.addVideoInput(settingsFor(codec), codec.pictureFormat, timescale, 0);
    }

    // How many of the pictures were taken.
    int append(const Codec& codec, int count) {
        int taken = 0;
        while (taken < count &&
               input->append(makePatternPicture(codec.pictureFormat, width, height, taken), {taken, timescale}))
            ++taken;
        return taken;
    }
};

int decodedFrameCount(const std::filesystem::path& movie) {
    const auto stream = ffprobeJSON(movie, {"-count_frames"}).at("streams").at(0);
    return std::stoi(stream["nb_read_frames"].get<std::string>());
}

TEST(FullDisk, FailsTheWriterWithTheSystemsErrorAndLeavesWhatWasWritten) {
    const TemporaryFolder folder;
    const auto path = folder / "movie.mov", saved = folder / "saved.mov";
    {
        const FileSizeLimit disk(4 << 20);
        Writing writing(path, proRes);
        auto& [writer, input] = writing;
        ASSERT_TRUE(writer.startWriting());
        ASSERT_LT(writing.append(proRes, 5000), 5000);
        EXPECT_EQ(writer.status(), Status::failed);
        ASSERT_TRUE(writer.error());
        EXPECT_EQ(writer.error()->domain(), posixErrorDomain);
        EXPECT_EQ(writer.error()->code(), EFBIG);
        EXPECT_FALSE(input->append(makePatternPicture(proRes.pictureFormat, width, height, 0), {9999, timescale}));
        EXPECT_FALSE(input->isReadyForMoreMediaData());
        EXPECT_FALSE(writer.finishWriting());
        EXPECT_EQ(writer.status(), Status::failed);
        std::filesystem::copy_file(path, saved);
        writer.cancelWriting();
        EXPECT_FALSE(std::filesystem::exists(path));
    }
    const auto boxes = topLevelBoxes(saved);
    EXPECT_THAT(boxes, testing::Contains("moof"));
    EXPECT_EQ(boxes.back(), "mdat");
    EXPECT_GE(decodedFrameCount(saved), timescale);
}

TEST(AssetWriter, LeavesAFileThatIsThereAlone) {
    const TemporaryFolder folder;
    const std::vector<std::uint8_t> content{1, 2, 3};
    writeFile(folder / "movie.mov", content);
    Writing writing(folder / "movie.mov", proRes);
    EXPECT_FALSE(writing.writer.startWriting());
    ASSERT_TRUE(writing.writer.error());
    EXPECT_EQ(writing.writer.error()->domain(), posixErrorDomain);
    EXPECT_EQ(writing.writer.error()->code(), EEXIST);
    writing.writer.cancelWriting();
    EXPECT_EQ(readFile(folder / "movie.mov"), content);
}

TEST(AssetWriter, FailsOnPicturesThatDoNotBelong) {
    for (const auto& [what, format, pictureWidth, time] : {std::tuple("format", pixelFormat::bgra, width, 1),
                                                           {"size", proRes.pictureFormat, width + 2, 1},
                                                           {"order", proRes.pictureFormat, width, 0}}) {
        SCOPED_TRACE(what);
        const TemporaryFolder folder;
        Writing writing(folder / "movie.mov", proRes);
        ASSERT_TRUE(writing.writer.startWriting());
        ASSERT_EQ(writing.append(proRes, 1), 1);
        EXPECT_FALSE(writing.input->append(makePatternPicture(format, pictureWidth, height, 1), {time, timescale}));
        EXPECT_EQ(writing.writer.status(), Status::failed);
        EXPECT_EQ(writing.writer.error()->domain(), mediaErrorDomain);
    }
}

TEST(AssetWriter, DoesNotCompleteAMovieWithoutPictures) {
    const TemporaryFolder folder;
    Writing writing(folder / "movie.mov", h264);
    ASSERT_TRUE(writing.writer.startWriting());
    EXPECT_FALSE(writing.writer.finishWriting());
    EXPECT_EQ(writing.writer.status(), Status::failed);
}

TEST(AssetWriter, HoldsNoMorePicturesThanItsQueueAndTheOneBeingRead) {
    const TemporaryFolder folder;
    Writing writing(folder / "movie.mov", h264);
    ASSERT_TRUE(writing.writer.startWriting());
    std::atomic<int> alive = 0;
    int most = 0;
    for (int i = 0; i < 100; ++i) {
        auto picture = makePatternPicture(h264.pictureFormat, width, height, i);
        ++alive;
        PixelBufferPtr counted(picture.get(), [picture, &alive](PixelBuffer*) { --alive; });
        ASSERT_TRUE(writing.input->append(std::move(counted), {i, timescale}));
        most = std::max(most, alive.load());
    }
    EXPECT_LE(most, 5);
    EXPECT_TRUE(writing.writer.finishWriting());
    EXPECT_EQ(alive, 0);
}

struct RefusalCase {
    const char* name;
    FourCC codec;
    VideoProfile profile;
    int width, height;
    const char* reason; // part of it; empty: none
};

class EncoderRefusal : public testing::TestWithParam<RefusalCase> {};

TEST_P(EncoderRefusal, SaysWhy) {
    const auto& [name, codec, profile, pictureWidth, pictureHeight, expected] = GetParam();
    VideoSettings settings;
    settings.codec = codec;
    settings.profile = profile;
    settings.width = pictureWidth;
    settings.height = pictureHeight;
    const TemporaryFolder folder;
    const AssetWriter writer(URL::fromFilePath(folder / "movie.mov"), MovieFileType::quickTimeMovie);
    std::string reason;
    EXPECT_EQ(writer.canApply(settings, &reason), *expected == '\0');
    EXPECT_THAT(reason, *expected == '\0' ? testing::Matcher<std::string>(IsEmpty())
                                          : testing::Matcher<std::string>(HasSubstr(expected)));
    EXPECT_EQ(EncoderCatalog::shared().refusal(settings).has_value(), *expected != '\0') << "the remembered answer";
}

INSTANTIATE_TEST_SUITE_P(
    Cases, EncoderRefusal,
    testing::Values(RefusalCase{"UnknownCodec", "vp09", VideoProfile::automatic, 640, 320, "no encoder for \"vp09\""},
                    RefusalCase{"OddWidthUnderAlpha", "muxa", VideoProfile::automatic, 641, 320, "even"},
                    RefusalCase{"ForeignProfile", "avc1", VideoProfile::hevcMain, 640, 320, "profile"},
                    RefusalCase{"OddWidth", "hvc1", VideoProfile::hevcMain, 641, 320, "even"},
                    RefusalCase{"OddHeightOf420", "avc1", VideoProfile::h264High, 640, 321, "even"},
                    RefusalCase{"OddHeightOf422", "apch", VideoProfile::automatic, 640, 321, ""},
                    RefusalCase{"OddSizeOf444", "ap4h", VideoProfile::automatic, 641, 321, ""},
                    RefusalCase{"NoSize", "avc1", VideoProfile::automatic, 0, 320, "not a picture size"},
                    RefusalCase{"LargestOfH264", "avc1", VideoProfile::h264High, 8192, 4096, ""},
                    RefusalCase{"BeyondH264", "avc1", VideoProfile::h264High, 8192, 8192, "level"},
                    RefusalCase{"DomeInHEVC", "hvc1", VideoProfile::hevcMain10, 8192, 8192, ""},
                    RefusalCase{"CubeInProRes", "apcn", VideoProfile::automatic, 12288, 8192, ""},
                    RefusalCase{"BeyondAll", "apcn", VideoProfile::automatic, 16384, 16384, "larger"},
                    RefusalCase{"BelowHEVC", "hvc1", VideoProfile::automatic, 48, 48, "smaller"}),
    [](const auto& test) { return test.param.name; });

} // namespace
} // namespace panoveer::test
