#pragma once

#include "Panoveer/Services/Export/SegmentFrameSource.h"

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <exception>
#include <functional>
#include <mutex>
#include <thread>

namespace panoveer {

// Reads another source on a thread of its own, up to a number of pictures ahead, so that the decoder works while
// earlier pictures are rendered and encoded. Pictures, end and failure come in the order in which the source gave them.
// Destroying it stops a read under way and waits for it.
class DecodeAheadSource final : public SegmentFrameSource {
public:
    // Opens the source that is to be read, with a stop token that it has to obey.
    using Open = std::function<std::unique_ptr<SegmentFrameSource>(std::stop_token)>;

    // Null when `open` gives null. `stop` ends reads and waits with Cancelled. Throws what `open` throws.
    static std::unique_ptr<SegmentFrameSource> open(const Open& open, std::stop_token stop, int pictureLimit);

    std::optional<SegmentFrame> next() override;

    ~DecodeAheadSource() override;

private:
    DecodeAheadSource(std::stop_source ending, std::unique_ptr<SegmentFrameSource> source, std::stop_token stop,
                      int pictureLimit);

    void work();

    std::stop_source ending_; // of the reading thread: the export is stopped, or nobody wants more
    std::stop_callback<std::function<void()>> forwardStop_;
    std::stop_token stop_;
    std::unique_ptr<SegmentFrameSource> source_; // the reading thread's
    const std::size_t pictureLimit_;

    std::mutex mutex_; // guards what follows
    std::condition_variable_any changed_;
    std::deque<SegmentFrame> ready_;
    bool hasEnded_ = false;
    std::exception_ptr failure_; // thrown once `ready_` is empty

    std::jthread thread_; // last: it is joined before the rest goes
};

} // namespace panoveer
