#include "Platform/Media/MovieBox.h"

#include "Platform/Core/Error.h"
#include "Platform/Media/MediaSupport.h"

#include <algorithm>
#include <string>

namespace panoveer {

std::uint64_t readBigEndian(std::span<const std::uint8_t> bytes) {
    std::uint64_t value = 0;
    for (auto byte : bytes)
        value = value << 8 | byte;
    return value;
}

void writeBigEndian(std::span<std::uint8_t> bytes, std::uint64_t value) {
    for (std::size_t i = bytes.size(); i-- > 0; value >>= 8)
        bytes[i] = std::uint8_t(value);
}

std::span<std::uint8_t> MovieBox::field(std::size_t offset, std::size_t size) const {
    if (offset + size > bytes.size())
        throw Error("A movie header with a box that is too short: " + type.text(), std::string(mediaErrorDomain),
                    mediaErrorCode::unknown);
    return bytes.subspan(offset, size);
}

std::vector<MovieBox> childrenOf(const MovieBox& parent, std::size_t ownBytes) {
    std::vector<MovieBox> children;
    const auto start = movieBoxHeaderSize + ownBytes;
    for (auto rest = parent.field(start, parent.bytes.size() - std::min(start, parent.bytes.size())); !rest.empty();) {
        const auto size = rest.size() < movieBoxHeaderSize ? 0 : readBigEndian(rest.first(4));
        if (size < movieBoxHeaderSize || size > rest.size())
            throw Error("A movie header with a box that runs over its parent: " + parent.type.text(),
                        std::string(mediaErrorDomain), mediaErrorCode::unknown);
        children.push_back({FourCC(std::uint32_t(readBigEndian(rest.subspan(4, 4)))), rest.first(size)});
        rest = rest.subspan(size);
    }
    return children;
}

std::optional<MovieBox> childOf(const MovieBox& parent, FourCC type, std::size_t ownBytes) {
    for (const auto& child : childrenOf(parent, ownBytes))
        if (child.type == type)
            return child;
    return std::nullopt;
}

std::optional<MovieBox> descendantOf(const MovieBox& parent, std::span<const FourCC> path) {
    std::optional<MovieBox> box = parent;
    for (auto type : path)
        box = box ? childOf(*box, type) : std::nullopt;
    return box;
}

std::vector<std::uint8_t> makeMovieBox(FourCC type, std::span<const std::uint8_t> payload) {
    std::vector<std::uint8_t> box(movieBoxHeaderSize);
    writeBigEndian(std::span(box).first(4), movieBoxHeaderSize + payload.size());
    writeBigEndian(std::span(box).subspan(4, 4), type.value);
    box.insert(box.end(), payload.begin(), payload.end());
    return box;
}

} // namespace panoveer
