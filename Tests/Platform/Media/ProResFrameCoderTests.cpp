// Frames of our coder as libavcodec's decoder shows them.

#include "Platform/Media/ProResEncoder.h"
#include "Platform/Media/ProResFrameCoder.h"

#include <gtest/gtest.h>
#include <hwy/targets.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <functional>
#include <optional>
#include <random>
#include <span>
#include <string>
#include <vector>

extern "C" {
#include <libavcodec/avcodec.h>
}

namespace panoveer {
namespace {

FramePtr decode(std::span<const std::uint8_t> bytes, FourCC codec) {
    limitLibAVLog();
    CodecContextPtr context(avcodec_alloc_context3(avcodec_find_decoder(AV_CODEC_ID_PRORES)));
    context->codec_tag = __builtin_bswap32(codec.value);
    context->err_recognition = AV_EF_EXPLODE;
    auto packet = makePacket();
    auto frame = makeFrame();
    if (avcodec_open2(context.get(), nullptr, nullptr) < 0 || av_new_packet(packet.get(), int(bytes.size())) < 0)
        return nullptr;
    std::ranges::copy(bytes, packet->data);
    const bool isDecoded =
        avcodec_send_packet(context.get(), packet.get()) == 0 && avcodec_receive_frame(context.get(), frame.get()) == 0;
    return isDecoded ? std::move(frame) : nullptr;
}

double sampleOf(const AVFrame& frame, int component, int x, int y) {
    return reinterpret_cast<const std::uint16_t*>(frame.data[component] +
                                                  std::ptrdiff_t(y) * frame.linesize[component])[x];
}

using Scene = std::function<std::array<double, 4>(int x, int y)>; // R, G, B, alpha; or Y, Cb, Cr in 0 … 1

// What the decoder should show, in its own steps, and the picture that it stands for.
struct Shot {
    PixelBufferPtr picture;
    std::vector<std::array<double, 4>> truth;
};

constexpr double kr = 0.2627, kb = 0.0593; // BT.2020

template<class Sample>
Sample* pixelOf(const PixelBuffer& picture, int plane, int x, int y) {
    const auto& memory = picture.plane(plane);
    return reinterpret_cast<Sample*>(memory.data + std::size_t(y) * memory.rowBytes) + x;
}

Shot halfFloatShot(int width, int height, const Scene& scene) {
    Shot shot{PixelBuffer::make(pixelFormat::rgbaHalf, width, height), {}};
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            std::array<double, 4> value{};
            for (std::size_t i = 0; i < 4; ++i) {
                const auto half = _Float16(scene(x, y)[i]);
                pixelOf<std::uint16_t>(*shot.picture, 0, 4 * x, y)[i] = std::bit_cast<std::uint16_t>(half);
                value[i] = double(half);
            }
            const auto [r, g, b, alpha] = value;
            const double luma = kr * r + (1 - kr - kb) * g + kb * b;
            shot.truth.push_back(
                {256 + 3504 * luma, 2048 + 3584 * (b - luma) / (2 * (1 - kb)),
                 2048 + 3584 * (r - luma) / (2 * (1 - kr)),
                 std::floor(std::floor(65535 * float(alpha) + 0.5F) / 16)}); // the decoder leaves four bits out
        }
    return shot;
}

// Ten bits of 4:2:2; each chroma sample is seen at both of its columns.
Shot tenBitShot(int width, int height, const Scene& scene) {
    Shot shot{PixelBuffer::make(pixelFormat::yCbCr422TenBitVideoRange, width, height), {}};
    const auto code = [](double value) { return std::uint16_t(4 + std::lround(value * 1015)); };
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            const auto own = scene(x, y), chroma = scene(x & ~1, y);
            *pixelOf<std::uint16_t>(*shot.picture, 0, x, y) = std::uint16_t(code(own[0]) << 6);
            for (std::size_t i = 0; i < 2; ++i)
                pixelOf<std::uint16_t>(*shot.picture, 1, x & ~1, y)[i] = std::uint16_t(code(chroma[i + 1]) << 6);
            shot.truth.push_back({double(code(own[0])), double(code(chroma[1])), double(code(chroma[2])), 0});
        }
    return shot;
}

struct Errors {
    std::array<double, 3> rootMeanSquare{};
    double largestAlpha = 0;
};

// No value when the decoder refuses the frame.
std::optional<Errors> errorsOf(const Shot& shot, FourCC codec, int step) {
    const auto& picture = *shot.picture;
    EncoderConfiguration configuration{
        .settings = {.codec = codec, .width = picture.width(), .height = picture.height()},
        .pictureFormat = picture.format(),
        .frameDuration = {1, 30}};
    configuration.settings.color.matrix = 9;
    ProResFrameCoder coder(*findProResVariant(codec), configuration);
    const auto frame = decode(coder.code(picture, step), codec);
    if (!frame || frame->width != picture.width() || frame->height != picture.height())
        return std::nullopt;
    const bool hasAlpha = picture.format() == pixelFormat::rgbaHalf;
    EXPECT_EQ(frame->format, hasAlpha ? AV_PIX_FMT_YUVA444P12 : AV_PIX_FMT_YUV422P10);
    Errors errors;
    for (int y = 0; y < picture.height(); ++y)
        for (int x = 0; x < picture.width(); ++x) {
            const auto& truth = shot.truth[std::size_t(y) * std::size_t(picture.width()) + std::size_t(x)];
            for (int i = 0; i < 3; ++i) {
                const double error = sampleOf(*frame, i, i > 0 && !hasAlpha ? x / 2 : x, y) - truth[std::size_t(i)];
                errors.rootMeanSquare[std::size_t(i)] += error * error / double(shot.truth.size());
            }
            if (hasAlpha)
                errors.largestAlpha = std::max(errors.largestAlpha, std::abs(sampleOf(*frame, 3, x, y) - truth[3]));
        }
    for (auto& value : errors.rootMeanSquare)
        value = std::sqrt(value);
    return errors;
}

std::array<double, 4> noise(int x, int y) {
    std::minstd_rand random(std::uint32_t(x + 1000 * y + 1));
    random.discard(5); // the first ones rise with the seed
    std::array<double, 4> values{};
    for (auto& value : values)
        value = double(random()) / double(std::minstd_rand::max());
    return values;
}

// From black to white across 2,048 columns, with an edge in alpha and a slow colour cast.
std::array<double, 4> ramp(int x, int y) {
    const double grey = (x + y / 64.0) / 2049;
    return {grey, grey, grey, x < 700 ? 1 : x / 2048.0};
}

constexpr int finest = ProResFrameCoder::finestStep;

TEST(ProResFrameCoder, KeepsTwelveBitsAndAlphaAsTheyAre) {
    for (const FourCC codec : {FourCC("ap4h"), FourCC("ap4x")}) {
        const auto errors = errorsOf(halfFloatShot(2048, 64, ramp), codec, finest);
        ASSERT_TRUE(errors);
        for (const double error : errors->rootMeanSquare)
            EXPECT_LT(error, 0.65); // of a step of 12 bits
        EXPECT_EQ(errors->largestAlpha, 0);
    }
}

// Slices of all lengths and parts of macroblocks at the right and at the bottom, on every SIMD target.
TEST(ProResFrameCoder, CodesEverySizeOnEveryTarget) {
    const struct Restored {
        ~Restored() { hwy::SetSupportedTargetsForTest(0); }
    } restored;
    for (const auto target : hwy::SupportedAndGeneratedTargets()) {
        hwy::SetSupportedTargetsForTest(target);
        for (const auto& [width, height] : {std::pair(2, 1), std::pair(16, 16), std::pair(130, 34), std::pair(33, 17),
                                            std::pair(240, 17), std::pair(366, 50)}) {
            SCOPED_TRACE(std::string(hwy::TargetName(target)) + " " + std::to_string(width));
            const auto halves = errorsOf(halfFloatShot(width, height, noise), FourCC("ap4h"), finest);
            const auto tenBits = errorsOf(tenBitShot(width, height, noise), FourCC("apch"), finest);
            ASSERT_TRUE(halves && tenBits);
            for (std::size_t i = 0; i < 3; ++i) {
                EXPECT_LT(halves->rootMeanSquare[i], 0.8);
                EXPECT_LT(tenBits->rootMeanSquare[i], 0.4);
            }
            EXPECT_EQ(halves->largestAlpha, 0);
        }
    }
}

// The largest coefficients that there are, and steps so coarse that hardly one is left.
TEST(ProResFrameCoder, TakesTheHardestPicturesWithEveryStep) {
    const auto shot = tenBitShot(256, 32, [](int x, int y) {
        const double value = x < 128 ? (x + y) & 1 : (x / 8 + y / 8) & 1;
        return std::array{value, 1 - value, value, 1.0};
    });
    double before = 0;
    for (const int step : {finest, 14, 256, 264, 1024, 1056, ProResFrameCoder::coarsestStep}) {
        const auto errors = errorsOf(shot, FourCC("apcn"), step);
        ASSERT_TRUE(errors) << step;
        // A step of 12 bits is a quarter of one of ten; coefficients are off by at most half a level or are left out.
        EXPECT_LT(errors->rootMeanSquare[0], 0.4 + step / 8.0);
        EXPECT_GE(errors->rootMeanSquare[0], before * 0.5);
        before = errors->rootMeanSquare[0];
    }
}

struct RateCase {
    const char* name;
    FourCC codec;
    double megabitsPerSecond; // at 1920 x 1080
    int plainFramesBetween;   // between those with grain
};

class ProResRate : public testing::TestWithParam<RateCase> {};

// Grain below and above half a level, where size falls steeply or hardly with the step, and scene changes.
TEST_P(ProResRate, StaysNearWhatTheFamilyPublishes) {
    constexpr int width = 640, height = 320, frameCount = 12;
    const auto& row = GetParam();
    const auto grain = tenBitShot(width, height, [](int x, int y) {
        const auto n = noise(x, y);
        return std::array{(x + y) / 2000.0 + 0.1 * n[0], 0.45 + 0.1 * n[1], 0.45 + 0.1 * n[2], 1.0};
    });
    const auto plain = tenBitShot(width, height, ramp);
    std::vector<double> sizes;
    ProResEncoder encoder({.settings = {.codec = row.codec, .width = width, .height = height},
                           .pictureFormat = pixelFormat::yCbCr422TenBitVideoRange,
                           .frameDuration = {1, 30}},
                          [&](const PacketPtr& packet) { sizes.push_back(packet->size); });
    for (int i = 0; i < frameCount; ++i)
        encoder.encode(i % (row.plainFramesBetween + 1) == 0 ? grain.picture : plain.picture, i, 1);
    encoder.finish();
    ASSERT_EQ(sizes.size(), std::size_t(frameCount));
    const double target = row.megabitsPerSecond * 1e6 / 8 * 1001 / 30000 * (width / 16 * height / 16) / (120 * 68);
    for (std::size_t i = 0; i < sizes.size(); i += std::size_t(row.plainFramesBetween) + 1) {
        EXPECT_LT(sizes[i], 1.15 * target) << i; // headers are not counted in
        EXPECT_GT(sizes[i], 0.75 * target) << i;
    }
}

INSTANTIATE_TEST_SUITE_P(Variants, ProResRate,
                         testing::Values(RateCase{"Proxy", "apco", 45, 0}, RateCase{"LT", "apcs", 102, 0},
                                         RateCase{"HQ", "apch", 220, 0}, RateCase{"Flashes", "apch", 220, 2}),
                         [](const auto& test) { return test.param.name; });

} // namespace
} // namespace panoveer
