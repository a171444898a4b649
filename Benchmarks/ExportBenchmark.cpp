#include "Benchmarks/BenchmarkReport.h"
#include "Benchmarks/MeasuredProcess.h"

#include <unistd.h>

#include <filesystem>
#include <format>
#include <optional>

namespace panoveer::bench {

namespace fs = std::filesystem;

namespace {

constexpr int defaultRuns = 3;

using Words = std::vector<std::string>;

Words operator+(Words words, const Words& more) {
    words.insert(words.end(), more.begin(), more.end());
    return words;
}

// A whole conversion, file to file.
struct ExportCase {
    int frames;
    int sourceWidth;
    int sourceHeight;
    const char* sourceName;
    Words sourceEncoder;
    int domeSize;
    const char* codec;                    // as `panoveer convert` calls it
    std::optional<int> megabitsPerSecond; // of both; absent for ProRes, whose quality governs
    Words peerEncoder;                    // with the settings of our encoder of that codec, where there are any
};

// As our encoders are told: an average with peaks of twice that, closed groups of 60 pictures.
Words peerRate(std::optional<int> megabitsPerSecond) {
    if (!megabitsPerSecond)
        return {};
    const auto average = std::format("{}M", *megabitsPerSecond);
    const auto peak = std::format("{}M", 2 * *megabitsPerSecond);
    return {"-b:v", average, "-maxrate", peak, "-bufsize", peak, "-g", "60", "-flags", "+cgop"};
}

std::vector<ExportCase> exportCases() {
    const ExportCase fromH264{
        .frames = 30,
        .sourceWidth = 3840,
        .sourceHeight = 1920,
        .sourceName = "H.264",
        .sourceEncoder = {"-c:v", "libx264", "-preset", "veryfast", "-crf", "18"},
        .domeSize = 2048,
        .codec = "h264",
        .megabitsPerSecond = 40,
        .peerEncoder = {"-c:v", "libx264", "-profile:v", "high", "-preset", "fast", "-x264-params", "force-cfr=1"}};
    const ExportCase fromHEVC{.frames = 20,
                              .sourceWidth = 7680,
                              .sourceHeight = 3840,
                              .sourceName = "HEVC",
                              .sourceEncoder = {"-c:v", "libx265", "-preset", "ultrafast", "-crf", "20", "-x265-params",
                                                "log-level=none", "-tag:v", "hvc1"},
                              .domeSize = 4096,
                              .codec = "hevc8",
                              .megabitsPerSecond = 80,
                              .peerEncoder = {"-c:v", "libx265", "-profile:v", "main", "-preset", "veryfast",
                                              "-x265-params", "log-level=none:info=0", "-tag:v", "hvc1"}};
    auto toProRes = fromH264;
    toProRes.codec = "proRes422HQ";
    toProRes.megabitsPerSecond.reset();
    toProRes.peerEncoder = {"-pix_fmt", "yuv422p10le", "-c:v", "prores_ks", "-profile:v", "hq"};
    return {fromH264, fromHEVC, toProRes};
}

std::string movieName(const ExportCase& example, const char* stem) {
    return std::format("{}.{}", stem, example.megabitsPerSecond ? "mp4" : "mov");
}

const Words ffmpeg{"ffmpeg", "-v", "error", "-nostdin", "-y"};

// The program that was built beside this one.
std::string panoveer() { return (fs::read_symlink("/proc/self/exe").parent_path() / "panoveer").string(); }

void makeSource(const ExportCase& example, const std::string& path) {
    runMeasured(ffmpeg +
                Words{"-f", "lavfi", "-i",
                      std::format("testsrc2=size={}x{}:rate=30", example.sourceWidth, example.sourceHeight),
                      "-frames:v", std::to_string(example.frames), "-pix_fmt", "yuv420p"} +
                example.sourceEncoder + Words{path});
}

Words peerCommand(const ExportCase& example, const fs::path& folder, const std::string& source) {
    return ffmpeg +
           Words{"-i", source, "-vf",
                 std::format("v360=e:fisheye:h_fov=180:v_fov=180:w={0}:h={0}:interp=lanczos", example.domeSize),
                 "-an"} +
           example.peerEncoder + peerRate(example.megabitsPerSecond) +
           Words{(folder / movieName(example, "peer")).string()};
}

Words ourCommand(const ExportCase& example, const fs::path& folder, const std::string& source) {
    const Words rate =
        example.megabitsPerSecond ? Words{"--bitrate", std::to_string(*example.megabitsPerSecond)} : Words{};
    return Words{panoveer(),        "convert",         source,
                 "--source-format", "equirectangular", "--format",
                 "domemaster",      "--size",          std::format("{0}x{0}", example.domeSize),
                 "--codec",         example.codec} +
           rate + Words{"--progress", "none", "--overwrite", "-o", (folder / movieName(example, "ours")).string()};
}

Cost costOf(std::string name, const std::vector<ProcessCost>& runs, int frames) {
    const auto all = [&](auto field, double units) {
        std::vector<double> values;
        for (const auto& run : runs)
            values.push_back(run.*field / units);
        return Spread::of(values);
    };
    return {.name = std::move(name),
            .seconds = all(&ProcessCost::seconds, frames),
            .processorSeconds = all(&ProcessCost::processorSeconds, frames).median,
            .peakMegabytes = all(&ProcessCost::peakMegabytes, 1).median};
}

Comparison compared(const ExportCase& example, const fs::path& folder, int runs) {
    const auto source = (folder / "source.mp4").string();
    makeSource(example, source);
    std::vector<ProcessCost> ours;
    std::vector<ProcessCost> theirs;
    for (int i = 0; i < runs; ++i) {
        theirs.push_back(runMeasured(peerCommand(example, folder, source)));
        ours.push_back(runMeasured(ourCommand(example, folder, source)));
    }
    const auto rate = example.megabitsPerSecond ? std::format(" at {} Mbit/s", *example.megabitsPerSecond) : "";
    return {.name = std::format("convert {} frames of {}x{} {} to a {} domemaster, {}{}", example.frames,
                                example.sourceWidth, example.sourceHeight, example.sourceName, example.domeSize,
                                example.codec, rate),
            .ours = costOf("panoveer convert, 8 taps", ours, example.frames),
            .peer = costOf(std::format("ffmpeg with v360, lanczos, {}", rate.empty() ? "prores_ks" : "same encoder"),
                           theirs, example.frames)};
}

// A folder that goes with this object.
class ScratchFolder {
public:
    ScratchFolder() : path_(fs::temp_directory_path() / std::format("panoveer-bench-{}", getpid())) {
        fs::create_directories(path_);
    }
    ~ScratchFolder() {
        std::error_code ignored;
        fs::remove_all(path_, ignored);
    }
    ScratchFolder(const ScratchFolder&) = delete;
    ScratchFolder& operator=(const ScratchFolder&) = delete;

    const fs::path& path() const { return path_; }

private:
    fs::path path_;
};

} // namespace

// Whole conversions with the same codec on both sides; H.264 and HEVC with the same encoder, settings and bit rate.
std::vector<Comparison> exportBenchmark(const BenchmarkOptions& options) {
    std::vector<Comparison> result;
    for (const auto& example : exportCases()) {
        const ScratchFolder folder;
        result.push_back(compared(example, folder.path(), options.runs.value_or(defaultRuns)));
    }
    return result;
}

} // namespace panoveer::bench
