#include "Platform/Media/FrameConverter.h"
#include "Platform/Media/PlaneKernels.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <format>
#include <random>

extern "C" {
#include <libavutil/frame.h>
#include <libavutil/pixdesc.h>
}

namespace panoveer {
namespace {

struct ConversionCase {
    const char* name;
    AVPixelFormat source;
    bool sourceIsFullRange;
    FourCC format;
    bool adoptsLuma = false;
};

// A frame of odd size with random legal samples.
FramePtr randomFrame(AVPixelFormat format, bool isFullRange) {
    auto frame = makeFrame();
    frame->format = format;
    frame->width = 75;
    frame->height = 33;
    frame->color_range = isFullRange ? AVCOL_RANGE_JPEG : AVCOL_RANGE_MPEG;
    EXPECT_GE(av_frame_get_buffer(frame.get(), 64), 0);
    const auto* description = av_pix_fmt_desc_get(format);
    std::mt19937 random(7);
    for (int plane = 0; plane < 3; ++plane) {
        const int height = plane == 0 ? frame->height : AV_CEIL_RSHIFT(frame->height, description->log2_chroma_h);
        for (int i = 0; i < height * frame->linesize[plane]; ++i)
            frame->data[plane][i] = std::uint8_t(random());
        if (description->comp[0].depth > 8)
            for (int i = 0; i < height * frame->linesize[plane] / 2; ++i)
                reinterpret_cast<std::uint16_t*>(frame->data[plane])[i] &=
                    std::uint16_t((1 << description->comp[0].depth) - 1);
    }
    return frame;
}

int sampleAt(const void* row, int index, bool isWide) {
    return isWide ? static_cast<const std::uint16_t*>(row)[index] : static_cast<const std::uint8_t*>(row)[index];
}

class PlanarConversion : public testing::TestWithParam<ConversionCase> {};

TEST_P(PlanarConversion, RescalesEverySampleAndMovesNone) {
    const auto& expected = GetParam();
    auto frame = randomFrame(expected.source, expected.sourceIsFullRange);
    const FramePtr reference(av_frame_clone(frame.get()));
    const auto picture = FrameConverter(expected.format, {.matrix = 9}).convert(std::move(frame));
    const auto& layout = picture->layout();
    const auto* description = av_pix_fmt_desc_get(expected.source);
    const int depth = description->comp[0].depth;
    EXPECT_EQ(picture->color().matrix, 9);
    EXPECT_EQ(reinterpret_cast<std::byte*>(reference->data[0]) == picture->plane(0).data, expected.adoptsLuma);

    for (int component = 0; component < 3; ++component) {
        const auto& plane = picture->plane(component == 0 ? 0 : 1);
        SampleScale from{depth, expected.sourceIsFullRange, component != 0};
        SampleScale to{layout.bytesPerSample == 1 ? 8 : 10, layout.isFullRange, component != 0};
        for (int y = 0; y < plane.height; ++y)
            for (int x = 0; x < plane.width; ++x) {
                const int value =
                    sampleAt(reference->data[component] + y * reference->linesize[component], x, depth > 8);
                const int index = component == 0 ? x : 2 * x + component - 1;
                const int result = sampleAt(plane.data + std::size_t(y) * plane.rowBytes, index, to.depth > 8);
                ASSERT_EQ(result >> (to.depth > 8 ? 6 : 0), rescaledSample(value, from, to))
                    << "component " << component << " at " << x << ", " << y << " of value " << value;
                ASSERT_EQ(to.depth > 8 ? result & 63 : 0, 0);
            }
    }
}

INSTANTIATE_TEST_SUITE_P(Formats, PlanarConversion,
                         testing::Values(ConversionCase{"EightBits", AV_PIX_FMT_YUV420P, false, "420v", true},
                                         ConversionCase{"EightBitsFullRange", AV_PIX_FMT_YUV420P, true, "420f", true},
                                         ConversionCase{"EightBitsToVideoRange", AV_PIX_FMT_YUV420P, true, "420v"},
                                         ConversionCase{"EightBitsToFullRange", AV_PIX_FMT_YUV420P, false, "420f"},
                                         ConversionCase{"EightBitsWidened", AV_PIX_FMT_YUV420P, false, "x420"},
                                         ConversionCase{"EightBitsWidenedFullRange", AV_PIX_FMT_YUV420P, true, "xf20"},
                                         ConversionCase{"TenBits", AV_PIX_FMT_YUV420P10LE, false, "x420"},
                                         ConversionCase{"TenBitsFullRange", AV_PIX_FMT_YUV420P10LE, true, "xf20"},
                                         ConversionCase{"TenBitsToVideoRange", AV_PIX_FMT_YUV420P10LE, true, "x420"},
                                         ConversionCase{"TenBitsNarrowed", AV_PIX_FMT_YUV420P10LE, false, "420v"},
                                         ConversionCase{"TwelveBits", AV_PIX_FMT_YUV420P12LE, false, "x420"},
                                         ConversionCase{"TenBits422", AV_PIX_FMT_YUV422P10LE, false, "x422"},
                                         ConversionCase{"TwelveBits444", AV_PIX_FMT_YUV444P12LE, false, "x444"}),
                         [](const auto& test) { return test.param.name; });

TEST(FrameConversion, AdoptsAFrameThatHasTheAskedLayout) {
    for (const auto& [source, format] :
         {std::pair{AV_PIX_FMT_NV12, FourCC("420v")}, std::pair{AV_PIX_FMT_P010LE, FourCC("x420")},
          std::pair{AV_PIX_FMT_BGRA, FourCC("BGRA")}}) {
        auto frame = makeFrame();
        frame->format = source;
        frame->width = 128;
        frame->height = 64;
        ASSERT_GE(av_frame_get_buffer(frame.get(), 64), 0);
        const auto* memory = reinterpret_cast<std::byte*>(frame->data[0]);
        const auto picture = FrameConverter(format, {}).convert(std::move(frame));
        EXPECT_EQ(picture->plane(0).data, memory) << format.text();
    }
}

// Rows off their alignment, as after a crop by a few pixels, are copied to where SIMD code can have them.
TEST(FrameConversion, CopiesPlanesThatAreNotAligned) {
    auto frame = randomFrame(AV_PIX_FMT_YUV420P, false);
    frame->data[0] += 2;
    frame->width -= 2;
    const int first = frame->data[0][0];
    const auto picture = FrameConverter("420v", {}).convert(std::move(frame));
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(picture->plane(0).data) % 64, 0u);
    EXPECT_EQ(int(picture->plane(0).data[0]), first);
}

struct MatrixCase {
    const char* name;
    int matrix; // as said; 2: not said
    int height;
    bool isFullRange;
    double kr, kb; // of the matrix meant
};

class ColorConversion : public testing::TestWithParam<MatrixCase> {};

// Y'CbCr made here by the equations of H.273 must come back as the R'G'B' that it was made from.
TEST_P(ColorConversion, UndoesTheMatrixAndTheRange) {
    const auto& expected = GetParam();
    const double red = 200, green = 60, blue = 110;
    const double luma = expected.kr * red + (1 - expected.kr - expected.kb) * green + expected.kb * blue;
    const double cb = (blue - luma) / (2 * (1 - expected.kb)), cr = (red - luma) / (2 * (1 - expected.kr));
    auto frame = makeFrame();
    frame->format = expected.isFullRange ? AV_PIX_FMT_YUVJ420P : AV_PIX_FMT_YUV420P;
    frame->width = 64;
    frame->height = expected.height;
    ASSERT_GE(av_frame_get_buffer(frame.get(), 0), 0);
    const double values[] = {expected.isFullRange ? luma : 16 + luma * 219 / 255,
                             128 + cb * (expected.isFullRange ? 1 : 224.0 / 255),
                             128 + cr * (expected.isFullRange ? 1 : 224.0 / 255)};
    for (int plane = 0; plane < 3; ++plane)
        std::memset(frame->data[plane], int(values[plane] + 0.5),
                    std::size_t(frame->linesize[plane] * (plane == 0 ? frame->height : frame->height / 2)));
    const auto picture = FrameConverter("BGRA", {.matrix = expected.matrix}).convert(std::move(frame));
    const auto* pixel = picture->plane(0).data + 20 * picture->plane(0).rowBytes + 20 * 4;
    EXPECT_NEAR(int(pixel[0]), blue, 2);
    EXPECT_NEAR(int(pixel[1]), green, 2);
    EXPECT_NEAR(int(pixel[2]), red, 2);
    EXPECT_EQ(int(pixel[3]), 255);
}

INSTANTIATE_TEST_SUITE_P(Matrices, ColorConversion,
                         testing::Values(MatrixCase{"Bt709", 1, 64, false, 0.2126, 0.0722},
                                         MatrixCase{"Bt709FullRange", 1, 64, true, 0.2126, 0.0722},
                                         MatrixCase{"Bt601", 6, 64, false, 0.299, 0.114},
                                         MatrixCase{"Bt601FullRange", 5, 64, true, 0.299, 0.114},
                                         MatrixCase{"Bt2020", 9, 64, false, 0.2627, 0.0593},
                                         MatrixCase{"UnsaidStandardDefinition", 2, 480, false, 0.299, 0.114},
                                         MatrixCase{"UnsaidHighDefinition", 2, 720, false, 0.2126, 0.0722}),
                         [](const auto& test) { return test.param.name; });

} // namespace
} // namespace panoveer
