// Usage without libFuzzer: PROGRAM [--runs N] [--seed N] [FILE…]. With files, only those are tried.
// With either: the folder that PANOVEER_FUZZ_SEEDS names gets the seeds as files, and the program ends.

#include "Fuzz/FuzzTarget.h"
#include "Platform/Media/LibAVMessages.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <format>
#include <fstream>
#include <iostream>
#include <iterator>
#include <random>
#include <string>

namespace panoveer::test {

void require(bool kept, std::string_view promise) {
    if (kept)
        return;
    std::cerr << "broken promise: " << promise << std::endl;
    std::abort();
}

URL memoryFile(std::span<const std::uint8_t> bytes) {
    static const int descriptor = memfd_create("fuzz", MFD_CLOEXEC);
    require(descriptor >= 0 && ftruncate(descriptor, 0) == 0 &&
                pwrite(descriptor, bytes.data(), bytes.size(), 0) == ssize_t(bytes.size()),
            "files in memory work");
    return URL::fromFilePath("/proc/self/fd/" + std::to_string(descriptor));
}

namespace {

void writeSeeds(const std::filesystem::path& folder) {
    std::filesystem::create_directories(folder);
    for (int number = 0; const auto& seed : fuzzSeeds())
        std::ofstream(folder / std::format("seed-{:02}", number++), std::ios::binary)
            .write(reinterpret_cast<const char*>(seed.data()), std::streamsize(seed.size()));
}

void prepare() {
    // Neither the person's log nor their screen is for what hostile files provoke.
    static const std::string state = std::filesystem::temp_directory_path() / "panoveer-fuzz-state";
    setenv("XDG_STATE_HOME", state.c_str(), 1);
    sendLibAVMessagesToLog();
    if (const char* folder = std::getenv("PANOVEER_FUZZ_SEEDS")) {
        writeSeeds(folder);
        std::exit(0);
    }
}

#ifndef PANOVEER_LIBFUZZER

// Sizes, counts and signs at which parsers go wrong.
constexpr std::uint32_t interestingNumbers[] = {0,          1,          7,          8,          9,          16,
                                                0x7f,       255,        0x7fff,     0xffff,     0x10000,    0x7fffffff,
                                                0x80000000, 0xfffffff0, 0xfffffff8, 0xffffffff, 0x00100000, 0x6d6f6f76};

class Mutator {
public:
    Mutator(const std::vector<Bytes>& seeds, std::uint64_t seed) : seeds_(seeds), random_(seed) {}

    Bytes next() {
        auto bytes = anySeed();
        for (auto steps = 1 + below(6); steps > 0; --steps)
            mutate(bytes);
        return bytes;
    }

private:
    std::size_t below(std::size_t limit) { return limit == 0 ? 0 : std::size_t(random_() % limit); }
    const Bytes& anySeed() { return seeds_[below(seeds_.size())]; }

    void mutate(Bytes& bytes) {
        const auto at = below(bytes.size());
        const auto length = std::min(1 + below(64), bytes.size() - at);
        const auto place = bytes.begin() + std::ptrdiff_t(at);
        const auto end = place + std::ptrdiff_t(length);
        switch (below(7)) {
        case 0:
            if (!bytes.empty())
                *place ^= std::uint8_t(1U << below(8));
            break;
        case 1: std::generate(place, end, [this] { return std::uint8_t(random_()); }); break;
        case 2:
        case 3: writeNumber(bytes, at); break;
        case 4: bytes.erase(place, end); break;
        case 5: bytes.insert(place, length, std::uint8_t(random_())); break;
        default: {
            const Bytes other = anySeed();
            const auto from = below(other.size());
            const auto count = std::min(1 + below(512), other.size() - from);
            bytes.insert(place, other.begin() + std::ptrdiff_t(from), other.begin() + std::ptrdiff_t(from + count));
        }
        }
    }

    void writeNumber(Bytes& bytes, std::size_t at) {
        const auto number = interestingNumbers[below(std::size(interestingNumbers))];
        for (std::size_t i = 0; i < 4 && at + i < bytes.size(); ++i)
            bytes[at + i] = std::uint8_t(number >> (24 - 8 * i));
    }

    const std::vector<Bytes>& seeds_;
    std::mt19937_64 random_;
};

const Bytes* inputUnderTest = nullptr;

// Leaves what ended the program where it can be tried again.
void saveInput(int signal) {
    std::signal(signal, SIG_DFL);
    if (inputUnderTest) {
        std::ofstream("crash-input", std::ios::binary)
            .write(reinterpret_cast<const char*>(inputUnderTest->data()), std::streamsize(inputUnderTest->size()));
        std::cerr << "The input is in crash-input." << std::endl;
    }
    std::raise(signal);
}

void tryInput(const Bytes& input) {
    inputUnderTest = &input;
    fuzzOne(input);
    inputUnderTest = nullptr;
}

int runAll(int argc, char** argv) {
    long long runs = 1000;
    std::uint64_t seed = 1;
    std::vector<std::string> files;
    for (int i = 1; i < argc; ++i) {
        const std::string argument = argv[i];
        if (argument == "--runs" && i + 1 < argc)
            runs = std::stoll(argv[++i]);
        else if (argument == "--seed" && i + 1 < argc)
            seed = std::stoull(argv[++i]);
        else
            files.push_back(argument);
    }
    for (const int signal : {SIGABRT, SIGSEGV, SIGFPE, SIGBUS})
        std::signal(signal, saveInput);
    for (const auto& file : files) {
        std::ifstream stream(file, std::ios::binary);
        tryInput(Bytes(std::istreambuf_iterator<char>(stream), {}));
    }
    if (!files.empty())
        return 0;
    const auto seeds = fuzzSeeds();
    for (const auto& input : seeds)
        tryInput(input);
    Mutator mutator(seeds, seed);
    for (long long run = 0; run < runs; ++run)
        tryInput(mutator.next());
    std::cout << seeds.size() << " seeds and " << runs << " mutations of them\n";
    return 0;
}

#endif

} // namespace
} // namespace panoveer::test

#ifdef PANOVEER_LIBFUZZER

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    panoveer::test::prepare();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    panoveer::test::fuzzOne({data, size});
    return 0;
}

#else

int main(int argc, char** argv) {
    panoveer::test::prepare();
    return panoveer::test::runAll(argc, argv);
}

#endif
