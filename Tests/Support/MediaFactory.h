#pragma once

#include "Platform/Media/PixelBuffer.h"

#include <nlohmann/json_fwd.hpp>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace panoveer {
class MediaAsset;
}

// Makes small real movies for tests with the `ffmpeg` program. Everything here throws std::runtime_error with the
// program's own words when something goes wrong, so that a test fails with the reason.
namespace panoveer::test {

// A folder of its own that is removed with all it holds.
class TemporaryFolder {
public:
    TemporaryFolder();
    ~TemporaryFolder();
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    const std::filesystem::path& path() const { return path_; }
    std::filesystem::path operator/(const std::filesystem::path& name) const { return path_ / name; }

private:
    std::filesystem::path path_;
};

struct ProgramResult {
    int exitCode = 0; // 128 plus the signal's number for a program that a signal ended
    std::string standardOutput;
    std::string standardError;
};

// The next piece of a program's standard input; an empty one ends it.
using InputSource = std::function<std::string()>;

// Runs a program found in PATH and waits for it; its standard input is `input`, or empty.
ProgramResult runProgram(const std::vector<std::string>& arguments, const InputSource& input = {});

// What `ffprobe -show_streams -show_format` and any further options say of a file.
nlohmann::json ffprobeJSON(const std::filesystem::path& file, const std::vector<std::string>& options = {});

struct AudioSpec {
    std::string codec = "pcm_s16le";
    std::string layout = "stereo"; // FFmpeg's name: "mono", "5.1", "quad", "ambisonic 1"
    int sampleRate = 48000;
    // An expression of aevalsrc for all channels, of t (seconds) and n (samples), or one a channel with bars between.
    // When empty, channel c of stream s carries a sine of 220 (c + 1) + 50 s Hz, amplitude 0.25.
    std::string expression = {};
    std::vector<std::string> options = {}; // further output options of this stream: {"-b:a", "96k"}
};

// Paints frame `index`: width * height pixels of R, G, B, A, rows one behind the other.
using Painter = std::function<void(int index, int width, int height, std::span<std::uint8_t> rgba)>;

struct MovieSpec {
    std::string name = "movie.mov"; // its extension chooses the container
    int width = 160;
    int height = 96;
    std::string frameRate = "30"; // or a fraction: "30000/1001"
    int frameCount = 30;          // 0: no video stream at all
    std::string codec = "libx264";
    std::string pixelFormat = "yuv420p";
    int keyFrameInterval = 0; // frames; 0: the encoder's own choice
    int rotationDegrees = 0;  // clockwise turn that a player shall apply, into the display matrix
    double startSeconds = 0;  // added to every time stamp in the container
    // H.273 colours by FFmpeg's names ("bt2020", "smpte2084", "bt2020nc", "pc"); empty: not said.
    std::string primaries = {}, transfer = {}, matrix = {}, range = {};
    std::vector<AudioSpec> audio = {};           // one stream each, as long as the video
    double audioSeconds = 0;                     // length of the audio when it differs from the video's
    std::vector<std::string> outputOptions = {}; // anything else for the output: {"-movflags", "+faststart"}
    Painter painter = {};                        // paintFrameIndex unless given
};

// Writes the movie into the folder and returns its path.
std::filesystem::path makeMovie(const TemporaryFolder& folder, const MovieSpec& spec = {});

// A movie as the program's native road knows it. Throws what MediaAsset::load() throws.
std::shared_ptr<const MediaAsset> loaded(const std::filesystem::path& movie);

// The default picture shows its own number: 4 by 4 grey cells, the first 14 of them the bits of the index from the
// lowest up (white is 1), the 15th black and the 16th white. It survives lossy coding, scaling and any colour matrix.
void paintFrameIndex(int index, int width, int height, std::span<std::uint8_t> rgba);

// Reads that number back from a picture, -1 when it shows something else.
int frameIndex(const PixelBuffer& picture);
// The same from 8-bit memory: `bytesPerPixel` 1 for luma (video range), 4 for BGRA or RGBA.
int frameIndex(const std::uint8_t* data, std::size_t rowBytes, int width, int height, int bytesPerPixel);

// Appends a box as the last child of the box at `path` and corrects the sizes of all boxes around it. A step is a box
// type, or a type with a position among its siblings of that type: "trak:1". `stsd` entries are steps like any other:
// {"moov", "trak", "mdia", "minf", "stbl", "stsd", "avc1"}. The media must lie in front of `moov`, as ffmpeg writes it.
void appendBox(const std::filesystem::path& movie, const std::vector<std::string>& path, const std::string& type,
               std::span<const std::uint8_t> payload);

// A whole box of a file: its type, where it starts, where its content starts and where it ends.
struct BoxRange {
    std::string type;
    std::size_t start = 0, content = 0, end = 0;
};

// The boxes between two places of a file, as far as they are whole.
std::vector<BoxRange> boxesIn(std::span<const std::uint8_t> bytes, std::size_t from, std::size_t to);

// The box at such a path. Throws where there is none.
BoxRange findBox(std::span<const std::uint8_t> bytes, const std::vector<std::string>& path);

// A number of some bytes, the highest first.
std::uint64_t bigEndian(std::span<const std::uint8_t> bytes, std::size_t at, std::size_t count);

// A box in memory, its size in front.
std::vector<std::uint8_t> makeBox(const std::string& type, std::span<const std::uint8_t> payload);

// Says in an H.264 movie that the picture is a sphere with so much cropped away on each side, in 2^-32 of it (`sv3d`).
struct SphereBounds {
    std::uint32_t top = 0, bottom = 0, left = 0, right = 0;
};
void appendEquirectangularMapping(const std::filesystem::path& movie, const SphereBounds& bounds);
// Says how an H.264 movie packs its eyes (`st3d`): 0 mono, 1 top and bottom, 2 side by side.
void appendStereoLayout(const std::filesystem::path& movie, std::uint8_t mode);

std::vector<std::uint8_t> readFile(const std::filesystem::path& file);
void writeFile(const std::filesystem::path& file, std::span<const std::uint8_t> bytes);
void writeText(const std::filesystem::path& file, std::string_view text);

// The names of all that lies in a folder.
std::set<std::string> namesIn(const std::filesystem::path& folder);

// A sentence or a file's name as GoogleTest takes it for the name of a test.
std::string testName(std::string text);

// A file of the corpus of real media that PANOVEER_CORPUS names; no value when that is not set.
std::optional<std::filesystem::path> corpusFile(const std::string& name);

} // namespace panoveer::test
