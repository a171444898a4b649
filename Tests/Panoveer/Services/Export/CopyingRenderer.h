#pragma once

#include "Panoveer/Rendering/Projection/ProjectionRenderer.h"

#include <algorithm>
#include <cstring>
#include <functional>
#include <memory>
#include <vector>

namespace panoveer {

// Shows the luma of the source, fitted into the output by nearest neighbour, without colour: frame numbers survive.
// Takes BGRA and 8-bit Y'CbCr, writes Y'CbCr of 8 and 10 bits.
class CopyingRenderer final : public ProjectionRenderer {
public:
    std::function<void(int index)> onRender; // as a picture is started
    std::function<void(int index)> onWait;   // as its end is waited for
    std::uint64_t workingSetSize = std::uint64_t(8) << 30;
    int mostInFlight = 0;
    std::ptrdiff_t mostOutputs = 0; // alive at once, the encoder's among them

    std::string name() const override { return "copy"; }
    std::uint64_t recommendedMaxWorkingSetSize() const override { return workingSetSize; }
    std::uint64_t currentAllocatedSize() const override { return 0; }

    std::unique_ptr<PendingRender> render(PixelBufferPtr source, const SourcePictureDescription&, const VRTransform&,
                                          PixelBufferPtr output, VRColorOutputMode, VRResamplingQuality,
                                          bool) override {
        const int index = count_++;
        if (onRender)
            onRender(index);
        copyLuma(*source, *output);
        outputs_.push_back(output);
        mostOutputs =
            std::max(mostOutputs, std::ranges::count_if(outputs_, [](auto& each) { return !each.expired(); }));
        mostInFlight = std::max(mostInFlight, ++inFlight_);
        return std::make_unique<Pending>(*this, index);
    }

private:
    struct Pending final : PendingRender {
        Pending(CopyingRenderer& owner, int number) : renderer(owner), index(number) {}
        ~Pending() override { --renderer.inFlight_; }
        void wait() override {
            if (renderer.onWait)
                renderer.onWait(index);
        }
        CopyingRenderer& renderer;
        int index;
    };

    static void copyLuma(const PixelBuffer& source, const PixelBuffer& output) {
        const auto& from = source.plane(0);
        const auto& to = output.plane(0);
        for (int y = 0; y < to.height; ++y) {
            const auto* in = from.data + std::size_t(y * from.height / to.height) * from.rowBytes;
            auto* out = to.data + std::size_t(y) * to.rowBytes;
            for (int x = 0; x < to.width; ++x) {
                const auto column = std::size_t(x * from.width / to.width);
                const auto luma =
                    source.layout().isYCbCr() ? in[column] : std::byte(16 + 219 * int(in[4 * column + 1]) / 255);
                // Ten bits lie at the upper end of sixteen.
                if (output.layout().bytesPerSample == 2)
                    reinterpret_cast<std::uint16_t*>(out)[x] = std::uint16_t(std::uint16_t(luma) << 8);
                else
                    out[x] = luma;
            }
        }
        if (!output.layout().isYCbCr())
            return;
        const auto& chroma = output.plane(1);
        auto* bytes = chroma.data;
        for (std::size_t i = 0; i < chroma.rowBytes * std::size_t(chroma.height); ++i)
            bytes[i] = std::byte(
                i % std::size_t(output.layout().bytesPerSample) + 1 == std::size_t(output.layout().bytesPerSample) ? 128
                                                                                                                   : 0);
    }

    int count_ = 0;
    int inFlight_ = 0;
    std::vector<std::weak_ptr<PixelBuffer>> outputs_;
};

} // namespace panoveer
