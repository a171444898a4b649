#pragma once

#include "Platform/Media/PixelBuffer.h"

#include <memory>
#include <string>

namespace panoveer::bench {

// FFmpeg's v360 filter, run in this process on a picture that is already decoded: the reprojection alone.
class V360Peer {
public:
    enum class Planes { lumaAndChroma, lumaOnly };

    // Takes a copy of the source, which is "420v"; `options` as the filter takes them. Throws std::runtime_error.
    V360Peer(const PixelBuffer& source, const std::string& options, Planes planes = Planes::lumaAndChroma);
    ~V360Peer();

    // Reprojects the picture. The plane is the luma of the result, until the next call.
    PixelPlane render();

private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace panoveer::bench
