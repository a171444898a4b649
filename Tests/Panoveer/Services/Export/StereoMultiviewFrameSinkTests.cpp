#include "Panoveer/Model/Records/ExportCodec.h"
#include "Panoveer/Model/Records/RecordEnums.h"
#include "Panoveer/Services/Export/ExportImmersiveMedia.h"
#include "Panoveer/Services/Export/StereoMultiviewFrameSink.h"

#include <gtest/gtest.h>

#include <vector>

namespace panoveer {
namespace {

constexpr int eyeWidth = 6;
constexpr int eyeHeight = 4;

class KeptInput final : public VideoInput {
public:
    struct Kept {
        std::vector<TaggedPixelBuffer> pictures;
        MediaTime time;
    };

    bool isReadyForMoreMediaData() const override { return true; }
    bool append(PixelBufferPtr, MediaTime) override { return false; }
    bool appendTaggedBuffers(std::span<const TaggedPixelBuffer> pictures, MediaTime time) override {
        kept.push_back({{pictures.begin(), pictures.end()}, time});
        return true;
    }
    void markAsFinished() override {}

    std::vector<Kept> kept;
};

// Every byte says where it lies: its half, its plane, its row.
PixelBufferPtr packedPicture(FourCC format, int width = 2 * eyeWidth, int height = eyeHeight) {
    auto picture = PixelBuffer::make(format, width, height);
    for (int number = 0; number < picture->planeCount(); ++number) {
        const auto& plane = picture->plane(number);
        const auto rowSize = std::size_t(plane.width * (number == 0 ? picture->layout().samplesPerPixel : 2) *
                                         picture->layout().bytesPerSample);
        for (int y = 0; y < plane.height; ++y)
            for (std::size_t x = 0; x < rowSize; ++x)
                plane.data[std::size_t(y) * plane.rowBytes + x] =
                    std::byte((x < rowSize / 2 ? 0 : 128) + 64 * number + 8 * y + int(x % (rowSize / 2) % 8));
    }
    return picture;
}

TEST(StereoMultiviewFrameSink, CopiesExactlyOneHalfOfEveryPlane) {
    for (const auto format : {pixelFormat::bgra, pixelFormat::yCbCr420VideoRange, pixelFormat::yCbCr420TenBitVideoRange,
                              pixelFormat::yCbCr420TenBitFullRange, pixelFormat::yCbCr422TenBitVideoRange}) {
        const auto packed = packedPicture(format);
        for (const bool rightHalf : {false, true}) {
            const auto eye = PixelBuffer::make(format, eyeWidth, eyeHeight);
            ASSERT_TRUE(StereoMultiviewFrameSink::copyHalf(*packed, rightHalf, *eye)) << format.text();
            for (int number = 0; number < eye->planeCount(); ++number) {
                const auto &from = packed->plane(number), &to = eye->plane(number);
                const auto rowSize = std::size_t(to.width * (number == 0 ? eye->layout().samplesPerPixel : 2) *
                                                 eye->layout().bytesPerSample);
                for (int y = 0; y < to.height; ++y)
                    EXPECT_TRUE(std::equal(to.data + std::size_t(y) * to.rowBytes,
                                           to.data + std::size_t(y) * to.rowBytes + rowSize,
                                           from.data + std::size_t(y) * from.rowBytes + (rightHalf ? rowSize : 0)))
                        << format.text() << " plane " << number << " row " << y;
            }
        }
    }
}

TEST(StereoMultiviewFrameSink, PartsNothingThatIsNoPairOfEyes) {
    const auto eye = PixelBuffer::make(pixelFormat::yCbCr420VideoRange, eyeWidth, eyeHeight);
    for (const auto& packed : {packedPicture(pixelFormat::yCbCr420VideoRange, 2 * eyeWidth + 1),
                               packedPicture(pixelFormat::yCbCr420VideoRange, 2 * eyeWidth, eyeHeight + 2),
                               packedPicture(pixelFormat::bgra)})
        EXPECT_FALSE(StereoMultiviewFrameSink::copyHalf(*packed, false, *eye));
    const auto halfFloat = PixelBuffer::make(pixelFormat::rgbaHalf, eyeWidth, eyeHeight);
    EXPECT_FALSE(StereoMultiviewFrameSink::copyHalf(*packedPicture(pixelFormat::rgbaHalf), false, *halfFloat))
        << "a format that is not known here";

    KeptInput input;
    StereoMultiviewFrameSink sink(input, pixelFormat::yCbCr420VideoRange, eyeWidth, eyeHeight);
    EXPECT_FALSE(sink.append(packedPicture(pixelFormat::yCbCr420VideoRange, 2 * eyeWidth + 1), {0, 30}));
    EXPECT_TRUE(input.kept.empty());
}

TEST(StereoMultiviewFrameSink, TagsTheEyesAndCopiesARepeatedFrameOnce) {
    KeptInput input;
    StereoMultiviewFrameSink sink(input, pixelFormat::yCbCr420VideoRange, eyeWidth, eyeHeight);
    auto* pool = sink.pixelBufferPool();
    ASSERT_TRUE(pool);
    EXPECT_EQ(pool->width(), 2 * eyeWidth);
    auto frame = pool->acquire(1);
    frame->color() = {9, 16, 9, {}, {1, 2, 3, 4}};
    ASSERT_TRUE(sink.append(frame, {0, 30}) && sink.append(frame, {1, 30}));
    // The sink holds no frame of a pool that has only this one.
    frame.reset();
    auto next = pool->acquire(1);
    ASSERT_TRUE(next);
    ASSERT_TRUE(sink.append(next, {2, 30}));

    ASSERT_EQ(input.kept.size(), 3u);
    for (const auto& kept : input.kept) {
        ASSERT_EQ(kept.pictures.size(), 2u);
        EXPECT_EQ(kept.pictures[0].videoLayerID, 0);
        EXPECT_EQ(kept.pictures[0].stereoView, StereoView::leftEye);
        EXPECT_EQ(kept.pictures[1].videoLayerID, 1);
        EXPECT_EQ(kept.pictures[1].stereoView, StereoView::rightEye);
    }
    const auto eyesAt = [&](std::size_t index) {
        const auto& pictures = input.kept[index].pictures;
        return std::pair(pictures[0].pixelBuffer, pictures[1].pixelBuffer);
    };
    EXPECT_EQ(eyesAt(0), eyesAt(1));
    EXPECT_NE(eyesAt(1), eyesAt(2));
    EXPECT_EQ(input.kept[1].time, (MediaTime{1, 30}));
    EXPECT_EQ(eyesAt(0).first->color(), (ColorAttachments{9, 16, 9, {}, {1, 2, 3, 4}}));
    EXPECT_EQ(eyesAt(0).second->color(), eyesAt(0).first->color());
}

TEST(ExportImmersiveMedia, SaysOfAMovieWhatItsFormatLayoutAndCodecAre) {
    using enum ProjectionFormat;
    using enum ExportCodec;
    using K = VideoProjectionKind;
    using P = ViewPackingKind;
    constexpr auto mono = StereoVideoLayout::mono, packed = StereoVideoLayout::sideBySide,
                   stacked = StereoVideoLayout::overUnder;
    constexpr auto automatic = VRMetadataMode::automatic, off = VRMetadataMode::off;
    struct Row {
        ProjectionFormat format;
        StereoVideoLayout layout;
        ExportCodec codec;
        VRMetadataMode mode;
        std::optional<K> projection = {};
        std::optional<P> packing = {};
    };
    for (const auto& row :
         {Row{standard, mono, hevc10, automatic}, Row{standard, packed, h264, automatic, K::rectilinear, P::sideBySide},
          Row{equirectangular, mono, hevc10, automatic, K::equirectangular},
          Row{equirectangular, stacked, proRes, automatic, K::equirectangular, P::overUnder},
          Row{halfEquirectangular, packed, mvhevc10, automatic, K::halfEquirectangular},
          Row{standard, packed, mvhevc8, automatic, K::rectilinear}, Row{halfEquirectangular, packed, mvhevc10, off},
          Row{equirectangular, packed, hevc10, off}, Row{domemaster, packed, mvhevc8, automatic},
          Row{cubemap, packed, hevc8, automatic}}) {
        ExportOutputDescriptor descriptor;
        descriptor.outputFormat = row.format;
        descriptor.stereoLayout = row.layout;
        descriptor.codec = row.codec;
        descriptor.vrMetadataMode = row.mode;
        descriptor.resolution = {3840, 1080};
        const auto said = immersiveMediaProperties(descriptor);
        const auto name = std::string(rawValue(row.format)) + " " + std::string(rawValue(row.codec));
        EXPECT_EQ(said.projectionKind, row.projection) << name;
        EXPECT_EQ(said.viewPackingKind, row.packing) << name;
        EXPECT_EQ(said.multiview.has_value(), properties(row.codec).isMultiviewStereo) << name;
    }
}

TEST(ExportImmersiveMedia, GivesFieldOfViewAndBaselineOfTheFirstClipInThousandths) {
    ExportOutputDescriptor descriptor;
    descriptor.codec = ExportCodec::mvhevc10;
    descriptor.outputFormat = ProjectionFormat::standard;
    descriptor.stereoLayout = StereoVideoLayout::sideBySide;
    descriptor.resolution = {2160, 1080}; // square eyes
    EXPECT_EQ(multiviewProperties(descriptor), StereoMultiviewFrameSink::encoderProperties) << "no clip";
    VRClipSegment clip;
    clip.transform.outputFormat = ProjectionFormat::standard;
    clip.transform.sourceFormat = ProjectionFormat::equirectangular;
    clip.transform.fovDegrees = 63.4567;
    clip.transform.sourceStereoBaselineMillimeters = 19.2404;
    descriptor.segments = {clip, VRClipSegment()};
    const auto said = multiviewProperties(descriptor);
    EXPECT_EQ(said.horizontalFieldOfView, 63457u);
    EXPECT_EQ(said.stereoCameraBaseline, 19240u);
    EXPECT_EQ(said.heroEye, HeroEye::left);

    descriptor.segments[0].transform.sourceStereoBaselineMillimeters = 0;
    EXPECT_FALSE(multiviewProperties(descriptor).stereoCameraBaseline);
    descriptor.vrMetadataMode = VRMetadataMode::off;
    EXPECT_EQ(multiviewProperties(descriptor), StereoMultiviewFrameSink::encoderProperties);
}

} // namespace
} // namespace panoveer
