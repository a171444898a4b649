#pragma once

#include "Panoveer/Services/Audio/FFmpegChannel.h"

#include <cstdint>
#include <span>
#include <vector>

// Layouts as the plans of an export need them: made of labels, tags and counts. Pure functions, any thread.
namespace panoveer::AudioChannelLayouts {

AudioChannelLayout ofTag(AudioChannelLayoutTag tag);
// A tag whose low 16 bits hold the count: hoaACNSN3D, discreteInOrder.
AudioChannelLayout ofTag(AudioChannelLayoutTag tag, int channelCount);
// By the tag that players know best, where there is one for just these labels.
AudioChannelLayout ofLabels(std::span<const AudioChannelLabel> labels);

// The labels of a layout's channels, those of a tag or a bitmap spelled out; empty when it names none.
std::vector<AudioChannelLabel> labels(const AudioChannelLayout& layout);

// FFmpeg's native layout mask of the places that the labels stand for; 0 when one stands for none.
std::uint64_t ffmpegMask(std::span<const AudioChannelLabel> labels);

} // namespace panoveer::AudioChannelLayouts
