#include "PanoveerTool/Interrupt.h"

#include "PanoveerTool/Exit.h"

#include <unistd.h>

#include <csignal>
#include <ctime>

namespace panoveer::tool {

namespace {

constexpr timespec listenInterval{0, 100'000'000};

sigset_t stopSignals() {
    sigset_t set;
    sigemptyset(&set);
    for (int signal : {SIGINT, SIGTERM, SIGHUP})
        sigaddset(&set, signal);
    return set;
}

} // namespace

Interrupt::Interrupt() {
    const auto signals = stopSignals();
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    // A closed pipe is an ordinary write error, not a reason to die without cleaning up.
    std::signal(SIGPIPE, SIG_IGN);
    listener_ = std::jthread([this, signals](std::stop_token ending) {
        while (!ending.stop_requested()) {
            if (sigtimedwait(&signals, nullptr, &listenInterval) < 0)
                continue;
            if (stop_.stop_requested())
                _exit(exitCode::cancelled);
            stop_.request_stop();
        }
    });
}

Interrupt::~Interrupt() = default;

} // namespace panoveer::tool
