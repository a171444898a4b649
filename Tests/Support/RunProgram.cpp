#include "Support/MediaFactory.h"

#include <nlohmann/json.hpp>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <utility>

extern char** environ;

namespace panoveer::test {

namespace {

[[noreturn]] void fail(const std::string& what) { throw std::runtime_error(what + ": " + std::strerror(errno)); }

class Descriptor {
public:
    explicit Descriptor(int value, const char* what) : value_(value) {
        if (value_ < 0)
            fail(what);
    }
    ~Descriptor() { close(); }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    int get() const { return value_; }
    void close() {
        if (value_ >= 0)
            ::close(std::exchange(value_, -1));
    }

private:
    int value_;
};

std::string contents(const Descriptor& file) {
    std::string text;
    char piece[65536];
    ::lseek(file.get(), 0, SEEK_SET);
    for (ssize_t length; (length = ::read(file.get(), piece, sizeof piece)) > 0;)
        text.append(piece, std::size_t(length));
    return text;
}

// A socket takes the place of a pipe, so that a program which ends early gives an error and not SIGPIPE.
void feed(const Descriptor& socket, const InputSource& input) {
    for (std::string piece = input(); !piece.empty(); piece = input()) {
        for (std::size_t sent = 0; sent < piece.size();) {
            const auto length = ::send(socket.get(), piece.data() + sent, piece.size() - sent, MSG_NOSIGNAL);
            if (length < 0 && errno == EINTR)
                continue;
            if (length < 0)
                return;
            sent += std::size_t(length);
        }
    }
}

} // namespace

ProgramResult runProgram(const std::vector<std::string>& arguments, const InputSource& input) {
    int sockets[2];
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, sockets) != 0)
        fail("socketpair");
    Descriptor ours(sockets[0], "socket"), theirs(sockets[1], "socket");
    Descriptor output(::memfd_create("stdout", MFD_CLOEXEC), "memfd_create");
    Descriptor errors(::memfd_create("stderr", MFD_CLOEXEC), "memfd_create");

    std::vector<char*> list;
    for (const auto& argument : arguments)
        list.push_back(const_cast<char*>(argument.c_str()));
    list.push_back(nullptr);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, theirs.get(), STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, output.get(), STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, errors.get(), STDERR_FILENO);
    pid_t process = 0;
    errno = ::posix_spawnp(&process, list[0], &actions, nullptr, list.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (errno != 0)
        fail("Cannot run " + arguments.at(0));

    theirs.close();
    if (input)
        feed(ours, input);
    ours.close();

    int status = 0;
    while (::waitpid(process, &status, 0) < 0 && errno == EINTR) {
    }
    return {WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status), contents(output), contents(errors)};
}

nlohmann::json ffprobeJSON(const std::filesystem::path& file, const std::vector<std::string>& options) {
    std::vector<std::string> arguments = {"ffprobe", "-v", "error", "-of", "json", "-show_streams", "-show_format"};
    arguments.insert(arguments.end(), options.begin(), options.end());
    arguments.push_back(file.string());
    const auto result = runProgram(arguments);
    if (result.exitCode != 0)
        throw std::runtime_error("ffprobe " + file.string() + ": " + result.standardError);
    return nlohmann::json::parse(result.standardOutput);
}

} // namespace panoveer::test
