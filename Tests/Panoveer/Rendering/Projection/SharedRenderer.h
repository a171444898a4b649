#pragma once

#include "Panoveer/Rendering/Projection/PictureTesting.h"
#include "Panoveer/Rendering/Projection/ScalarProjectionReference.h"
#include "Panoveer/Rendering/Projection/VRMetalProjectionRenderer.h"
#include "Platform/GPU/GPUCommandBuffer.h"
#include "Platform/GPU/GPUDevice.h"

#include <gtest/gtest.h>

#include <memory>

namespace panoveer {

// Tests of the renderer on the GPU, one for all of a suite. It goes before main() ends: drivers do not outlive it.
class SharedRenderer : public testing::Test {
protected:
    static std::unique_ptr<VRMetalProjectionRenderer>& shared() {
        static std::unique_ptr<VRMetalProjectionRenderer> renderer;
        return renderer;
    }
    static void SetUpTestSuite() { shared() = std::make_unique<VRMetalProjectionRenderer>(GPUDevice::make()); }
    static void TearDownTestSuite() { shared().reset(); }
    void TearDown() override { EXPECT_EQ(renderer_.device()->validationMessageCount(), 0u); }

    // Runs what a test puts into a command buffer, to its end.
    template<class Record>
    void run(const Record& record) {
        const auto commands = renderer_.makeCommandBuffer();
        record(*commands);
        commands->commit();
        commands->waitUntilCompleted();
        EXPECT_FALSE(commands->error());
    }

    static PixelBufferPtr rendered(ProjectionRenderer& renderer, const PixelBufferPtr& source,
                                   const SourcePictureDescription& description, const VRTransform& transform,
                                   const PixelBufferPtr& output, VRColorOutputMode mode = VRColorOutputMode::sdr,
                                   bool isTransparent = false) {
        renderer.render(source, description, transform, output, mode, VRResamplingQuality::final, isTransparent)
            ->wait();
        return output;
    }

    static void expectAlike(const PixelBuffer& actual, const PixelBuffer& expected, double codes = 1) {
        EXPECT_LE(differenceBetween(actual, expected, codes + 0.001).outlierShare, 0.0002);
    }

    VRMetalProjectionRenderer& renderer_ = *shared();
};

} // namespace panoveer
