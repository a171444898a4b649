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
    AVPixelFormat format;
    bool isFullRange;
    double kr, kb; // of the matrix meant
};

class ColorConversion : public testing::TestWithParam<MatrixCase> {};

// Y'CbCr made here by the equations of H.273 must come back as the R'G'B' that it was made from, scaled or not.
TEST_P(ColorConversion, UndoesTheMatrixAndTheRange) {
    const auto& expected = GetParam();
    const double red = 200, green = 60, blue = 110;
    const double luma = expected.kr * red + (1 - expected.kr - expected.kb) * green + expected.kb * blue;
    const double cb = (blue - luma) / (2 * (1 - expected.kb)), cr = (red - luma) / (2 * (1 - expected.kr));
    const auto* description = av_pix_fmt_desc_get(expected.format);
    const int depth = description->comp[0].depth;
    const double steps = 1 << (depth - 8), largest = (1 << depth) - 1;
    const auto chroma = [&](double value) {
        return 128 * steps + value * (expected.isFullRange ? largest : 224 * steps) / 255;
    };
    const double values[] = {expected.isFullRange ? luma * largest / 255 : 16 * steps + luma * 219 * steps / 255,
                             chroma(cb), chroma(cr), 64 * largest / 255};
    auto frame = makeFrame();
    frame->format = expected.format;
    frame->color_range = expected.isFullRange ? AVCOL_RANGE_JPEG : AVCOL_RANGE_MPEG;
    frame->width = 64;
    frame->height = expected.height;
    ASSERT_GE(av_frame_get_buffer(frame.get(), 0), 0);
    for (int i = 0; i < description->nb_components; ++i) {
        const bool isChroma = i == 1 || i == 2;
        const int rows = isChroma ? frame->height >> description->log2_chroma_h : frame->height;
        for (int k = 0; k < rows * frame->linesize[i] / (depth > 8 ? 2 : 1); ++k)
            if (depth > 8)
                reinterpret_cast<std::uint16_t*>(frame->data[i])[k] = std::uint16_t(values[i] + 0.5);
            else
                frame->data[i][k] = std::uint8_t(values[i] + 0.5);
    }
    for (const bool isScaled : {false, true}) {
        FrameConverter converter("BGRA", {.matrix = expected.matrix});
        if (isScaled)
            converter.setOutputSize(24, expected.height / 2);
        const auto picture = converter.convert(FramePtr(av_frame_clone(frame.get())));
        for (const int x : {0, 11, picture->width() - 1}) {
            const auto* pixel = picture->plane(0).data + 20 * picture->plane(0).rowBytes + x * 4;
            EXPECT_NEAR(int(pixel[0]), blue, 2) << isScaled << " at " << x;
            EXPECT_NEAR(int(pixel[1]), green, 2) << isScaled;
            EXPECT_NEAR(int(pixel[2]), red, 2) << isScaled;
            EXPECT_EQ(int(pixel[3]), description->nb_components == 4 ? 64 : 255) << isScaled;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(
    Matrices, ColorConversion,
    testing::Values(MatrixCase{"Bt709", 1, 64, AV_PIX_FMT_YUV420P, false, 0.2126, 0.0722},
                    MatrixCase{"Bt709FullRange", 1, 64, AV_PIX_FMT_YUVJ420P, true, 0.2126, 0.0722},
                    MatrixCase{"Bt601FourTwoTwo", 6, 64, AV_PIX_FMT_YUV422P, false, 0.299, 0.114},
                    MatrixCase{"Bt601FullRange", 5, 64, AV_PIX_FMT_YUV444P, true, 0.299, 0.114},
                    MatrixCase{"Bt2020TenBits", 9, 64, AV_PIX_FMT_YUV422P10LE, false, 0.2627, 0.0593},
                    MatrixCase{"Bt709TwelveBitsAlpha", 1, 64, AV_PIX_FMT_YUVA444P12LE, false, 0.2126, 0.0722},
                    MatrixCase{"FourOneOne", 6, 64, AV_PIX_FMT_YUV411P, false, 0.299, 0.114},
                    MatrixCase{"UnsaidStandardDefinition", 2, 480, AV_PIX_FMT_YUV420P, false, 0.299, 0.114},
                    MatrixCase{"UnsaidHighDefinition", 2, 720, AV_PIX_FMT_YUV420P, false, 0.2126, 0.0722}),
    [](const auto& test) { return test.param.name; });

// A chroma ramp must come out as a ramp shifted by the siting alone: an error of half a pixel would show as colour
// fringes. Blue is linear in Cb, so that it tells where each chroma sample was taken to lie.
TEST(ColorConversion, PutsChromaWhereItIsSited) {
    for (const auto& [location, x, y] :
         {std::tuple{AVCHROMA_LOC_UNSPECIFIED, 0.0, 0.5}, std::tuple{AVCHROMA_LOC_LEFT, 0.0, 0.5},
          std::tuple{AVCHROMA_LOC_CENTER, 0.5, 0.5}, std::tuple{AVCHROMA_LOC_TOPLEFT, 0.0, 0.0}}) {
        for (const bool isVertical : {false, true}) {
            auto frame = makeFrame();
            frame->format = AV_PIX_FMT_YUV420P;
            frame->color_range = AVCOL_RANGE_JPEG;
            frame->width = frame->height = 64;
            frame->chroma_location = location;
            ASSERT_GE(av_frame_get_buffer(frame.get(), 0), 0);
            for (int row = 0; row < 64; ++row)
                std::memset(frame->data[0] + row * frame->linesize[0], 128, 64);
            for (int row = 0; row < 32; ++row)
                for (int column = 0; column < 32; ++column) {
                    frame->data[1][row * frame->linesize[1] + column] = std::uint8_t(112 + (isVertical ? row : column));
                    frame->data[2][row * frame->linesize[2] + column] = 128;
                }
            const auto picture = FrameConverter("BGRA", {.matrix = 1}).convert(std::move(frame));
            for (int at = 4; at < 60; ++at) {
                const double chroma = 112 + (at - (isVertical ? y : x)) / 2;
                const auto& plane = picture->plane(0);
                const auto offset =
                    std::size_t(isVertical ? at : 20) * plane.rowBytes + std::size_t(isVertical ? 20 : at) * 4;
                ASSERT_NEAR(int(plane.data[offset]), 128 + 2 * (1 - 0.0722) * (chroma - 128), 0.51)
                    << "location " << location << (isVertical ? " vertically" : " horizontally") << " at " << at;
            }
        }
    }
}

} // namespace
} // namespace panoveer
