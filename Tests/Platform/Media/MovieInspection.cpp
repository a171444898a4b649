#include "MovieInspection.h"

#include "Support/MediaFactory.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <numbers>
#include <stdexcept>

namespace panoveer::test {

namespace {

// 0 … 1, the same for the same arguments.
double hashed(std::uint32_t x, std::uint32_t y, std::uint32_t z) {
    std::uint32_t value = x * 0x8da6b343U + y * 0xd8163841U + z * 0xcb1ab31fU;
    value = (value ^ value >> 13) * 0x9e3779b1U;
    return double((value ^ value >> 16) & 0xffff) / 65535;
}

double patternValue(int component, double u, double v, int index) {
    const double phase = 2 * std::numbers::pi * (u * (2 + component) + v * (3 - component) + 0.015 * index);
    return 0.5 + 0.38 * std::sin(phase) * std::cos(2 * std::numbers::pi * v);
}

std::uint16_t halfFloat(double value) { return std::bit_cast<std::uint16_t>(_Float16(value)); }

void fillRGBA(PixelBuffer& picture, int index) {
    const bool isHalf = picture.format() == pixelFormat::rgbaHalf;
    const auto& plane = picture.plane(0);
    for (int y = 0; y < plane.height; ++y)
        for (int x = 0; x < plane.width; ++x) {
            const double u = (x + 0.5) / plane.width, v = (y + 0.5) / plane.height;
            const double alpha = std::clamp(1.6 - 3.2 * std::hypot(u - 0.5, v - 0.5), 0.0, 1.0);
            for (int component = 0; component < 4; ++component) {
                const double value = component == 3 ? alpha : patternValue(component, u, v, index);
                auto* row = plane.data + std::size_t(y) * plane.rowBytes;
                if (isHalf)
                    reinterpret_cast<std::uint16_t*>(row)[4 * x + component] = halfFloat(value);
                else
                    row[4 * x + (component == 3 ? 3 : 2 - component)] = std::byte(std::lround(value * 255));
            }
        }
}

void fillYCbCr(PixelBuffer& picture, int index) {
    const bool isWide = picture.layout().bytesPerSample == 2;
    const double unit = isWide ? 4 : 1;
    for (int number = 0; number < 2; ++number) {
        const auto& plane = picture.plane(number);
        const int components = number == 0 ? 1 : 2;
        for (int y = 0; y < plane.height; ++y)
            for (int x = 0; x < plane.width; ++x)
                for (int c = 0; c < components; ++c) {
                    const double u = (x + 0.5) / plane.width, v = (y + 0.5) / plane.height;
                    const double grain = number == 0 ? 0.01 * hashed(std::uint32_t(x + index), std::uint32_t(y), 7) : 0;
                    const double value = patternValue(number + c, u, v, index) + grain;
                    const long sample = std::lround(unit * (16 + (number == 0 ? 219 : 224) * value));
                    auto* row = plane.data + std::size_t(y) * plane.rowBytes;
                    if (isWide)
                        reinterpret_cast<std::uint16_t*>(row)[components * x + c] = std::uint16_t(sample << 6);
                    else
                        row[components * x + c] = std::byte(sample);
                }
    }
}

int countBoxes(std::span<const std::uint8_t> bytes, std::size_t from, std::size_t to, const std::string& type) {
    int count = 0;
    for (const auto& box : boxesIn(bytes, from, to)) {
        count += box.type == type;
        for (const char* container : {"moov", "trak", "edts", "mdia", "minf", "stbl", "mvex"})
            if (box.type == container)
                count += countBoxes(bytes, box.content, box.end, type);
    }
    return count;
}

} // namespace

PixelBufferPtr makePatternPicture(FourCC format, int width, int height, int index) {
    auto picture = PixelBuffer::make(format, width, height);
    if (picture->layout().isYCbCr())
        fillYCbCr(*picture, index);
    else
        fillRGBA(*picture, index);
    return picture;
}

PixelBufferPtr makeBusyPicture(int width, int height, int index) {
    auto picture = PixelBuffer::make(pixelFormat::yCbCr420VideoRange, width, height);
    for (int number = 0; number < 2; ++number) {
        const auto& plane = picture->plane(number);
        const int components = number == 0 ? 1 : 2;
        for (int y = 0; y < plane.height; ++y)
            for (int x = 0; x < plane.width * components; ++x) {
                const auto column = std::uint32_t(x + 2 * components * index), row = std::uint32_t(y);
                const double texture = hashed(column / 6, row / 6, std::uint32_t(number));
                const double noise = hashed(std::uint32_t(x), row, std::uint32_t(2 * index + number));
                plane.data[std::size_t(y) * plane.rowBytes + std::size_t(x)] =
                    std::byte(std::lround(40 + 130 * texture + 30 * noise));
            }
    }
    return picture;
}

std::string decodeRaw(const std::filesystem::path& movie, const std::string& pixelFormat) {
    auto result = runProgram({"ffmpeg", "-v", "error", "-i", movie.string(), "-f", "rawvideo", "-fps_mode",
                              "passthrough", "-pix_fmt", pixelFormat, "-"});
    if (result.exitCode != 0 || !result.standardError.empty())
        throw std::runtime_error("ffmpeg: " + result.standardError);
    return std::move(result.standardOutput);
}

double signalToNoise(const std::string& samples, const std::string& original, int bytesPerSample, double peak) {
    if (samples.size() != original.size())
        throw std::runtime_error("pictures of different sizes");
    const auto value = [&](const std::string& bytes, std::size_t i) {
        if (bytesPerSample == 1)
            return double(std::uint8_t(bytes[i]));
        std::uint16_t word = 0;
        std::memcpy(&word, bytes.data() + 2 * i, 2);
        return double(word);
    };
    double error = 0;
    const auto count = samples.size() / std::size_t(bytesPerSample);
    for (std::size_t i = 0; i < count; ++i)
        error += std::pow(value(samples, i) - value(original, i), 2);
    return 10 * std::log10(peak * peak * double(count) / std::max(error, 1e-9));
}

std::string packedSamples(const PixelBuffer& picture) {
    std::string packed;
    for (int i = 0; i < picture.planeCount(); ++i) {
        const auto& plane = picture.plane(i);
        const auto samples = std::size_t(i == 0 ? picture.layout().samplesPerPixel : 2);
        const auto rowSize = std::size_t(plane.width) * samples * std::size_t(picture.layout().bytesPerSample);
        for (int y = 0; y < plane.height; ++y)
            packed.append(reinterpret_cast<const char*>(plane.data) + std::size_t(y) * plane.rowBytes, rowSize);
    }
    return packed;
}

std::vector<std::string> topLevelBoxes(const std::filesystem::path& movie) {
    const auto bytes = readFile(movie);
    std::vector<std::string> types;
    for (const auto& box : boxesIn(bytes, 0, bytes.size()))
        types.push_back(box.type);
    return types;
}

int countInMovieHeader(const std::filesystem::path& movie, const std::string& type) {
    const auto bytes = readFile(movie);
    return countBoxes(bytes, 0, bytes.size(), type);
}

std::vector<std::uint8_t> boxPayload(const std::filesystem::path& movie, const std::vector<std::string>& path) {
    const auto bytes = readFile(movie);
    const auto box = findBox(bytes, path);
    return {bytes.begin() + std::ptrdiff_t(box.content), bytes.begin() + std::ptrdiff_t(box.end)};
}

} // namespace panoveer::test
