// The programs of a bundle, as they are called: bin/NAME starts libexec/NAME with the loader and the libraries that the
// bundle brings along, so that it runs wherever a kernel does. Linked statically; needs /proc.
//
//   bin/NAME                  this program
//   libexec/NAME              the program itself
//   lib/                      its libraries, and ld-linux-x86-64.so.2 or ld-linux-aarch64.so.1
//   share/panoveer/Resources

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#if defined(__aarch64__)
constexpr const char* loaderName = "/lib/ld-linux-aarch64.so.1";
#else
constexpr const char* loaderName = "/lib/ld-linux-x86-64.so.2";
#endif

int main(int argc, char** argv) {
    std::string self(4096, '\0');
    const auto length = readlink("/proc/self/exe", self.data(), self.size());
    if (length <= 0 || std::size_t(length) == self.size()) {
        std::fprintf(stderr, "%s: cannot find its own folder; is /proc mounted?\n", argc > 0 ? argv[0] : "launcher");
        return 127;
    }
    self.resize(std::size_t(length));
    const auto slash = self.rfind('/');
    const auto name = self.substr(slash + 1);
    const auto bundle = self.substr(0, self.rfind('/', slash - 1));

    // What the user has set counts.
    setenv("PANOVEER_RESOURCES", (bundle + "/share/panoveer/Resources").c_str(), 0);
    setenv("PANOVEER_X265_LIBRARY", (bundle + "/lib/libpanoveer-x265.so").c_str(), 0);

    const auto loader = bundle + loaderName;
    const auto libraries = bundle + "/lib";
    const auto program = bundle + "/libexec/" + name;
    std::vector<const char*> arguments{loader.c_str(), "--library-path", libraries.c_str(), program.c_str()};
    for (int i = 1; i < argc; ++i)
        arguments.push_back(argv[i]);
    arguments.push_back(nullptr);
    execv(loader.c_str(), const_cast<char**>(arguments.data()));
    std::fprintf(stderr, "%s: cannot start %s: %s\n", name.c_str(), loader.c_str(), std::strerror(errno));
    return 127;
}
