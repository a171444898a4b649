#include "Platform/GPU/GPUBuffer.h"
#include "Platform/GPU/GPUCommandBuffer.h"
#include "Platform/GPU/GPUCommandQueue.h"
#include "Platform/GPU/GPUComputePipeline.h"
#include "Platform/GPU/GPUDevice.h"
#include "Platform/GPU/GPURenderPipeline.h"
#include "Platform/GPU/GPUTexture.h"
#include "Platform/GPU/ShaderLibrary.h"
#include "Platform/GPU/VulkanDevice.h"

#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <stdexcept>
#include <vector>

namespace panoveer {

namespace {

constexpr const char* functions = R"(#version 450
#extension GL_EXT_samplerless_texture_functions : require
layout(push_constant) uniform Constants { vec4 scale; };
#if defined(KERNEL_vertices)
layout(location = 0) in vec2 position;
layout(location = 1) in float shade;
layout(location = 0) noperspective out float passed;
void main() {
    gl_Position = vec4(position * scale.xy, 0, 1);
    passed = shade;
}
#elif defined(KERNEL_fragments)
layout(set = 0, binding = 1) uniform texture2D source;
layout(location = 0) noperspective in float passed;
layout(location = 0) out vec4 color;
void main() { color = vec4(passed, texelFetch(source, ivec2(gl_FragCoord.xy), 0).g * scale.z, 0, 1); }
#elif defined(KERNEL_copy)
layout(local_size_x = 8, local_size_y = 8) in;
layout(set = 0, binding = 0) uniform texture2D source;
layout(set = 0, binding = 1) uniform writeonly image2D destination;
void main() {
    ivec2 at = ivec2(gl_GlobalInvocationID.xy);
    if (all(lessThan(at, imageSize(destination))))
        imageStore(destination, at, texelFetch(source, at, 0));
}
#endif
)";

struct Vertex {
    float x, y, unused, shade;
};

// A square over the left half of the frame whose shade grows downward, out of two triangles that turn opposite ways.
constexpr std::array<Vertex, 4> vertices{{{-2, -2, 9, 0}, {0, -2, 9, 0}, {-2, 2, 9, 1}, {0, 2, 9, 1}}};
constexpr std::array<std::uint32_t, 6> indices{0, 1, 2, 1, 2, 3};

class GPURenderPipelineTest : public testing::Test {
protected:
    GPURenderPipelineTest() : device_(GPUDevice::make()) {}
    void TearDown() override { EXPECT_EQ(device_->validationMessageCount(), 0u); }

    std::shared_ptr<GPURenderPipeline> makePipeline() {
        constexpr std::array attributes{GPUVertexAttribute{.count = 2, .offset = 0},
                                        GPUVertexAttribute{.count = 1, .offset = offsetof(Vertex, shade)}};
        return std::make_shared<GPURenderPipeline>(device_, *library_.function("vertices", ShaderStage::vertex),
                                                   *library_.function("fragments", ShaderStage::fragment), attributes,
                                                   sizeof(Vertex), GPUPixelFormat::bgra8Unorm, "test");
    }
    GPUMesh makeMesh(std::uint32_t indexCount = indices.size()) {
        return {GPUBuffer::make(device_, std::as_bytes(std::span(vertices))),
                GPUBuffer::make(device_, std::as_bytes(std::span(indices))), indexCount};
    }

    // Uploads a source, draws, has a kernel copy what was drawn, and downloads the copy: 8 by 8 pixels of B, G, R, A.
    std::vector<std::uint8_t> drawnPicture(GPUCommandQueue& queue, const GPUMesh& mesh) {
        const auto make = [&](GPUTextureUsage usage) {
            return GPUTexture::make(device_, GPUPixelFormat::bgra8Unorm, 8, 8, usage);
        };
        const auto source = make(GPUTextureUsage::shaderRead);
        const auto target = make(GPUTextureUsage::renderTarget);
        const auto output = make(GPUTextureUsage::shaderWrite);
        const std::vector<std::byte> green(256, std::byte(200));
        std::vector<std::uint8_t> picture(256);
        const auto copy = std::make_shared<GPUComputePipeline>(device_, *library_.function("copy"));
        const std::array<float, 4> scale{0.5f, 0.5f, 0.5f, 0};

        const auto commands = queue.makeCommandBuffer();
        commands->upload(source, green.data(), 32);
        const std::array<std::shared_ptr<GPUTexture>, 2> textures{nullptr, source};
        commands->draw(makePipeline(), target, {.red = 0.2f, .blue = 1, .alpha = 0.4f}, mesh, textures,
                       std::as_bytes(std::span(scale)));
        commands->dispatch(copy, std::array{target, output}, {}, 8, 8);
        commands->download(output, reinterpret_cast<std::byte*>(picture.data()), 32);
        commands->commit();
        commands->waitUntilCompleted();
        EXPECT_FALSE(commands->error());
        return picture;
    }

    std::shared_ptr<GPUDevice> device_;
    ShaderLibrary library_{"test.glsl", functions, {}};
};

TEST_F(GPURenderPipelineTest, DrawsTrianglesThatKernelsThenRead) {
    for (const bool isStaged : {false, true}) {
        if (isStaged) {
            device_ = GPUDevice::make();
            device_->vulkan().forbidMappedTextures();
            device_->vulkan().separateLanes();
        }
        GPUCommandQueue queue(device_);
        const auto drawn = drawnPicture(queue, makeMesh());
        const auto empty = drawnPicture(queue, makeMesh(0));
        for (std::size_t y = 0; y < 8; ++y) {
            for (std::size_t x = 0; x < 8; ++x) {
                const auto* pixel = &drawn[(y * 8 + x) * 4];
                const bool isInside = x < 4;
                EXPECT_NEAR(pixel[2], isInside ? 255 * (y + 0.5) / 8 : 51, 1) << x << ", " << y;
                EXPECT_NEAR(pixel[1], isInside ? 100 : 0, 1);
                EXPECT_EQ(pixel[0], isInside ? 0 : 255);
                EXPECT_EQ(pixel[3], isInside ? 255 : 102);
                EXPECT_EQ(std::memcmp(&empty[(y * 8 + x) * 4], "\xff\0\x33\x66", 4), 0);
            }
        }
    }
}

TEST_F(GPURenderPipelineTest, IsRefusedByADeviceThatOnlyComputes) {
    device_->vulkan().forbidDrawing();
    EXPECT_FALSE(device_->canDraw());
    EXPECT_THROW(makePipeline(), Error);
}

} // namespace
} // namespace panoveer
