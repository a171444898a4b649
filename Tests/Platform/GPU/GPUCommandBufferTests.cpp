#include "Platform/GPU/GPUCommandBuffer.h"
#include "Platform/GPU/GPUCommandQueue.h"
#include "Platform/GPU/GPUComputePipeline.h"
#include "Platform/GPU/GPUDevice.h"
#include "Platform/GPU/GPUTexture.h"
#include "Platform/GPU/GPUTexturePool.h"
#include "Platform/GPU/ShaderLibrary.h"
#include "Platform/GPU/VulkanDevice.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <map>
#include <random>
#include <stdexcept>

namespace panoveer {

namespace {

constexpr const char* kernels = R"(#version 450
#extension GL_EXT_samplerless_texture_functions : require
layout(local_size_x = 8, local_size_y = 8) in;
layout(set = 0, binding = 0) uniform texture2D source;
layout(set = 0, binding = 1) uniform writeonly image2D destination;
layout(push_constant) uniform Constants { vec4 added; };
void main() {
    ivec2 at = ivec2(gl_GlobalInvocationID.xy);
    if (any(greaterThanEqual(at, imageSize(destination))))
        return;
#if defined(KERNEL_copy)
    imageStore(destination, at, texelFetch(source, at, 0));
#elif defined(KERNEL_add)
    imageStore(destination, at, texelFetch(source, at, 0) + added);
#endif
}
)";

// Ways in which pictures travel: in memory that the processor shares; through staging buffers; stored with red and blue
// exchanged, where the device cannot write them the other way; through copy engines of their own.
enum class Road { asTheDeviceLikes, staged, stagedSwapped, copyEngines };

struct TestGPU {
    std::shared_ptr<GPUDevice> device;
    std::shared_ptr<GPUCommandQueue> queue;
    std::shared_ptr<GPUComputePipeline> copy;
    std::shared_ptr<GPUComputePipeline> add;

    explicit TestGPU(Road road) : device(GPUDevice::make()) {
        if (road != Road::asTheDeviceLikes)
            device->vulkan().forbidMappedTextures();
        if (road == Road::stagedSwapped)
            device->vulkan().forbidStorage(VK_FORMAT_B8G8R8A8_UNORM);
        if (road == Road::copyEngines)
            device->vulkan().separateLanes();
        queue = std::make_shared<GPUCommandQueue>(device);
        const ShaderLibrary library("test.glsl", kernels, {});
        copy = std::make_shared<GPUComputePipeline>(device, *library.function("copy"));
        add = std::make_shared<GPUComputePipeline>(device, *library.function("add"));
    }
};

// Rows of a picture with some bytes between them that nobody may touch.
class Picture {
public:
    static constexpr auto untouched = std::byte(0xa5);

    Picture(GPUPixelFormat format, int width, int height)
        : rowLength_(bytesPerPixel(format) * std::size_t(width)),
          height_(std::size_t(height)),
          bytes_(rowBytes() * height_, untouched) {}

    // Every byte pattern is a number in every format but half-float, which gets numbers alone.
    static Picture random(GPUPixelFormat format, int width, int height, unsigned seed = 1) {
        Picture picture(format, width, height);
        std::minstd_rand generator(seed);
        for (std::size_t y = 0; y < picture.height_; ++y)
            for (std::size_t x = 0; x < picture.rowLength_; ++x) {
                auto value = std::byte(generator() >> 8);
                if (format == GPUPixelFormat::rgba16Float && x % 2 == 1)
                    value = (value & std::byte(0x83)) | std::byte(0x38);
                picture.bytes_[y * picture.rowBytes() + x] = value;
            }
        return picture;
    }

    std::byte* data() { return bytes_.data(); }
    std::size_t rowBytes() const { return rowLength_ + 13; }
    std::byte at(std::size_t x, std::size_t y) const { return bytes_[y * rowBytes() + x]; }
    friend bool operator==(const Picture&, const Picture&) = default;

private:
    std::size_t rowLength_;
    std::size_t height_;
    std::vector<std::byte> bytes_;
};

class GPUCommandBufferTest : public testing::TestWithParam<Road> {
protected:
    // One device a road. They go before main() ends: drivers do not outlive it.
    static const TestGPU& shared(Road road) { return devices().try_emplace(road, road).first->second; }
    static std::map<Road, TestGPU>& devices() {
        static std::map<Road, TestGPU> all;
        return all;
    }
    static void TearDownTestSuite() { devices().clear(); }

    const TestGPU& gpu_ = shared(GetParam());
    std::span<const std::byte> noConstants_;

    std::shared_ptr<GPUTexture> makeTexture(GPUPixelFormat format, int width, int height, GPUTextureUsage usage) {
        return GPUTexture::make(gpu_.device, format, width, height, usage, "test");
    }

    static void finish(GPUCommandBuffer& commands) {
        commands.commit();
        commands.waitUntilCompleted();
        ASSERT_FALSE(commands.error()) << commands.error()->what();
    }

    void TearDown() override { EXPECT_EQ(gpu_.device->validationMessageCount(), 0u); }
};

TEST_P(GPUCommandBufferTest, CopiesPicturesOfEveryFormatExactly) {
    using enum GPUPixelFormat;
    for (const auto format : {bgra8Unorm, r8Unorm, rg8Unorm, r16Unorm, rg16Unorm, rgba16Float}) {
        const int width = 37;
        const int height = 21;
        auto picture = Picture::random(format, width, height);
        Picture transferred(format, width, height);
        Picture copied(format, width, height);
        const auto source = makeTexture(format, width, height, GPUTextureUsage::shaderRead);
        const auto destination = makeTexture(format, width, height, GPUTextureUsage::shaderWrite);

        const auto commands = gpu_.queue->makeCommandBuffer();
        commands->upload(source, picture.data(), picture.rowBytes());
        commands->dispatch(gpu_.copy, std::array{source, destination}, noConstants_, width, height);
        commands->download(source, transferred.data(), transferred.rowBytes());
        commands->download(destination, copied.data(), copied.rowBytes());
        finish(*commands);
        EXPECT_EQ(transferred, picture) << name(format);
        EXPECT_EQ(copied, picture) << name(format);
    }
}

TEST_P(GPUCommandBufferTest, RunsKernelsInOrderEachSeeingTheOneBefore) {
    const int rounds = 40;
    const std::array<float, 4> oneStep{1 / 255.f, 2 / 255.f, 0, 0};
    const std::array textures{makeTexture(GPUPixelFormat::rg8Unorm, 64, 64, GPUTextureUsage::shaderReadWrite),
                              makeTexture(GPUPixelFormat::rg8Unorm, 64, 64, GPUTextureUsage::shaderReadWrite)};
    Picture picture(GPUPixelFormat::rg8Unorm, 64, 64);
    std::ranges::fill(std::span(picture.data(), picture.rowBytes() * 64), std::byte(10));

    const auto commands = gpu_.queue->makeCommandBuffer();
    commands->upload(textures[0], picture.data(), picture.rowBytes());
    for (int i = 0; i < rounds; ++i)
        commands->dispatch(gpu_.add, std::array{textures[std::size_t(i % 2)], textures[std::size_t(1 - i % 2)]},
                           std::as_bytes(std::span(oneStep)), 64, 64);
    commands->download(textures[0], picture.data(), picture.rowBytes());
    finish(*commands);
    EXPECT_EQ(picture.at(0, 0), std::byte(10 + rounds));
    EXPECT_EQ(picture.at(127, 63), std::byte(10 + 2 * rounds));
}

TEST_P(GPUCommandBufferTest, KeepsSeveralInFlightThatMayBeAwaitedInAnyOrder) {
    constexpr int count = 6;
    GPUTexturePool pool(gpu_.device, 4);
    std::vector<Picture> pictures;
    std::vector<Picture> results;
    std::vector<std::unique_ptr<GPUCommandBuffer>> flights;
    for (unsigned i = 0; i < count; ++i) {
        pictures.push_back(Picture::random(GPUPixelFormat::r16Unorm, 100, 50, i + 1));
        results.emplace_back(GPUPixelFormat::r16Unorm, 100, 50);
    }
    for (int round = 0; round < 3; ++round) {
        for (std::size_t i = 0; i < count; ++i) {
            const auto source = pool.acquire(GPUPixelFormat::r16Unorm, 100, 50, GPUTextureUsage::shaderRead);
            const auto destination = pool.acquire(GPUPixelFormat::r16Unorm, 100, 50, GPUTextureUsage::shaderWrite);
            auto& commands = *flights.emplace_back(gpu_.queue->makeCommandBuffer());
            commands.upload(source, pictures[i].data(), pictures[i].rowBytes());
            commands.dispatch(gpu_.copy, std::array{source, destination}, noConstants_, 100, 50);
            commands.download(destination, results[i].data(), results[i].rowBytes());
            commands.commit();
        }
        for (const std::size_t i : {3, 0, 5, 1, 4, 2}) {
            flights[i]->waitUntilCompleted();
            EXPECT_EQ(results[i], pictures[i]) << i;
        }
        flights.clear();
        std::ranges::rotate(pictures, pictures.begin() + 1);
    }
}

TEST_P(GPUCommandBufferTest, MayBeDroppedAtAnyPoint) {
    auto picture = Picture::random(GPUPixelFormat::bgra8Unorm, 512, 512);
    auto result = Picture(GPUPixelFormat::bgra8Unorm, 512, 512);
    const auto untouched = result;
    const auto source = makeTexture(GPUPixelFormat::bgra8Unorm, 512, 512, GPUTextureUsage::shaderRead);
    const auto destination = makeTexture(GPUPixelFormat::bgra8Unorm, 512, 512, GPUTextureUsage::shaderWrite);
    for (const bool commits : {false, true}) {
        const auto commands = gpu_.queue->makeCommandBuffer();
        commands->upload(source, picture.data(), picture.rowBytes());
        commands->dispatch(gpu_.copy, std::array{source, destination}, noConstants_, 512, 512);
        commands->download(destination, result.data(), result.rowBytes());
        if (commits)
            commands->commit();
    }
    EXPECT_EQ(result, untouched);

    const auto empty = gpu_.queue->makeCommandBuffer();
    finish(*empty);
    EXPECT_THROW(empty->download(destination, result.data(), result.rowBytes()), std::logic_error);
}

TEST_P(GPUCommandBufferTest, RefusesWhatWouldRace) {
    auto picture = Picture::random(GPUPixelFormat::r8Unorm, 16, 16);
    const auto source = makeTexture(GPUPixelFormat::r8Unorm, 16, 16, GPUTextureUsage::shaderRead);
    const auto destination = makeTexture(GPUPixelFormat::r8Unorm, 16, 16, GPUTextureUsage::shaderWrite);
    const auto first = gpu_.queue->makeCommandBuffer();
    const auto second = gpu_.queue->makeCommandBuffer();
    first->upload(source, picture.data(), picture.rowBytes());
    EXPECT_THROW(second->upload(source, picture.data(), picture.rowBytes()), std::logic_error);
    EXPECT_THROW(second->dispatch(gpu_.copy, std::array{source, destination}, noConstants_, 16, 16), std::logic_error);
    finish(*first);
    second->upload(source, picture.data(), picture.rowBytes());
    // A source cannot be written by a kernel, and an output cannot be read.
    EXPECT_THROW(second->dispatch(gpu_.copy, std::array{destination, source}, noConstants_, 16, 16), std::logic_error);
    finish(*second);
}

std::string nameOf(const testing::TestParamInfo<Road>& info) {
    constexpr const char* names[] = {"AsTheDeviceLikes", "Staged", "StagedSwapped", "CopyEngines"};
    return names[std::size_t(info.param)];
}

INSTANTIATE_TEST_SUITE_P(Roads, GPUCommandBufferTest,
                         testing::Values(Road::asTheDeviceLikes, Road::staged, Road::stagedSwapped, Road::copyEngines),
                         nameOf);

} // namespace

} // namespace panoveer
