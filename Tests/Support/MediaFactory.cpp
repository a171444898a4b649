#include "Support/MediaFactory.h"

#include "Platform/Media/MediaAsset.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdlib>
#include <format>
#include <fstream>
#include <stdexcept>

namespace panoveer::test {

namespace {

constexpr int gridSide = 4;
constexpr int indexBits = 14;
constexpr int whiteCell = 15;

bool cellIsWhite(int index, int cell) { return cell == whiteCell || (cell < indexBits && (index >> cell & 1) != 0); }

double secondsPerFrame(const std::string& rate) {
    const auto slash = rate.find('/');
    return slash == std::string::npos ? 1 / std::stod(rate) : std::stod(rate.substr(slash + 1)) / std::stod(rate);
}

int channelCount(const std::string& layout) {
    if (layout.starts_with("ambisonic ")) {
        const int order = std::stoi(layout.substr(10));
        return (order + 1) * (order + 1);
    }
    if (layout == "mono")
        return 1;
    if (layout == "stereo")
        return 2;
    if (layout == "quad")
        return 4;
    // "5.1", "7.1.4", "4.0": the numbers between the dots add up.
    int count = 0;
    for (char character : layout.substr(0, layout.find('(')))
        count += character == '.' ? 0 : character - '0';
    return count;
}

std::string audioSource(const AudioSpec& spec, int stream, double seconds) {
    const bool isOneForEach = spec.expression.contains('|');
    std::string expressions = isOneForEach ? spec.expression : std::string();
    for (int channel = 0; !isOneForEach && channel < channelCount(spec.layout); ++channel) {
        expressions += channel == 0 ? "" : "|";
        expressions += spec.expression.empty() ? std::format("0.25*sin(2*PI*{}*t)", 220 * (channel + 1) + 50 * stream)
                                               : spec.expression;
    }
    return std::format("aevalsrc=exprs='{}':c='{}':s={}:d={}", expressions, spec.layout, spec.sampleRate, seconds);
}

void append(std::vector<std::string>& list, const std::vector<std::string>& more) {
    list.insert(list.end(), more.begin(), more.end());
}

void runFFmpeg(std::vector<std::string> arguments, const InputSource& input = {}) {
    arguments.insert(arguments.begin(), {"ffmpeg", "-nostdin", "-hide_banner", "-v", "error", "-y"});
    const auto result = runProgram(arguments, input);
    if (result.exitCode != 0) {
        std::string line;
        for (const auto& argument : arguments)
            line += argument + ' ';
        throw std::runtime_error(line + '\n' + result.standardError);
    }
}

InputSource frames(const MovieSpec& spec) {
    const Painter painter = spec.painter ? spec.painter : paintFrameIndex;
    return [&spec, painter, index = 0]() mutable {
        if (index == spec.frameCount)
            return std::string();
        std::string rgba(std::size_t(spec.width) * std::size_t(spec.height) * 4, '\0');
        painter(index++, spec.width, spec.height, {reinterpret_cast<std::uint8_t*>(rgba.data()), rgba.size()});
        return rgba;
    };
}

std::vector<std::string> videoOptions(const MovieSpec& spec) {
    std::vector<std::string> options = {"-map", "0:v", "-c:v", spec.codec, "-pix_fmt", spec.pixelFormat};
    if (spec.codec == "libx264" || spec.codec == "libx265")
        append(options, {"-preset", "veryfast"});
    if (spec.codec == "libx265")
        append(options, {"-x265-params", "log-level=none"});
    if (spec.keyFrameInterval > 0)
        append(options, {"-g", std::to_string(spec.keyFrameInterval)});
    // Matrix and range steer the conversion from RGB; primaries and transfer are labels on the pictures.
    if (!spec.matrix.empty())
        append(options, {"-colorspace", spec.matrix});
    if (!spec.range.empty())
        append(options, {"-color_range", spec.range});
    std::string labels;
    if (!spec.primaries.empty())
        labels += ":color_primaries=" + spec.primaries;
    if (!spec.transfer.empty())
        labels += ":color_trc=" + spec.transfer;
    if (!labels.empty())
        append(options, {"-vf", "setparams=" + labels.substr(1)});
    return options;
}

} // namespace

TemporaryFolder::TemporaryFolder() {
    std::string pattern = (std::filesystem::temp_directory_path() / "panoveer-test-XXXXXX").string();
    if (!::mkdtemp(pattern.data()))
        throw std::runtime_error("Cannot make a folder " + pattern);
    path_ = pattern;
}

TemporaryFolder::~TemporaryFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

void paintFrameIndex(int index, int width, int height, std::span<std::uint8_t> rgba) {
    auto* pixel = rgba.data();
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x, pixel += 4) {
            const int cell = y * gridSide / height * gridSide + x * gridSide / width;
            pixel[0] = pixel[1] = pixel[2] = cellIsWhite(index, cell) ? 235 : 20;
            pixel[3] = 255;
        }
    }
}

int frameIndex(const std::uint8_t* data, std::size_t rowBytes, int width, int height, int bytesPerPixel) {
    int index = 0;
    for (int cell = 0; cell < gridSide * gridSide; ++cell) {
        const int x = (2 * (cell % gridSide) + 1) * width / (2 * gridSide);
        const int y = (2 * (cell / gridSide) + 1) * height / (2 * gridSide);
        // Green stands for the grey of a BGRA or RGBA pixel.
        const int level =
            data[std::size_t(y) * rowBytes + std::size_t(x * bytesPerPixel + (bytesPerPixel == 4 ? 1 : 0))];
        const bool isWhite = level > 128;
        if ((level > 80 && level < 176) || (cell >= indexBits && isWhite != (cell == whiteCell)))
            return -1;
        if (cell < indexBits && isWhite)
            index |= 1 << cell;
    }
    return index;
}

int frameIndex(const PixelBuffer& picture) {
    const auto& plane = picture.plane(0);
    const auto& layout = picture.layout();
    if (picture.format() == pixelFormat::rgbaHalf)
        throw std::runtime_error("Half-float pictures have no readable frame index");
    const auto* data = reinterpret_cast<const std::uint8_t*>(plane.data);
    if (layout.bytesPerSample == 1)
        return frameIndex(data, plane.rowBytes, plane.width, plane.height, layout.samplesPerPixel);
    // The high byte of a ten-bit sample in the high bits of its word is its 8-bit value.
    std::vector<std::uint8_t> luma;
    for (int y = 0; y < plane.height; ++y)
        for (int x = 0; x < plane.width; ++x)
            luma.push_back(data[std::size_t(y) * plane.rowBytes + std::size_t(x) * 2 + 1]);
    return frameIndex(luma.data(), std::size_t(plane.width), plane.width, plane.height, 1);
}

std::filesystem::path makeMovie(const TemporaryFolder& folder, const MovieSpec& spec) {
    const auto result = folder / spec.name;
    const bool hasVideo = spec.frameCount > 0;
    const double seconds =
        spec.audioSeconds > 0 ? spec.audioSeconds : spec.frameCount * secondsPerFrame(spec.frameRate);

    std::vector<std::string> arguments;
    if (hasVideo)
        arguments = {"-f",         "rawvideo",     "-pixel_format",
                     "rgba",       "-video_size",  std::format("{}x{}", spec.width, spec.height),
                     "-framerate", spec.frameRate, "-i",
                     "pipe:0"};
    for (int stream = 0; stream < int(spec.audio.size()); ++stream)
        arguments.insert(arguments.end(),
                         {"-f", "lavfi", "-i", audioSource(spec.audio[std::size_t(stream)], stream, seconds)});
    if (hasVideo)
        append(arguments, videoOptions(spec));
    for (int stream = 0; stream < int(spec.audio.size()); ++stream) {
        const auto& audio = spec.audio[std::size_t(stream)];
        append(arguments,
               {"-map", std::format("{}:a", stream + (hasVideo ? 1 : 0)), std::format("-c:a:{}", stream), audio.codec});
        append(arguments, audio.options);
    }
    append(arguments, spec.outputOptions);
    if (spec.startSeconds != 0)
        append(arguments, {"-output_ts_offset", std::to_string(spec.startSeconds)});

    // The display matrix is set while copying: an encoding run would turn the picture itself.
    const auto encoded = spec.rotationDegrees == 0 ? result : folder / ("upright-" + spec.name);
    arguments.push_back(encoded.string());
    runFFmpeg(arguments, frames(spec));
    if (encoded != result) {
        runFFmpeg({"-display_rotation", std::to_string(-spec.rotationDegrees), "-i", encoded.string(), "-map", "0",
                   "-c", "copy", result.string()});
        std::filesystem::remove(encoded);
    }
    return result;
}

std::shared_ptr<const MediaAsset> loaded(const std::filesystem::path& movie) {
    return MediaAsset::load(URL::fromFilePath(movie));
}

std::set<std::string> namesIn(const std::filesystem::path& folder) {
    std::set<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(folder))
        names.insert(entry.path().filename().string());
    return names;
}

std::string testName(std::string text) {
    std::ranges::replace_if(text, [](unsigned char c) { return !std::isalnum(c); }, '_');
    return text;
}

std::optional<std::filesystem::path> corpusFile(const std::string& name) {
    const char* corpus = std::getenv("PANOVEER_CORPUS");
    if (!corpus || !*corpus)
        return std::nullopt;
    return std::filesystem::path(corpus) / name;
}

} // namespace panoveer::test
