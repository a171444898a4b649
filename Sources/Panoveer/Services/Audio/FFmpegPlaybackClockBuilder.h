#pragma once

#include "Platform/Core/URL.h"

#include <stop_token>

namespace panoveer {

// Writes, once for each source, the sound whose playing drives the preview of a file that only FFmpeg decodes: stereo
// AAC, at least as long as the picture, silent where the source is. The files stay from one run of the program to the
// next; a source that was changed or moved gets a new one. Only previews need them, so that a conversion from the
// command line makes none.
//
// Stateless; any thread, several at once, for the same source too: each writes a partial file of its own, and whichever
// is done takes the final name. Blocking.
struct FFmpegPlaybackClockBuilder {
    // Makes or finds the clock. Duration of the picture in seconds; 0 means as long as the sound. Fits
    // VideoMetadataReader::PlaybackClockBuilder. Throws FFmpegAudioPipelineError, FFmpegReaderError, an Error of the
    // platform layer, and Cancelled; no file is left then.
    static URL build(const URL& sourceURL, double duration, bool hasAudioStream, const std::stop_token& stop = {});

    // Where the clock of the source as it now stands lies. Throws an Error in posixErrorDomain when there is no such
    // source.
    static URL destinationURL(const URL& sourceURL);
};

} // namespace panoveer
