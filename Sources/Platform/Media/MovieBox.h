#pragma once

#include "Platform/Core/FourCC.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

// Boxes of the ISO base media file format (ISO/IEC 14496-12) in memory. Not for other layers.
namespace panoveer {

inline constexpr std::size_t movieBoxHeaderSize = 8;

std::uint64_t readBigEndian(std::span<const std::uint8_t> bytes);
void writeBigEndian(std::span<std::uint8_t> bytes, std::uint64_t value);

// A box with a 32-bit size, header included; the memory is someone else's.
struct MovieBox {
    FourCC type;
    std::span<std::uint8_t> bytes;

    std::span<std::uint8_t> payload() const { return bytes.subspan(movieBoxHeaderSize); }
    // Throws Error when the box is too short.
    std::span<std::uint8_t> field(std::size_t offset, std::size_t size) const;
    std::uint8_t version() const { return field(movieBoxHeaderSize, 1)[0]; }
};

// The boxes within a box, behind so many bytes of its own that follow the header. Throw Error when one of them runs
// over its parent.
std::vector<MovieBox> childrenOf(const MovieBox& parent, std::size_t ownBytes = 0);
std::optional<MovieBox> childOf(const MovieBox& parent, FourCC type, std::size_t ownBytes = 0);
// The first box down a path of types.
std::optional<MovieBox> descendantOf(const MovieBox& parent, std::span<const FourCC> path);

// A box of its own.
std::vector<std::uint8_t> makeMovieBox(FourCC type, std::span<const std::uint8_t> payload);

} // namespace panoveer
