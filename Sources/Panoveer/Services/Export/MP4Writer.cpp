#include "Panoveer/Services/Export/MP4Writer.h"

#include "Panoveer/Services/Export/BigEndian.h"
#include "Panoveer/Services/Export/MP4Parser.h"
#include "Panoveer/Services/Export/SpatialVideoMetadataError.h"

#include <algorithm>
#include <array>
#include <limits>

namespace panoveer {

namespace {

constexpr std::uint64_t tableBlockSize = 65536;

constexpr FourCC fragmentContainers[] = {"moof", "traf", "mfra"};

} // namespace

// Where the file offsets of a box lie within its content.
struct MP4Writer::OffsetTable {
    std::uint64_t headSize;     // bytes ahead of the first entry
    std::uint64_t count;        // entries
    std::uint64_t stride;       // bytes of an entry
    std::uint64_t offsetInside; // of the file offset in its entry
    bool isWide;                // 64 bits instead of 32
};

void MP4Writer::write(const MP4Box& box) {
    if (chunkOffsetDelta_ != 0 && !box.children && std::ranges::contains(fragmentContainers, box.type)) {
        writeOpened(box);
        return;
    }
    writeHeader(box);
    if (box.children)
        writeChildren(box);
    else if (box.payload)
        output_.write(*box.payload);
    else if (box.type == FourCC("stco") && chunkOffsetDelta_ != 0)
        writeSTCO(box);
    else if (box.type == FourCC("co64") && chunkOffsetDelta_ != 0)
        writeCO64(box);
    else if (box.type == FourCC("tfhd") && chunkOffsetDelta_ != 0)
        writeFragmentHeader(box);
    else if (box.type == FourCC("tfra") && chunkOffsetDelta_ != 0)
        writeFragmentRandomAccess(box);
    else
        copyBytes(box.contentPosition(), box.contentSize);
}

void MP4Writer::writeChildren(const MP4Box& box) {
    copyBytes(box.contentPosition(), box.padding);
    auto written = box.padding;
    for (const auto& child : *box.children) {
        write(child);
        written += child.totalSize();
    }
    // A box that nobody resized may end in a few bytes that make no box.
    copyBytes(box.contentPosition() + written, box.contentSize - written);
}

void MP4Writer::writeHeader(const MP4Box& box) {
    std::vector<std::uint8_t> header;
    const auto total = box.totalSize();
    if (box.headerSize == 8 && total > std::numeric_limits<std::uint32_t>::max())
        throw SpatialVideoMetadataError::largeBoxRequiresExtendedHeader(box.type);
    appendBigEndian(header, box.headerSize == 8 ? std::uint32_t(total) : std::uint32_t(1));
    appendBigEndian(header, box.type.value);
    if (box.headerSize == 16)
        appendBigEndian(header, total);
    output_.write(header);
}

// ISO/IEC 14496-12, clause 8.7.5: version and flags, entry count, 32-bit offsets.
void MP4Writer::writeSTCO(const MP4Box& box) {
    const auto head = MP4Parser::readContent(input_, box, 0, 8);
    if (head.size() < 8)
        throw SpatialVideoMetadataError::invalidBox(box.type, box.position);
    writeOffsetTable(box, {8, readBigEndian<std::uint32_t>(head, 4), 4, 0, false});
}

// The same with 64-bit offsets.
void MP4Writer::writeCO64(const MP4Box& box) {
    const auto head = MP4Parser::readContent(input_, box, 0, 8);
    if (head.size() < 8)
        throw SpatialVideoMetadataError::invalidBox(box.type, box.position);
    writeOffsetTable(box, {8, readBigEndian<std::uint32_t>(head, 4), 8, 0, true});
}

// ISO/IEC 14496-12, clause 8.8.7: flag 1 says that an absolute base data offset follows the track's id.
void MP4Writer::writeFragmentHeader(const MP4Box& box) {
    const auto head = MP4Parser::readContent(input_, box, 0, 4);
    if (head.size() < 4)
        throw SpatialVideoMetadataError::invalidBox(box.type, box.position);
    const bool hasBaseDataOffset = head[3] & 1;
    writeOffsetTable(box, {8, hasBaseDataOffset, 8, 0, true});
}

// ISO/IEC 14496-12, clause 8.8.10: every entry is a time, the offset of a "moof", and three numbers of 1 to 4 bytes.
void MP4Writer::writeFragmentRandomAccess(const MP4Box& box) {
    const auto head = MP4Parser::readContent(input_, box, 0, 16);
    if (head.size() < 16)
        throw SpatialVideoMetadataError::invalidBox(box.type, box.position);
    const bool isWide = head[0] == 1;
    const std::uint64_t width = isWide ? 8 : 4;
    const auto lengths = head[11];
    const std::uint64_t numbers = 3u + (lengths >> 4 & 3u) + (lengths >> 2 & 3u) + (lengths & 3u);
    writeOffsetTable(box, {16, readBigEndian<std::uint32_t>(head, 12), 2 * width + numbers, width, isWide});
}

void MP4Writer::writeOpened(const MP4Box& box) {
    for (const auto& opened :
         MP4Parser::parseBoxes(input_, box.position, box.position + box.totalSize(), fragmentContainers))
        write(opened);
}

void MP4Writer::writeOffsetTable(const MP4Box& box, const OffsetTable& table) {
    // Divided, not multiplied: the count is the file's word. What follows the last entry is kept.
    if (box.contentSize < table.headSize || table.count > (box.contentSize - table.headSize) / table.stride)
        throw SpatialVideoMetadataError::invalidBox(box.type, box.position);
    copyBytes(box.contentPosition(), table.headSize);

    std::vector<std::uint8_t> block;
    auto done = table.headSize;
    const auto end = table.headSize + table.count * table.stride;
    while (done < end) {
        const auto size = std::min(end - done, tableBlockSize / table.stride * table.stride);
        block.resize(size);
        if (input_.read(box.contentPosition() + done, block) < size)
            throw SpatialVideoMetadataError::internalInconsistency();
        for (std::uint64_t entry = 0; entry < size; entry += table.stride)
            shift(std::span(block).subspan(entry + table.offsetInside), table.isWide);
        output_.write(block);
        done += size;
    }
    copyBytes(box.contentPosition() + end, box.contentSize - end);
}

void MP4Writer::shift(std::span<std::uint8_t> bytes, bool isWide) const {
    const auto distance = chunkOffsetDelta_ < 0 ? -std::uint64_t(chunkOffsetDelta_) : std::uint64_t(chunkOffsetDelta_);
    const auto limit =
        isWide ? std::numeric_limits<std::uint64_t>::max() : std::uint64_t(std::numeric_limits<std::uint32_t>::max());
    const auto old = isWide ? readBigEndian<std::uint64_t>(bytes) : readBigEndian<std::uint32_t>(bytes);
    if (chunkOffsetDelta_ < 0 ? old < distance : old > limit - distance || distance > limit)
        throw isWide ? SpatialVideoMetadataError::chunkOffsetOverflow() : SpatialVideoMetadataError::stcoOverflow();
    const auto moved = chunkOffsetDelta_ < 0 ? old - distance : old + distance;
    if (isWide)
        storeBigEndian(bytes, 0, moved);
    else
        storeBigEndian(bytes, 0, std::uint32_t(moved));
}

void MP4Writer::copyBytes(std::uint64_t position, std::uint64_t count) {
    while (count > 0) {
        if (stop_.stop_requested())
            throw Cancelled();
        const auto piece = std::min(count, maximumPiece);
        // The parser has seen the whole range, so an early end means that the file shrank meanwhile.
        if (output_.copy(input_, position, piece) < piece)
            throw SpatialVideoMetadataError::internalInconsistency();
        position += piece;
        count -= piece;
    }
}

} // namespace panoveer
