#pragma once

struct AVChannelLayout;
struct SwrContext;

namespace panoveer {

// Opens a resampler that was set up to bring sound from one layout to another; a code of libavutil. libswresample knows
// no mix for loudspeakers that are stored in an order of their own, nor for some sets of them, such as a pair of
// surrounds alone: the first are mixed as if they came in the usual order, and of the others each channel goes to its
// own loudspeaker where the output has it, else to the output channel of its number, or equally into a single one.
int openResampler(SwrContext& resampler, const AVChannelLayout& from, const AVChannelLayout& to);

} // namespace panoveer
