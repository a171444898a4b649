#include "Panoveer/Services/Export/ExportVideoSettings.h"

#include <gtest/gtest.h>

namespace panoveer {
namespace {

TEST(ExportVideoSettings, DecodesToTheStreamsOwnSamplingAndDepth) {
    struct Row {
        const char* codec;
        const char* format;
        FourCC expected;
    };
    for (const auto& row : {
             Row{"h264", "yuv420p", pixelFormat::yCbCr420VideoRange},
             Row{"H264", "YUVJ420P", pixelFormat::yCbCr420FullRange},
             Row{"hevc", "yuv420p10le", pixelFormat::yCbCr420TenBitVideoRange},
             Row{"hevc", "p010le", pixelFormat::bgra},
             Row{"hevc", "yuv420p12le", pixelFormat::yCbCr420TenBitVideoRange},
             Row{"hevc", "yuv422p10le", pixelFormat::bgra},
             Row{"prores", "yuv422p10le", pixelFormat::yCbCr422TenBitVideoRange},
             Row{"prores", "yuv444p12le", pixelFormat::yCbCr444TenBitVideoRange},
             Row{"prores", "yuva444p12le", pixelFormat::bgra},
             Row{"mjpeg", "yuvj420p", pixelFormat::bgra},
         })
        EXPECT_EQ(preferredNativeSourcePixelFormat(row.codec, row.format), row.expected)
            << row.codec << ' ' << row.format;
}

TEST(ExportVideoSettings, GivesProResNoKeyFrameIntervalAndOthersOneASecond) {
    const auto proRes =
        videoSettings(ExportCodec::proRes, 2048, 2048, std::nullopt, 25.0, ExportColorMode::convertToSDR);
    EXPECT_FALSE(proRes.maximumKeyFrameInterval);
    EXPECT_FALSE(proRes.averageBitRate);
    EXPECT_EQ(proRes.codec, FourCC("apcn"));

    const auto plain =
        videoSettings(ExportCodec::h264, 1920, 1080, 10.368, std::nullopt, ExportColorMode::convertToSDR);
    EXPECT_EQ(plain.maximumKeyFrameInterval, 60);
    EXPECT_EQ(plain.averageBitRate, 10368000);
    EXPECT_EQ(plain.profile, VideoProfile::h264High);
    const auto retimed = videoSettings(ExportCodec::hevc10, 1920, 1080, 20.0, 29.97, ExportColorMode::preserveHDR);
    EXPECT_EQ(retimed.maximumKeyFrameInterval, 30);
    EXPECT_EQ(retimed.expectedSourceFrameRate, 30);
    EXPECT_EQ(retimed.color.transfer, 16);
}

TEST(ExportVideoSettings, PrefersWhatThePictureSaysOfItsColours) {
    VideoColorMetadata fallback;
    fallback.transferFunction = VideoTransferFunction::hlg;
    fallback.primaries = VideoColorPrimaries::bt2020;
    const auto unsaid = colorMetadata({}, fallback);
    EXPECT_EQ(unsaid, fallback);
    ColorAttachments said;
    said.transfer = 16;
    said.matrix = 6;
    const auto mixed = colorMetadata(said, fallback);
    EXPECT_EQ(mixed.transferFunction, VideoTransferFunction::pq);
    EXPECT_EQ(mixed.yCbCrMatrix, VideoYCbCrMatrix::bt601);
    EXPECT_EQ(mixed.primaries, VideoColorPrimaries::bt2020);
}

} // namespace
} // namespace panoveer
