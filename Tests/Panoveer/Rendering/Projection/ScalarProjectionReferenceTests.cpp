#include "Panoveer/Rendering/Projection/PictureTesting.h"
#include "Panoveer/Rendering/Projection/ScalarProjectionReference.h"
#include "Platform/Core/Error.h"

#include <gtest/gtest.h>

#include <cmath>
#include <numbers>

namespace panoveer {

namespace {

using namespace pixelFormat;
using Reference = ScalarProjectionReference;

PictureSize sizeOf(const PixelBuffer& picture) { return {picture.width(), picture.height()}; }

PixelBufferPtr makeFrame(FourCC format, const OutputResolution& size) {
    return PixelBuffer::make(format, int(size.width), int(size.height));
}

PixelBufferPtr rendered(const PixelBuffer& source, const VRTransform& transform, FourCC format,
                        const OutputResolution& size, const ScalarRenderOptions& options = {},
                        const SourcePictureDescription& description = {}) {
    auto output = makeFrame(format, size);
    Reference::renderPicture(source, description, transform, *output, options);
    return output;
}

// --- Against the truth -----------------------------------------------------------------------------------------------

class FormatPairs : public testing::TestWithParam<std::tuple<ProjectionFormat, ProjectionFormat>> {
protected:
    static constexpr int sourceHeight = 128;
    static constexpr int outputHeight = 64;
    // Of one source pixel where the source is coarsest, near enough for every format.
    static constexpr double sourcePixel = std::numbers::pi / sourceHeight;

    VRTransform transform_ = transformBetween(std::get<0>(GetParam()), std::get<1>(GetParam()));

    void SetUp() override {
        transform_.yawDegrees = transform_.sourceFormat == ProjectionFormat::standard ? 8 : -35;
        transform_.pitchDegrees = 12;
        transform_.rollDegrees = 20;
    }

    PixelBufferPtr painted(const SphericalScene& scene, FourCC format) const {
        auto source =
            makeFrame(format, frameSize(transform_.sourceFormat, transform_.sourceStereoLayout, sourceHeight));
        auto transform = transform_; // a flat source has the shape of an eye of the output
        transform.outputStereoLayout = StereoVideoLayout::mono;
        transform.outputResolution = frameSize(transform.outputFormat, StereoVideoLayout::mono, outputHeight);
        paintAsSource(scene, transform, *source);
        return source;
    }

    PictureDifference differenceFromTruth(const SphericalScene& scene, const PixelBuffer& source, FourCC format,
                                          int taps) {
        const auto size = frameSize(transform_.outputFormat, transform_.outputStereoLayout, outputHeight);
        transform_.outputResolution = size;
        const auto truth = makeFrame(format, size);
        paintAsOutput(scene, transform_, sizeOf(source), *truth);
        return differenceBetween(*rendered(source, transform_, format, size, {.resamplingTaps = taps}), *truth);
    }
};

// A source holds so smooth a scene entirely, so that only rounding is left, twice to eight bits. A place that is
// misread, at a seam, a pole, an edge of a cube or the border of an eye, stands out from that.
TEST_P(FormatPairs, ShowASmoothSceneAsItIs) {
    for (const auto layout : stereoLayouts) {
        transform_.sourceStereoLayout = layout;
        transform_.sourceEyesSwapped = layout == StereoVideoLayout::overUnder;
        transform_.monoStereoEye = layout == StereoVideoLayout::mono ? StereoEye::left : StereoEye::right;
        const auto source = painted(waves, bgra);
        for (const auto output : stereoLayouts) {
            SCOPED_TRACE(nameOf(layout) + " to " + nameOf(output));
            transform_.outputStereoLayout = output;
            const auto difference = differenceFromTruth(waves, *source, bgra, 8);
            EXPECT_GT(difference.psnr, 54);
            // Nothing goes on beyond a flat picture or a fisheye's circle: their outermost pixels are held.
            const bool hasBorder = transform_.sourceFormat == ProjectionFormat::standard ||
                                   transform_.sourceFormat == ProjectionFormat::domemaster;
            EXPECT_LE(difference.worst, hasBorder ? 6 : 3);
        }
    }
}

// Edges of little more than a source pixel: how much of the picture's sharpness comes through.
TEST_P(FormatPairs, KeepAFineSceneAndItsChroma) {
    const SphericalTestChart chart{.seconds = 1, .softness = 1.2 * sourcePixel};
    for (const auto& [source, output, taps] : {std::tuple{bgra, bgra, 8},
                                               {bgra, bgra, 2},
                                               {yCbCr420VideoRange, yCbCr420VideoRange, 8},
                                               {bgra, yCbCr422TenBitVideoRange, 8},
                                               {yCbCr420TenBitFullRange, bgra, 8}})
        EXPECT_GT(differenceFromTruth(chart, *painted(chart, source), output, taps).psnr, 40)
            << source.text() << " to " << output.text() << " with " << taps;
}

INSTANTIATE_TEST_SUITE_P(ScalarProjectionReference, FormatPairs,
                         testing::Combine(testing::ValuesIn(kernelFormats), testing::ValuesIn(kernelFormats)),
                         [](const auto& test) {
                             return nameOf(std::get<0>(test.param)) + "To" + nameOf(std::get<1>(test.param));
                         });

// A picture eight times smaller is the mean of what its pixels cover, without aliases of the sharp lines.
TEST(ScalarProjectionReference, MakesPicturesSmallerWithoutAliases) {
    auto transform = transformBetween(ProjectionFormat::equirectangular, ProjectionFormat::equirectangular);
    const SphericalTestChart chart;
    const auto source = PixelBuffer::make(bgra, 1024, 512);
    paintAsSource(chart, transform, *source);
    for (const int factor : {2, 4, 8}) {
        auto truth = PixelBuffer::make(bgra, 1024 / factor, 512 / factor);
        const auto all = samplesOf(*source, 0);
        fill(*truth, [&](int x, int y) {
            std::array<int, 4> mean{};
            for (std::size_t c = 0; c < 4; ++c) {
                double sum = 0;
                for (int j = 0; j < factor; ++j)
                    for (int i = 0; i < factor; ++i)
                        sum += all[std::size_t(((y * factor + j) * 1024 + x * factor + i) * 4) + c];
                mean[c] = int(std::lround(sum / (factor * factor)));
            }
            return mean;
        });
        for (const int taps : {2, 8})
            EXPECT_GT(differenceBetween(
                          *rendered(*source, transform, bgra, {1024 / factor, 512 / factor}, {.resamplingTaps = taps}),
                          *truth)
                          .psnr,
                      38)
                << factor << " with " << taps;
    }
}

// --- Nothing to change -----------------------------------------------------------------------------------------------

class Sources : public testing::TestWithParam<ProjectionFormat> {};

void fillWithNoise(PixelBuffer& picture) {
    std::uint32_t state = 1;
    const auto next = [&](int limit) {
        state = state * 1664525 + 1013904223;
        return int(state >> 16) % limit;
    };
    const bool isWide = picture.layout().bytesPerSample == 2;
    for (int p = 0; p < picture.planeCount(); ++p) {
        const auto& plane = picture.plane(p);
        const int count = plane.width * (p == 0 ? picture.layout().samplesPerPixel : 2);
        for (int y = 0; y < plane.height; ++y)
            for (int i = 0; i < count; ++i) {
                // Alpha stays opaque: what is less would limit the premultiplied colours.
                const bool isAlpha = picture.format() == bgra && i % 4 == 3;
                setSample(picture, p, i, y, isAlpha ? 255 : isWide ? 4 + next(1016) : 1 + next(254));
            }
    }
}

TEST_P(Sources, ComeOutUntouchedWhenNothingChanges) {
    if (GetParam() == ProjectionFormat::eac)
        return; // its margin shows what lies beyond the faces; the comparison with the truth covers it
    for (const auto layout : stereoLayouts) {
        auto transform = transformBetween(GetParam(), GetParam());
        transform.sourceStereoLayout = transform.outputStereoLayout = layout;
        const auto size = frameSize(GetParam(), layout, 64);
        for (const auto format : {bgra, yCbCr420VideoRange, yCbCr420TenBitVideoRange, yCbCr422TenBitVideoRange}) {
            const auto source = makeFrame(format, size);
            fillWithNoise(*source);
            for (const int taps : {2, 8}) {
                const auto output = rendered(*source, transform, format, size,
                                             {.resamplingTaps = taps, .transparentUnmappedAreas = true},
                                             {.alphaMode = AlphaMode::premultiplied});
                for (int p = 0; p < output->planeCount(); ++p) {
                    const auto before = samplesOf(*source, p);
                    const auto after = samplesOf(*output, p);
                    std::size_t kept = 0;
                    for (std::size_t i = 0; i < before.size(); ++i)
                        kept += before[i] == after[i] ? 1 : 0;
                    // Outside its circle a dome shows nothing.
                    const double mapped = GetParam() == ProjectionFormat::domemaster ? 0.76 : 1;
                    EXPECT_GE(double(kept), mapped * double(before.size()))
                        << nameOf(layout) << " " << format.text() << " plane " << p << ", " << taps << " taps";
                }
            }
        }
    }
}

INSTANTIATE_TEST_SUITE_P(ScalarProjectionReference, Sources, testing::ValuesIn(kernelFormats),
                         [](const auto& test) { return nameOf(test.param); });

// --- Orientation -----------------------------------------------------------------------------------------------------

// Where a pixel of the upright picture lies in the stored one: turning the stored picture by the orientation, `right`
// being a quarter clockwise, makes it upright.
struct StoredPlace {
    double x, y;
};
StoredPlace stored(SourceVideoOrientation orientation, double x, double y, int width, int height) {
    switch (orientation) {
    case SourceVideoOrientation::up: break;
    case SourceVideoOrientation::right: return {y, height - x};
    case SourceVideoOrientation::down: return {width - x, height - y};
    case SourceVideoOrientation::left: return {width - y, x};
    }
    return {x, y};
}

// The eyes lie in the upright picture, however it is stored.
TEST(ScalarProjectionReference, TurnsTheSourceUprightBeforeItLooksForTheEyes) {
    for (const auto layout : stereoLayouts) {
        auto transform = transformBetween(ProjectionFormat::equirectangular, ProjectionFormat::standard);
        transform.sourceStereoLayout = layout;
        transform.outputStereoLayout = StereoVideoLayout::sideBySide;
        const auto upright = PixelBuffer::make(bgra, 128, 64);
        paintAsSource(SphericalTestChart{.softness = 0.05}, transform, *upright);
        const auto pixels = samplesOf(*upright, 0);
        const auto expected = rendered(*upright, transform, bgra, {128, 36});
        for (const auto orientation : orientations) {
            const bool isTurned = swapsDimensions(orientation);
            const auto turned = PixelBuffer::make(bgra, isTurned ? 64 : 128, isTurned ? 128 : 64);
            for (int i = 0; i < 128 * 64 * 4; ++i) {
                const int x = i / 4 % 128, y = i / 512;
                const auto at = stored(orientation, x + 0.5, y + 0.5, turned->width(), turned->height());
                setSample(*turned, 0, int(at.x) * 4 + i % 4, int(at.y), int(pixels[std::size_t(i)]));
            }
            const auto output = rendered(*turned, transform, bgra, {128, 36}, {}, {.orientation = orientation});
            EXPECT_EQ(differenceBetween(*output, *expected).worst, 0) << nameOf(layout) << int(orientation);
        }
    }
}

// A chroma ramp must come out as a ramp in the same place, however the picture with its off-centre chroma is stored.
TEST(ScalarProjectionReference, KnowsWhereChromaLiesInATurnedPicture) {
    const auto transform = transformBetween(ProjectionFormat::standard, ProjectionFormat::standard);
    for (const auto orientation : orientations) {
        const bool isTurned = swapsDimensions(orientation);
        const int width = isTurned ? 64 : 128;
        const int height = isTurned ? 128 : 64;
        const auto source = PixelBuffer::make(yCbCr420TenBitVideoRange, width, height);
        const auto ramp = [](double x, double y) { return 300 + 4 * x + 2 * y; };
        for (double y = 0.5; y < 64; y += 0.5) {
            for (double x = 0.5; x < 128; x += 0.5) {
                const auto at = stored(orientation, x, y, width, height);
                setSample(*source, 0, int(at.x), int(at.y), 500);
                // Left column, between the rows.
                const double column = (at.x - 0.5) / 2;
                const double row = (at.y - 1) / 2;
                if (column != std::floor(column) || row != std::floor(row))
                    continue;
                for (const int component : {0, 1})
                    setSample(*source, 1, 2 * int(column) + component, int(row), int(std::lround(ramp(x, y))));
            }
        }
        const auto output = rendered(*source, transform, yCbCr444TenBitVideoRange, {128, 64}, {.resamplingTaps = 2},
                                     {.orientation = orientation});
        const auto chroma = samplesOf(*output, 1);
        for (int y = 4; y < 60; ++y)
            for (int x = 4; x < 124; ++x)
                ASSERT_NEAR(chroma[std::size_t(y * 128 + x) * 2], ramp(x + 0.5, y + 0.5), 0.51)
                    << int(orientation) << " " << x << " " << y;
    }
}

// --- Alpha -----------------------------------------------------------------------------------------------------------

TEST(ScalarProjectionReference, TreatsAlphaAsAskedInsideAndOutsideTheSource) {
    auto transform = transformBetween(ProjectionFormat::halfEquirectangular, ProjectionFormat::equirectangular);
    const auto source = PixelBuffer::make(bgra, 32, 32);
    fill(*source, [](int, int) { return std::array{40, 80, 120, 128}; });
    struct Row {
        AlphaMode mode;
        bool isTransparent, hasCheckerboard;
        std::array<double, 4> middle, outside;
    };
    const double rest = 1 - 128 / 255.0;
    const double grey = std::floor(255 * 0.3 + 0.5); // at (0, 16)
    const double behind = 255 * 0.3 * rest;          // at (48, 16): 3 and 1 squares in, an even sum
    const double behindEven = behind / 0.3 * 0.2;
    for (const auto& row :
         {Row{AlphaMode::opaque, false, false, {40, 80, 120, 255}, {0, 0, 0, 255}},
          Row{AlphaMode::opaque, true, false, {40, 80, 120, 255}, {0, 0, 0, 0}},
          Row{AlphaMode::straight, false, false, {40, 80, 120, 128}, {0, 0, 0, 255}},
          Row{AlphaMode::straight, true, false, {40, 80, 120, 128}, {0, 0, 0, 0}},
          Row{AlphaMode::premultiplied, true, false, {40, 80, 120, 128}, {0, 0, 0, 0}},
          Row{AlphaMode::straight,
              true,
              true,
              {40 * (1 - rest) + behindEven, 80 * (1 - rest) + behindEven, 120 * (1 - rest) + behindEven, 255},
              {grey, grey, grey, 255}},
          Row{AlphaMode::premultiplied,
              true,
              true,
              {40 + behindEven, 80 + behindEven, 120 + behindEven, 255},
              {grey, grey, grey, 255}}}) {
        const auto output =
            rendered(*source, transform, bgra, {96, 48},
                     {.transparentUnmappedAreas = row.isTransparent, .hasCheckerboard = row.hasCheckerboard},
                     {.alphaMode = row.mode});
        const auto pixels = samplesOf(*output, 0);
        for (std::size_t c = 0; c < 4; ++c) {
            EXPECT_NEAR(pixels[(16 * 96 + 48) * 4 + c], row.middle[c], 1) << int(row.mode) << row.hasCheckerboard;
            EXPECT_NEAR(pixels[(16 * 96 + 0) * 4 + c], row.outside[c], 1) << int(row.mode) << row.hasCheckerboard;
        }
    }
}

TEST(ScalarProjectionReference, DoesNotLetTheColorOfTransparentPixelsShow) {
    auto transform = transformBetween(ProjectionFormat::standard, ProjectionFormat::standard);
    const auto source = PixelBuffer::make(bgra, 64, 36);
    fill(*source, [](int x, int) { return x < 32 ? std::array{0, 255, 0, 0} : std::array{60, 60, 200, 255}; });
    const auto pixels =
        samplesOf(*rendered(*source, transform, bgra, {100, 56}, {}, {.alphaMode = AlphaMode::straight}), 0);
    for (std::size_t i = 0; i < pixels.size(); i += 4) {
        if (pixels[i + 3] > 0) {
            ASSERT_NEAR(pixels[i + 1], 60, 1) << "green of nothing fringes the edge";
        }
    }
}

TEST(ScalarProjectionReference, RefusesWhatCannotBeASource) {
    const auto picture = PixelBuffer::make(rgbaHalf, 8, 8);
    EXPECT_THROW(Reference::renderPicture(*picture, {}, {}, *PixelBuffer::make(bgra, 8, 8), {}), Error);
}

} // namespace
} // namespace panoveer
