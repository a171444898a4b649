#pragma once

#include "Panoveer/Services/Audio/ExportAudioTrackPlan.h"
#include "Panoveer/Services/Audio/SourceAudioTrack.h"

#include <cstdint>
#include <span>
#include <vector>

namespace panoveer {

struct AudioChannelTap {
    int input = 0; // channel of the source
    float gain = 1;

    friend bool operator==(const AudioChannelTap&, const AudioChannelTap&) = default;
};

// How the channels of a source make those of a track: an output sample is the sum of gain times input sample over its
// row, and an empty row is silence. A value.
struct AudioChannelMatrix {
    using Row = std::vector<AudioChannelTap>;
    struct Conformed;

    std::vector<Row> rows; // one for each output channel

    static AudioChannelMatrix identity(int channelCount);

    // How one source track feeds a track of that plan.
    //
    //   source \ plan   speakers                    ambisonic                      discrete
    //   speakers        the decoder converts        all into W, at 1 / channels    channel by channel
    //   ambisonic       virtual microphones         as AmbiX, up to both orders    channel by channel
    //   discrete        channel by channel          all into W, at 1 / channels    channel by channel
    static Conformed conform(const SourceAudioTrack& source, const ExportAudioTrackPlan& plan);

    // What makes an AmbiX channel (ACN, SN3D) of a source of another scaling. No taps for one that the source lacks.
    static Row ambisonicTaps(int acn, AmbisonicNormalization normalization, std::span<const int> canonicalOrder);

    bool isIdentity() const;

    // `output` gets `frames` frames of interleaved samples, one for each row; `input` holds as many of `inputChannels`.
    // Taps of channels that the input lacks are silent. The memory of `output` is reused.
    void apply(std::span<const float> input, int inputChannels, std::int64_t frames, std::vector<float>& output) const;

    friend bool operator==(const AudioChannelMatrix&, const AudioChannelMatrix&) = default;
};

struct AudioChannelMatrix::Conformed {
    bool decodesConverted =
        false; // the decoder is asked for the plan's layout; else it gives the source's own channels
    AudioChannelMatrix matrix;
};

} // namespace panoveer
