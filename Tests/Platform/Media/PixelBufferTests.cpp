#include "Platform/Core/Error.h"
#include "Platform/Media/PixelBuffer.h"

#include <gtest/gtest.h>

#include <cstring>
#include <vector>

namespace panoveer {
namespace {

struct LayoutCase {
    const char* name;
    FourCC format;
    int planeCount;
    int chromaWidth, chromaHeight; // of a 33 x 17 picture
    std::size_t lumaBytesPerPixel;
};

class PixelBufferLayout : public testing::TestWithParam<LayoutCase> {};

TEST_P(PixelBufferLayout, RoundsChromaUpAndAlignsEveryRow) {
    const auto& expected = GetParam();
    const auto buffer = PixelBuffer::make(expected.format, 33, 17);
    ASSERT_EQ(buffer->planeCount(), expected.planeCount);
    for (int i = 0; i < buffer->planeCount(); ++i) {
        const auto& plane = buffer->plane(i);
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(plane.data) % 64, 0u);
        EXPECT_EQ(plane.rowBytes % 64, 0u);
        std::memset(plane.data, 0x5a, plane.rowBytes * std::size_t(plane.height)); // all of it is ours
    }
    EXPECT_EQ(buffer->plane(0).width, 33);
    EXPECT_EQ(buffer->plane(0).height, 17);
    EXPECT_GE(buffer->plane(0).rowBytes, 33 * expected.lumaBytesPerPixel);
    if (expected.planeCount == 2) {
        EXPECT_EQ(buffer->plane(1).width, expected.chromaWidth);
        EXPECT_EQ(buffer->plane(1).height, expected.chromaHeight);
        EXPECT_GE(buffer->plane(1).rowBytes, 2 * std::size_t(expected.chromaWidth) * expected.lumaBytesPerPixel);
    }
}

INSTANTIATE_TEST_SUITE_P(Formats, PixelBufferLayout,
                         testing::Values(LayoutCase{"BGRA", "BGRA", 1, 0, 0, 4}, LayoutCase{"RGhA", "RGhA", 1, 0, 0, 8},
                                         LayoutCase{"v420", "420v", 2, 17, 9, 1},
                                         LayoutCase{"x420", "x420", 2, 17, 9, 2},
                                         LayoutCase{"x422", "x422", 2, 17, 17, 2},
                                         LayoutCase{"x444", "x444", 2, 33, 17, 2}),
                         [](const auto& test) { return test.param.name; });

TEST(PixelBuffer, RefusesUnknownFormatsAndImpossibleSizes) {
    EXPECT_THROW(PixelBuffer::make("nope", 16, 16), Error);
    EXPECT_THROW(PixelBuffer::make("BGRA", 0, 16), Error);
    EXPECT_THROW(PixelBuffer::make("BGRA", 16, 1 << 20), Error);
    EXPECT_THROW(PixelBufferPool("nope", 16, 16), Error);
}

TEST(PixelBuffer, KeepsTheOwnerOfAdoptedMemoryAlive) {
    auto owner = std::make_shared<std::vector<std::byte>>(64 * 16);
    const std::weak_ptr<void> watch = owner;
    auto picture = PixelBuffer::adopt("BGRA", 16, 16, {{owner->data(), 64, 16, 16}}, owner);
    owner.reset();
    EXPECT_FALSE(watch.expired());
    picture.reset();
    EXPECT_TRUE(watch.expired());
}

TEST(PixelBufferPool, HandsOutNoMoreThanTheThresholdAndTakesBuffersBack) {
    PixelBufferPool pool("420v", 64, 64);
    auto first = pool.acquire(2);
    auto second = pool.acquire(2);
    ASSERT_TRUE(first && second);
    EXPECT_EQ(pool.acquire(2), nullptr);
    auto third = pool.acquire(); // no threshold
    EXPECT_TRUE(third);

    const auto* memory = first->plane(0).data;
    first->color().primaries = 9;
    first->color().contentLightLevelInfo = {1, 2, 3, 4};
    third.reset();
    first.reset();
    first = pool.acquire(2);
    ASSERT_TRUE(first);
    EXPECT_EQ(first->plane(0).data, memory);
    EXPECT_EQ(first->color(), ColorAttachments());
}

} // namespace
} // namespace panoveer
