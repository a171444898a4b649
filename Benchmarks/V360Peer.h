#pragma once

#include <memory>
#include <string>
#include <vector>

namespace panoveer::bench {

// FFmpeg's v360 filter, run in this process on frames that are already decoded: the reprojection alone.
class V360Peer {
public:
    // `options` as the filter takes them; the source is 8-bit 4:2:0 in video range. Throws std::runtime_error.
    V360Peer(int width, int height, const std::string& options);
    ~V360Peer();

    // Reprojects one prepared frame and drops the result.
    void renderFrame();

private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace panoveer::bench
