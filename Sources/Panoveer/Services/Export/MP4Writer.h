#pragma once

#include "Panoveer/Services/Export/ByteStreams.h"
#include "Panoveer/Services/Export/MP4Box.h"

#include <cstdint>
#include <stop_token>

namespace panoveer {

// Writes box trees: what was made here from its payload, everything else byte for byte from the input that it was
// parsed from. Tables of file offsets move by a delta: "stco" and "co64", and in fragmented movies "tfhd" and "tfra".
// Media data is streamed. Throws SpatialVideoMetadataError, what the streams throw, and Cancelled. One thread.
class MP4Writer {
public:
    // The largest piece that is copied at once; between two pieces a stop is looked for.
    static constexpr std::uint64_t maximumPiece = 67'108'864;

    MP4Writer(const ByteSource& input, ByteSink& output, std::int64_t chunkOffsetDelta, std::stop_token stop = {})
        : input_(input), output_(output), chunkOffsetDelta_(chunkOffsetDelta), stop_(std::move(stop)) {}

    void write(const MP4Box& box);

    static void write(const MP4Box& box, const ByteSource& input, ByteSink& output, std::int64_t chunkOffsetDelta) {
        MP4Writer(input, output, chunkOffsetDelta).write(box);
    }

private:
    struct OffsetTable;

    void writeHeader(const MP4Box& box);
    void writeChildren(const MP4Box& box);
    void writeSTCO(const MP4Box& box);
    void writeCO64(const MP4Box& box);
    void writeFragmentHeader(const MP4Box& box);
    void writeFragmentRandomAccess(const MP4Box& box);
    void writeOpened(const MP4Box& box);
    void writeOffsetTable(const MP4Box& box, const OffsetTable& table);
    void shift(std::span<std::uint8_t> bytes, bool isWide) const;
    void copyBytes(std::uint64_t position, std::uint64_t count);

    const ByteSource& input_;
    ByteSink& output_;
    std::int64_t chunkOffsetDelta_;
    std::stop_token stop_;
};

} // namespace panoveer
