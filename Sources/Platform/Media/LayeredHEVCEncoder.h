#pragma once

#include "Platform/Media/EncoderKernels.h"
#include "Platform/Media/VideoEncoder.h"

#include <array>
#include <cstdint>
#include <map>
#include <memory>
#include <span>
#include <vector>

struct x265_api;
struct x265_encoder;
struct x265_nal;
struct x265_param;
struct x265_picture;

namespace panoveer {

// HEVC in two layers by the x265 of X265Library: what the encoders of two eyes and of colour with alpha share. Each
// packet is an access unit with both layers. Closed groups of pictures; key frames, also those at scene cuts, are IDR
// pictures in both layers. Not for other layers of this program.
class LayeredHEVCEncoder : public VideoEncoder {
public:
    static constexpr int layerCount = 2;

    ~LayeredHEVCEncoder() override;

    CodecParametersPtr parameters() const override;
    bool hasManyLayers() const override { return true; }
    void finish() override;

protected:
    enum class Layers { leftAndRightEye, colorAndAlpha };

    // Throws Error when the library is missing and when its encoder does not open.
    LayeredHEVCEncoder(const EncoderConfiguration& configuration, PacketSink sink, Layers layers, int bitDepth);

    const EncoderConfiguration& configuration() const { return configuration_; }
    // Planes of one picture, and of another, which x265 reads during encodePlanes() only.
    PlanarPicture planes(int index) const { return planes_[std::size_t(index)]; }
    void encodePlanes(std::int64_t presentationTime, std::int64_t duration);

private:
    struct Close {
        const x265_api* api;
        void operator()(x265_encoder* encoder) const noexcept;
        void operator()(x265_param* parameters) const noexcept;
    };

    void setRate();
    void setColor();
    void open();
    void allocatePlanes();
    bool sendPictures(const x265_picture* pictures);
    void takeAccessUnit(std::span<const x265_nal> units, const x265_picture& output);
    void adaptRate();

    EncoderConfiguration configuration_;
    PacketSink sink_;
    const Layers layers_;
    const int bitDepth_;
    const x265_api* api_;
    std::unique_ptr<x265_param, Close> x265_;
    std::unique_ptr<x265_encoder, Close> encoder_;
    std::array<PlanarPicture, layerCount> planes_;
    std::array<FramePtr, layerCount> frames_;        // the memory of planes_
    std::map<std::int64_t, std::int64_t> durations_; // of pictures that are in the encoder, by presentation time
    // Given out so far: pictures, bytes of the base layer and bytes of both.
    std::int64_t pictureCount_ = 0;
    std::int64_t baseBytes_ = 0;
    std::int64_t allBytes_ = 0;
};

} // namespace panoveer
