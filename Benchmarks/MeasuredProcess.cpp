#include "Benchmarks/MeasuredProcess.h"

#include "Benchmarks/BenchmarkReport.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>

namespace panoveer::bench {

namespace {

std::string joined(const std::vector<std::string>& command) {
    std::string text;
    for (const auto& word : command)
        text += (text.empty() ? "" : " ") + word;
    return text;
}

pid_t started(const std::vector<std::string>& command) {
    std::vector<char*> arguments;
    for (const auto& word : command)
        arguments.push_back(const_cast<char*>(word.c_str()));
    arguments.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    pid_t process = 0;
    const int code = posix_spawnp(&process, arguments[0], &actions, nullptr, arguments.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (code != 0)
        throw std::runtime_error("cannot start " + joined(command) + ": " + std::strerror(code));
    return process;
}

double seconds(const timeval& time) { return double(time.tv_sec) + double(time.tv_usec) * 1e-6; }

} // namespace

ProcessCost runMeasured(const std::vector<std::string>& command) {
    rusage usage{};
    int status = 0;
    const double clock = timed([&] {
        const auto process = started(command);
        while (wait4(process, &status, 0, &usage) < 0)
            if (errno != EINTR)
                throw std::runtime_error("lost " + joined(command));
    });
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0)
        throw std::runtime_error("failed: " + joined(command));
    return {.seconds = clock,
            .processorSeconds = seconds(usage.ru_utime) + seconds(usage.ru_stime),
            .peakMegabytes = double(usage.ru_maxrss) * 1024 / 1e6};
}

} // namespace panoveer::bench
