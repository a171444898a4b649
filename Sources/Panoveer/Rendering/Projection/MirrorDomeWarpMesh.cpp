#include "Panoveer/Rendering/Projection/MirrorDomeWarpMesh.h"

#include "Panoveer/Rendering/Projection/MirrorDomeWarpMeshError.h"
#include "Platform/Core/Resources.h"
#include "Platform/Core/Text.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <fstream>
#include <string>
#include <string_view>

namespace panoveer {

namespace {

constexpr std::string_view lineBreaks = "\n\r\v\f";
constexpr std::string_view blanks = " \t";
constexpr int largestSide = 9999;
constexpr std::size_t quotedCharacters = 80;

// The whole file, without a byte order mark. Checked while it is read, so that a movie given by mistake is not read to
// its end.
std::string readText(const URL& url) {
    constexpr std::size_t step = std::size_t(1) << 20;
    constexpr std::size_t longestCharacter = 4;
    std::error_code failure;
    if (!std::filesystem::is_regular_file(url.path(), failure))
        throw MirrorDomeWarpMeshError::fileNotReadable(url);
    std::ifstream stream(url.path(), std::ios::binary);
    std::string text;
    std::size_t checked = 0;
    while (stream) {
        const auto before = text.size();
        text.resize(before + step);
        stream.read(text.data() + before, std::streamsize(step));
        text.resize(before + std::size_t(stream.gcount()));
        checked += validUTF8Length(std::string_view(text).substr(checked));
        if (text.size() - checked >= longestCharacter)
            break;
    }
    if (!stream.eof() || checked != text.size())
        throw MirrorDomeWarpMeshError::fileNotReadable(url);
    if (text.starts_with("\xEF\xBB\xBF"))
        text.erase(0, 3);
    return text;
}

// Pieces between any of the separators; no empty ones.
template<class Take>
void forEachPiece(std::string_view text, std::string_view separators, const Take& take) {
    for (auto begin = text.find_first_not_of(separators); begin != text.npos;) {
        const auto end = std::min(text.find_first_of(separators, begin), text.size());
        take(text.substr(begin, end - begin));
        begin = text.find_first_not_of(separators, end);
    }
}

std::vector<std::string_view> linesOf(std::string_view text) {
    std::vector<std::string_view> lines;
    forEachPiece(text, lineBreaks, [&](std::string_view line) {
        const auto begin = line.find_first_not_of(blanks);
        if (begin != line.npos)
            lines.push_back(line.substr(begin, line.find_last_not_of(blanks) + 1 - begin));
    });
    return lines;
}

template<class Number>
std::optional<Number> parse(std::string_view text) {
    if (text.starts_with('+') && !text.starts_with("+-"))
        text.remove_prefix(1);
    Number value{};
    const auto [end, failure] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (failure != std::errc() || end != text.data() + text.size())
        return std::nullopt;
    return value;
}

// Exactly so many numbers between blanks.
template<class Number, std::size_t count>
std::optional<std::array<Number, count>> parseNumbers(std::string_view line) {
    std::array<Number, count> numbers{};
    std::size_t found = 0;
    bool isGood = true;
    forEachPiece(line, blanks, [&](std::string_view piece) {
        const auto number = parse<Number>(piece);
        if (number && found < count)
            numbers[found] = *number;
        isGood = isGood && number;
        ++found;
    });
    if (!isGood || found != count)
        return std::nullopt;
    return numbers;
}

std::optional<MirrorDomeWarpVertex> parseNode(std::string_view line) {
    const auto n = parseNumbers<float, 5>(line);
    if (!n || !std::ranges::all_of(*n, [](float value) { return std::isfinite(value); }))
        return std::nullopt;
    return MirrorDomeWarpVertex{.position = {(*n)[0], (*n)[1]}, .texCoords = {(*n)[2], (*n)[3]}, .intensity = (*n)[4]};
}

std::vector<std::uint32_t> trianglesOf(const MirrorDomeWarpMesh& mesh) {
    std::vector<std::uint32_t> indices;
    for (int row = 0; row + 1 < mesh.height; ++row) {
        for (int column = 0; column + 1 < mesh.width; ++column) {
            const auto i00 = std::uint32_t(row * mesh.width + column);
            const auto i01 = i00 + 1;
            const auto i10 = i00 + std::uint32_t(mesh.width);
            const auto i11 = i10 + 1;
            const std::array corners{i00, i01, i10, i11};
            if (std::ranges::none_of(corners, [&](auto i) { return mesh.vertices[i].isHole(); }))
                indices.insert(indices.end(), {i00, i10, i01, i01, i10, i11});
        }
    }
    return indices;
}

} // namespace

MirrorDomeWarpMesh MirrorDomeWarpMesh::load(const URL& url) {
    const auto text = readText(url);
    const auto lines = linesOf(text);
    const auto lineCount = std::int64_t(lines.size());
    if (lineCount < 2)
        throw MirrorDomeWarpMeshError::unexpectedNodeCount(0, lineCount);
    const auto type = parse<std::int64_t>(lines[0]).value_or(0);
    if (type != 1 && type != 2)
        throw MirrorDomeWarpMeshError::invalidMeshType(type, 1);
    const auto size = parseNumbers<int, 2>(lines[1]);
    if (!size || !std::ranges::all_of(*size, [](int side) { return side >= 1 && side <= largestSide; }))
        throw MirrorDomeWarpMeshError::invalidGridSize(2);

    MirrorDomeWarpMesh mesh{.meshType = int(type), .width = (*size)[0], .height = (*size)[1]};
    const auto expected = std::int64_t(mesh.width) * mesh.height;
    if (lineCount - 2 != expected)
        throw MirrorDomeWarpMeshError::unexpectedNodeCount(expected, lineCount - 2);
    mesh.vertices.reserve(std::size_t(expected));
    for (std::size_t i = 2; i < lines.size(); ++i) {
        const auto node = parseNode(lines[i]);
        if (!node)
            throw MirrorDomeWarpMeshError::malformedNodeLine(std::int64_t(i) + 1,
                                                             firstCharacters(lines[i], quotedCharacters));
        mesh.vertices.push_back(*node);
        mesh.aspectRatio = std::max(mesh.aspectRatio, std::abs(node->position.x));
    }
    if (!(mesh.aspectRatio > 0))
        throw MirrorDomeWarpMeshError::zeroAspectRatio();
    mesh.indices = trianglesOf(mesh);
    return mesh;
}

std::optional<URL> bundledMirrorDomeMeshURL(MirrorDomeProjectorAspect aspect) {
    const auto name = aspect == MirrorDomeProjectorAspect::sixteenTen ? "standard_16x10" : "standard_16x9";
    const auto file = resourceURL(name, "data", "WarpMeshes");
    return file ? std::optional(URL::fromFilePath(*file)) : std::nullopt;
}

std::optional<MirrorDomeMeshCacheKey> MirrorDomeMeshCacheKey::of(const VRTransform& transform) {
    if (transform.mirrorDomeWarpMeshURL)
        return MirrorDomeMeshCacheKey{*transform.mirrorDomeWarpMeshURL, std::nullopt};
    const auto aspect = matchingProjectorAspect(transform.outputResolution);
    const auto url = bundledMirrorDomeMeshURL(aspect);
    return url ? std::optional(MirrorDomeMeshCacheKey{*url, aspect}) : std::nullopt;
}

} // namespace panoveer
