#pragma once

#include "Platform/Media/MediaAsset.h"

#include <vector>

struct AVFormatContext;

namespace panoveer {

// The audio tracks of an open movie whose streams are analysed. Not for other layers.
std::vector<AudioTrack> audioTracksOf(const AVFormatContext& input, const URL& url);

} // namespace panoveer
