#pragma once

#include "Platform/Core/FourCC.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

// Boxes of the ISO base media file format (ISO/IEC 14496-12) that the muxer leaves to us. Not for other layers.
namespace panoveer {

// Turns the `moov` of a fragmented movie, whose sample tables hold all samples by now, into that of an ordinary one:
// without `mvex`, and with the length of the track in each edit that says "to the end" (duration 0). `moov` is the
// whole box, with a 32-bit size. Throws Error when it is not laid out as a `moov` should be.
void makeOrdinary(std::vector<std::uint8_t>& moov);

// Gives every edit of a `moov` that says "to the end" this duration, in units of the movie's timescale. Throws as
// above.
void boundEdits(std::vector<std::uint8_t>& moov, std::uint64_t duration);

// Puts whole boxes at the end of the video sample entry of the track of that index. Throws as above.
void appendToSampleEntry(std::vector<std::uint8_t>& moov, std::size_t track, std::span<const std::uint8_t> boxes);

// The 32-bit size that a box begins with.
std::size_t boxSize(std::span<const std::uint8_t> box);

// The header of a box with a 64-bit size of `totalSize` bytes, header included: 16 bytes.
std::vector<std::uint8_t> largeBoxHeader(FourCC type, std::int64_t totalSize);

// A `free` box of `totalSize` bytes, at least 8, of which it returns the header.
std::vector<std::uint8_t> freeBoxHeader(std::int64_t totalSize);

} // namespace panoveer
