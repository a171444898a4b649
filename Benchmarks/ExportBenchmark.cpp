#include "Benchmarks/BenchmarkReport.h"

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <format>
#include <fstream>
#include <iostream>
#include <stdexcept>

namespace panoveer::bench {

namespace fs = std::filesystem;

namespace {

constexpr int frames = 30;
constexpr int sourceWidth = 3840;
constexpr int sourceHeight = 1920;
constexpr int domeSize = 2048;
constexpr int megabitsPerSecond = 40;

void run(const std::string& command) {
    if (std::system((command + " >/dev/null 2>&1").c_str()) != 0)
        throw std::runtime_error("failed: " + command);
}

// The program that was built beside this one.
std::string panoveer() { return (fs::read_symlink("/proc/self/exe").parent_path() / "panoveer").string(); }

} // namespace

// A whole conversion, file to file, with the same codec at the same bit rate on both sides.
std::vector<Comparison> exportBenchmark(int runs) {
    const auto folder = fs::temp_directory_path() / std::format("panoveer-bench-{}", getpid());
    fs::create_directories(folder);
    const auto source = (folder / "source.mp4").string();
    run(std::format("ffmpeg -y -f lavfi -i testsrc2=size={}x{}:rate=30 -frames:v {} -pix_fmt yuv420p -c:v libx264 "
                    "-preset veryfast -crf 18 {}",
                    sourceWidth, sourceHeight, frames, source));
    const auto peer = std::format("ffmpeg -y -i {} -vf v360=e:fisheye:h_fov=180:v_fov=180:w={}:h={}:interp=lanczos "
                                  "-an -c:v libx264 -b:v {}M {}",
                                  source, domeSize, domeSize, megabitsPerSecond, (folder / "peer.mp4").string());
    const auto ours =
        std::format("{} convert {} --source-format equirectangular --format domemaster --size {}x{} --codec h264 "
                    "--bitrate {} -o {} --overwrite",
                    panoveer(), source, domeSize, domeSize, megabitsPerSecond, (folder / "ours.mp4").string());
    std::vector<double> oursSeconds;
    std::vector<double> peerSeconds;
    for (int i = 0; i < runs; ++i) {
        peerSeconds.push_back(timed([&] { run(peer); }) / frames);
        oursSeconds.push_back(timed([&] { run(ours); }) / frames);
    }
    fs::remove_all(folder);
    return {{.name = std::format("convert {} frames of {}x{} H.264 to a {} domemaster, H.264 at {} Mbit/s", frames,
                                 sourceWidth, sourceHeight, domeSize, megabitsPerSecond),
             .ours = "panoveer convert, 8 taps",
             .peer = "ffmpeg with v360, lanczos",
             .oursSeconds = median(oursSeconds),
             .peerSeconds = median(peerSeconds)}};
}

} // namespace panoveer::bench
