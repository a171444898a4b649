#pragma once

#include "Platform/Core/Error.h"
#include "Platform/Core/MediaTime.h"

#include <functional>

namespace panoveer {

class MovieMuxer;

// What an AssetWriter asks of the input of any of its tracks, whatever media it takes. All calls come from the writer's
// thread, except stop(). Not for other layers.
class WriterInput {
public:
    // Tells the writer of a failure; from any thread. The writer then stops all inputs.
    using FailureHandler = std::function<void(const Error&)>;

    virtual ~WriterInput() = default;

    // Opens the encoder and begins to take media, for a track of the muxer. Throws Error. The muxer outlives join().
    virtual void start(MovieMuxer& muxer, int track, FailureHandler fail) = 0;
    // The time of media that becomes the movie's 0.
    virtual void setSessionStart(MediaTime time) = 0;
    // No media follows.
    virtual void finish() = 0;
    // Gives up what is not encoded yet and wakes whoever waits. Any thread; does not block.
    virtual void stop() noexcept = 0;
    // Waits for the encoder to end, which it does after finish() or stop().
    virtual void join() = 0;
};

} // namespace panoveer
