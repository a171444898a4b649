#pragma once

#include "Platform/Media/AudioChannelLayout.h"
#include "Platform/Media/AudioLayoutMapping.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

struct AVFrame;
struct SwrContext;

namespace panoveer {

// Turns decoded frames of sound into interleaved 32-bit float at 48,000 Hz. One thread at a time. Throws Error when the
// channels cannot be converted. Not for other layers.
class AudioConverter {
public:
    // `own` are the track's channels; without `wanted` they come out as they are.
    AudioConverter(const LibAVChannelLayout& own, const std::optional<AudioChannelLayout>& wanted);

    int channelCount() const { return int(channelCount_); }

    // Appends what samples `first` to `first + count` of a frame give. All that was appended since the last drain is
    // one piece of sound: its first frame of 48,000 Hz stands at the time of its first sample, none is delayed.
    void convert(const AVFrame& frame, int first, int count, std::vector<float>& output);
    // Appends the rest of the piece.
    void drain(std::vector<float>& output);

private:
    struct FreeResampler {
        void operator()(SwrContext* context) const noexcept;
    };

    bool follows(const AVFrame& frame) const;
    void open(const AVFrame& frame);
    void run(const std::uint8_t** input, int count, std::vector<float>& output);
    void reorder(std::vector<float>& output, std::size_t from) const;

    LibAVChannelLayout output_;
    std::size_t channelCount_ = 0;
    bool passesThrough_ = true;        // channels by number, whatever they stand for
    std::vector<std::size_t> targets_; // channel i of libav's order is channel targets_[i]; empty: as it is
    std::unique_ptr<SwrContext, FreeResampler> resampler_;
    // What the resampler was set up for.
    LibAVChannelLayout input_;
    int inputFormat_ = -1;
    int inputRate_ = 0;
};

} // namespace panoveer
