#include "PanoveerTool/Interrupt.h"

#include "PanoveerTool/Exit.h"

#include <unistd.h>

#include <csignal>

namespace panoveer::tool {

namespace {

// Wakes the listener when the program ends by itself; blocked like the others, so that it waits to be taken.
constexpr int endingSignal = SIGUSR1;

bool isIgnored(int signal) {
    struct sigaction action{};
    return sigaction(signal, nullptr, &action) == 0 && action.sa_handler == SIG_IGN;
}

sigset_t awaitedSignals() {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, endingSignal);
    for (int signal : {SIGINT, SIGTERM, SIGHUP})
        if (!isIgnored(signal))
            sigaddset(&set, signal);
    return set;
}

} // namespace

Interrupt::Interrupt() {
    const auto signals = awaitedSignals();
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    // A closed pipe and a limit on the size of files are ordinary write errors, not reasons to die without cleaning up.
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN);
    listener_ = std::jthread([this, signals](std::stop_token ending) {
        while (!ending.stop_requested()) {
            const int signal = sigwaitinfo(&signals, nullptr);
            if (signal < 0 || signal == endingSignal)
                continue;
            if (stop_.stop_requested())
                _exit(exitCode::cancelled);
            stop_.request_stop();
        }
    });
}

Interrupt::~Interrupt() {
    listener_.request_stop();
    pthread_kill(listener_.native_handle(), endingSignal);
}

} // namespace panoveer::tool
