#include "Support/MediaFactory.h"

#include <algorithm>
#include <fstream>
#include <set>
#include <stdexcept>

namespace panoveer::test {

namespace {

void writeUInt32(std::span<std::uint8_t> bytes, std::size_t at, std::uint32_t value) {
    for (int shift = 24; shift >= 0; shift -= 8)
        bytes[at++] = std::uint8_t(value >> shift);
}

// How far the children of a box lie behind its start: ISO/IEC 14496-12, 8.5.2 and 12.1.3, 12.2.3 for sample entries.
std::size_t childrenOffset(const std::string& type, const std::string& parent) {
    static const std::set<std::string> audioEntries = {"mp4a", "Opus", "fLaC", "ipcm", "fpcm", "lpcm", "sowt", "twos"};
    if (type == "stsd")
        return 16;
    if (parent == "stsd")
        return audioEntries.contains(type) ? 36 : 86;
    return 8;
}

// Of a parent's content: a type, or a type with a position among its siblings of that type.
BoxRange findChild(std::span<const std::uint8_t> bytes, std::size_t from, std::size_t to, const std::string& step) {
    const auto colon = step.find(':');
    int remaining = colon == std::string::npos ? 0 : std::stoi(step.substr(colon + 1));
    for (const auto& box : boxesIn(bytes, from, to))
        if (box.type == step.substr(0, colon) && remaining-- == 0)
            return box;
    throw std::runtime_error("No box " + step);
}

// The boxes on the way to one, the outermost first.
std::vector<BoxRange> boxesOnPath(std::span<const std::uint8_t> bytes, const std::vector<std::string>& path) {
    std::vector<BoxRange> found;
    std::size_t from = 0, to = bytes.size();
    for (const auto& step : path) {
        const auto box = findChild(bytes, from, to, step);
        from = box.start + childrenOffset(box.type, found.empty() ? "" : found.back().type);
        to = box.end;
        found.push_back(box);
    }
    return found;
}

void append(std::vector<std::uint8_t>& bytes, const std::vector<std::uint8_t>& more) {
    bytes.insert(bytes.end(), more.begin(), more.end());
}

const std::vector<std::string> videoSampleEntry = {"moov", "trak", "mdia", "minf", "stbl", "stsd", "avc1"};

} // namespace

std::uint64_t bigEndian(std::span<const std::uint8_t> bytes, std::size_t at, std::size_t count) {
    std::uint64_t value = 0;
    for (const auto byte : bytes.subspan(at, count))
        value = value << 8 | byte;
    return value;
}

std::vector<BoxRange> boxesIn(std::span<const std::uint8_t> bytes, std::size_t from, std::size_t to) {
    std::vector<BoxRange> boxes;
    while (from + 8 <= to) {
        const bool isWide = bigEndian(bytes, from, 4) == 1 && from + 16 <= to;
        const std::size_t size = isWide ? bigEndian(bytes, from + 8, 8) : bigEndian(bytes, from, 4);
        if (size < (isWide ? 16 : 8) || size > to - from)
            break;
        boxes.push_back(
            {std::string(bytes.begin() + std::ptrdiff_t(from + 4), bytes.begin() + std::ptrdiff_t(from + 8)), from,
             from + (isWide ? 16 : 8), from + size});
        from += size;
    }
    return boxes;
}

BoxRange findBox(std::span<const std::uint8_t> bytes, const std::vector<std::string>& path) {
    return boxesOnPath(bytes, path).back();
}

std::vector<std::uint8_t> makeBox(const std::string& type, std::span<const std::uint8_t> payload) {
    std::vector<std::uint8_t> bytes(8 + payload.size());
    writeUInt32(bytes, 0, std::uint32_t(bytes.size()));
    std::ranges::copy(type, bytes.begin() + 4);
    std::ranges::copy(payload, bytes.begin() + 8);
    return bytes;
}

void appendEquirectangularMapping(const std::filesystem::path& movie, const SphereBounds& bounds) {
    std::vector<std::uint8_t> equirectangular(20); // version and flags, then the bounds
    writeUInt32(equirectangular, 4, bounds.top);
    writeUInt32(equirectangular, 8, bounds.bottom);
    writeUInt32(equirectangular, 12, bounds.left);
    writeUInt32(equirectangular, 16, bounds.right);
    auto projection = makeBox("prhd", std::vector<std::uint8_t>(16)); // no turn
    append(projection, makeBox("equi", equirectangular));
    auto sphere = makeBox("svhd", std::vector<std::uint8_t>{0, 0, 0, 0, 't', 0});
    append(sphere, makeBox("proj", projection));
    appendBox(movie, videoSampleEntry, "sv3d", sphere);
}

void appendStereoLayout(const std::filesystem::path& movie, std::uint8_t mode) {
    appendBox(movie, videoSampleEntry, "st3d", std::vector<std::uint8_t>{0, 0, 0, 0, mode});
}

void appendBox(const std::filesystem::path& movie, const std::vector<std::string>& path, const std::string& type,
               std::span<const std::uint8_t> payload) {
    auto bytes = readFile(movie);
    const auto ancestors = boxesOnPath(bytes, path);
    const auto added = makeBox(type, payload);
    bytes.insert(bytes.begin() + std::ptrdiff_t(ancestors.back().end), added.begin(), added.end());
    for (const auto& box : ancestors)
        writeUInt32(bytes, box.start, std::uint32_t(box.end - box.start + added.size()));
    writeFile(movie, bytes);
}

std::vector<std::uint8_t> readFile(const std::filesystem::path& file) {
    std::ifstream stream(file, std::ios::binary);
    if (!stream)
        throw std::runtime_error("Cannot read " + file.string());
    return {std::istreambuf_iterator<char>(stream), {}};
}

void writeFile(const std::filesystem::path& file, std::span<const std::uint8_t> bytes) {
    std::ofstream stream(file, std::ios::binary);
    stream.write(reinterpret_cast<const char*>(bytes.data()), std::streamsize(bytes.size()));
    if (!stream.flush())
        throw std::runtime_error("Cannot write " + file.string());
}

void writeText(const std::filesystem::path& file, std::string_view text) {
    writeFile(file, {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()});
}

} // namespace panoveer::test
