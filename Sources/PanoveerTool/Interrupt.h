#pragma once

#include <stop_token>
#include <thread>

namespace panoveer::tool {

// Turns SIGINT, SIGTERM and SIGHUP into a request to stop, except those that the caller has set to be ignored (nohup,
// jobs in the background). A second signal ends the process at once: staged files may then stay behind, but never under
// a final name. Made in main() before any other thread, which inherits the blocked signals.
class Interrupt {
public:
    Interrupt();
    ~Interrupt();
    Interrupt(const Interrupt&) = delete;
    Interrupt& operator=(const Interrupt&) = delete;

    std::stop_token token() const { return stop_.get_token(); }

private:
    std::stop_source stop_;
    std::jthread listener_;
};

} // namespace panoveer::tool
