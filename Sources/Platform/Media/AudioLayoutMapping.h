#pragma once

#include "Platform/Media/AudioChannelLayout.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

struct AVChannelLayout;

// Between Core Audio's channel layouts and libav's. Not for other layers.
namespace panoveer {

// A libav layout that frees its own map.
class LibAVChannelLayout {
public:
    LibAVChannelLayout();
    explicit LibAVChannelLayout(const AVChannelLayout& other);
    LibAVChannelLayout(const LibAVChannelLayout& other);
    LibAVChannelLayout& operator=(const LibAVChannelLayout& other);
    ~LibAVChannelLayout();

    // So many channels, about whose places nothing is said.
    static LibAVChannelLayout unspecified(int channelCount);
    static LibAVChannelLayout ofMask(std::uint64_t mask);
    // The layout that libav takes so many channels for.
    static LibAVChannelLayout ordinary(int channelCount);

    AVChannelLayout& get() { return *value_; }
    const AVChannelLayout& get() const { return *value_; }
    int channelCount() const;
    bool isUnspecified() const;
    bool operator==(const LibAVChannelLayout& other) const;

private:
    std::unique_ptr<AVChannelLayout> value_;
};

// Loudspeakers as libav orders them, and where each stands in a given order: channel i of libav is channel position[i].
struct SpeakerOrder {
    std::uint64_t mask = 0;
    std::vector<int> positions;
};

// No value when a label is unknown to libav, or stands there twice.
std::optional<SpeakerOrder> speakerOrder(const std::vector<AudioChannelLabel>& labels);

// The layout of a stream in Core Audio's terms. Where libav knows nothing of the places of its channels, one is mono
// and two are stereo; no value for more.
std::optional<AudioChannelLayout> audioChannelLayout(const AVChannelLayout& layout);

} // namespace panoveer
