#pragma once

#include "Panoveer/Model/Records/ExportSettings.h"
#include "Panoveer/Services/Audio/ExportAudioTrackPlan.h"
#include "Panoveer/Services/Audio/SourceAudioTrack.h"

#include <span>
#include <vector>

namespace panoveer {

// Decides which audio tracks a movie gets. Pure functions, any thread.
struct ExportAudioPlanner {
    // `trackLists` has the tracks of each source, in timeline order. With `automatic` the movie gets as many tracks as
    // the source with most of them has, each shaped after the first source that has it; with `stereo` one of two
    // channels, if any source has sound. ProRes carries uncompressed masters, everything else AAC, which never has more
    // than six speakers or the first order of a sound field.
    static std::vector<ExportAudioTrackPlan> plan(std::span<const std::vector<SourceAudioTrack>> trackLists,
                                                  ExportCodec codec, ExportAudioMode mode);

    // A track of speakers for sound of so many channels, as AAC delivers it.
    static ExportAudioTrackPlan speakerDeliveryPlan(int sourceChannelCount);
    // The track to write when the planned one is refused: two channels in the same encoding and language.
    static ExportAudioTrackPlan stereoFallback(const ExportAudioTrackPlan& refused);
};

} // namespace panoveer
