#include "Panoveer/Rendering/Projection/PictureTesting.h"
#include "Panoveer/Rendering/Projection/ScalarProjectionReference.h"

#include <gtest/gtest.h>

#include <cmath>
#include <numbers>

// Magnified views of the places where a source's picture ends or its map is singular. Between any two source pixels lie
// several output pixels, so that a wrong neighbour cannot hide.
namespace panoveer {

namespace {

using namespace pixelFormat;

constexpr int sourceHeight = 96;
constexpr int viewSize = 24;
constexpr double viewDegrees = 12; // about six source pixels

// What one source pixel covers at most, in radians: the middle of a cube's face is coarsest.
double sourcePixel(ProjectionFormat format) {
    return format == ProjectionFormat::cubemap ? 2.0 / (sourceHeight / 2) : std::numbers::pi / sourceHeight;
}

// By how many source pixels the outermost samples are held at the worst. A sphere goes on everywhere. A tap beyond the
// face of a cube is interpolated on the face beside it, whose samples end half a pixel before its edge, and weighs no
// more than half. A half sphere ends at its edge, and a circle cuts the pixels slantwise.
double heldPixels(ProjectionFormat format) {
    switch (format) {
    case ProjectionFormat::cubemap:
    case ProjectionFormat::eac: return 0.25;
    case ProjectionFormat::halfEquirectangular: return 0.5;
    case ProjectionFormat::domemaster: return 1;
    default: return 0;
    }
}

struct Planes {
    FourCC source, output;
    double codes;        // of the output for one of eight bits
    double coarsestGrid; // of the source, in its pixels
};

class SourceSeams : public testing::TestWithParam<std::tuple<ProjectionFormat, StereoVideoLayout>> {};

TEST_P(SourceSeams, CannotBeSeen) {
    const auto [format, layout] = GetParam();
    auto transform = transformBetween(format, ProjectionFormat::standard);
    transform.sourceStereoLayout = layout;
    transform.fovDegrees = viewDegrees;
    transform.outputResolution = {viewSize, viewSize};
    const auto size = frameSize(format, layout, sourceHeight);
    for (const auto& planes :
         {Planes{bgra, bgra, 1, 1}, Planes{yCbCr420TenBitVideoRange, yCbCr444TenBitVideoRange, 4, 2}}) {
        const auto source = PixelBuffer::make(planes.source, int(size.width), int(size.height));
        paintAsSource(waves, transform, *source);
        // Rounding to codes on both sides, the first up to doubled by the negative lobes of eight taps, and what
        // interpolation makes of the bend of the waves; then the slope of the waves, 5.4 a radian at the most.
        const double rounding = 2.5;
        const double slope = wavesAmplitude * 255 * 5.4 * sourcePixel(format) * planes.coarsestGrid;
        const double limit = (rounding + slope * heldPixels(format)) * planes.codes;
        int view = 0;
        for (const auto& place : seams()) {
            lookAt(place, transform);
            transform.monoStereoEye = ++view % 2 ? StereoEye::left : StereoEye::right;
            const auto truth = PixelBuffer::make(planes.output, viewSize, viewSize);
            paintAsOutput(waves, transform, {source->width(), source->height()}, *truth);
            for (const int taps : {2, 8}) {
                const auto output = PixelBuffer::make(planes.output, viewSize, viewSize);
                ScalarProjectionReference::renderPicture(*source, {}, transform, *output, {.resamplingTaps = taps});
                EXPECT_LE(differenceBetween(*output, *truth).worst, limit)
                    << planes.source.text() << ", " << taps << " taps, towards " << place.x << " " << place.y << " "
                    << place.z;
            }
        }
    }
}

INSTANTIATE_TEST_SUITE_P(
    ScalarProjectionReference, SourceSeams,
    testing::Combine(testing::Values(ProjectionFormat::equirectangular, ProjectionFormat::halfEquirectangular,
                                     ProjectionFormat::domemaster, ProjectionFormat::cubemap, ProjectionFormat::eac),
                     testing::ValuesIn(stereoLayouts)),
    [](const auto& test) { return nameOf(std::get<0>(test.param)) + nameOf(std::get<1>(test.param)); });

} // namespace
} // namespace panoveer
