#include "Panoveer/Services/Export/MP4Parser.h"

#include "Panoveer/Services/Export/BigEndian.h"
#include "Panoveer/Services/Export/SpatialVideoMetadataError.h"

#include <algorithm>
#include <array>

namespace panoveer {

namespace {

constexpr std::uint64_t videoSampleEntryPadding = 78; // VisualSampleEntry, ISO/IEC 14496-12, clause 12.1.3
constexpr std::uint64_t sampleDescriptionPadding = 8; // version, flags and entry count

class TreeReader {
public:
    TreeReader(const ByteSource& source, std::span<const FourCC> furtherContainers)
        : source_(source), furtherContainers_(furtherContainers) {}

    std::vector<MP4Box> read(std::uint64_t from, std::uint64_t to, int depth) {
        std::vector<MP4Box> boxes;
        for (auto position = from; position < to && to - position >= 8; position += boxes.back().totalSize()) {
            auto box = readHeader(position, to);
            if (++count_ > MP4Parser::maximumBoxCount)
                throw SpatialVideoMetadataError::invalidBox(box.type, position);
            if (const auto padding = containerPadding(box); padding && *padding <= box.contentSize) {
                if (depth == MP4Parser::maximumDepth)
                    throw SpatialVideoMetadataError::invalidBox(box.type, position);
                box.padding = *padding;
                box.children = read(box.contentPosition() + *padding, position + box.totalSize(), depth + 1);
            }
            boxes.push_back(std::move(box));
        }
        return boxes;
    }

private:
    MP4Box readHeader(std::uint64_t position, std::uint64_t end) const {
        std::array<std::uint8_t, 16> bytes;
        const auto got = source_.read(position, bytes);
        if (got < 8)
            throw SpatialVideoMetadataError::invalidBox(FourCC(), position);
        const auto size = readBigEndian<std::uint32_t>(bytes);

        MP4Box box;
        box.position = position;
        box.type = FourCC(readBigEndian<std::uint32_t>(bytes, 4));
        box.headerSize = size == 1 ? 16 : 8;
        if (got < box.headerSize)
            throw SpatialVideoMetadataError::invalidBox(box.type, position);
        const auto total = size == 0   ? end - position
                           : size == 1 ? readBigEndian<std::uint64_t>(bytes, 8)
                                       : std::uint64_t(size);
        if (total < box.headerSize)
            throw SpatialVideoMetadataError::invalidBox(box.type, position);
        if (total > end - position)
            throw SpatialVideoMetadataError::boxOutOfBounds(box.type, position);
        box.contentSize = total - box.headerSize;
        return box;
    }

    // Where the children of a box begin within its content; none for a box that is not opened.
    std::optional<std::uint64_t> containerPadding(const MP4Box& box) const {
        if (MP4Tag::isAudioSampleEntry(box.type))
            return MP4Parser::audioSampleEntryPadding(source_, box.contentPosition(), box.position + box.totalSize());
        if (MP4Tag::isVideoSampleEntry(box.type))
            return videoSampleEntryPadding;
        if (box.type == FourCC("stsd"))
            return sampleDescriptionPadding;
        if (MP4Tag::isContainer(box.type) || std::ranges::contains(furtherContainers_, box.type))
            return 0;
        return std::nullopt;
    }

    const ByteSource& source_;
    std::span<const FourCC> furtherContainers_;
    std::size_t count_ = 0;
};

} // namespace

std::vector<MP4Box> MP4Parser::parseBoxes(const ByteSource& source, std::uint64_t from, std::uint64_t to,
                                          std::span<const FourCC> furtherContainers) {
    return TreeReader(source, furtherContainers).read(from, to, 0);
}

std::optional<std::uint64_t> MP4Parser::audioSampleEntryPadding(const ByteSource& source, std::uint64_t contentStart,
                                                                std::uint64_t contentEnd) {
    // Sound sample descriptions of versions 0, 1 and 2 (QuickTime File Format, "Sound sample descriptions").
    constexpr std::array<std::uint64_t, 3> paddings = {28, 44, 64};
    std::array<std::uint8_t, 2> bytes;
    if (contentEnd - contentStart < paddings[0] || source.read(contentStart + 8, bytes) < bytes.size())
        return std::nullopt;
    const auto version = readBigEndian<std::uint16_t>(bytes);
    if (version >= paddings.size() || paddings[version] > contentEnd - contentStart)
        return std::nullopt;
    return paddings[version];
}

std::vector<std::uint8_t> MP4Parser::readContent(const ByteSource& source, const MP4Box& box, std::uint64_t offset,
                                                 std::size_t count) {
    const auto size = box.payload ? box.payload->size() : box.contentSize;
    if (offset >= size)
        return {};
    std::vector<std::uint8_t> bytes(std::min<std::uint64_t>(count, size - offset));
    if (box.payload)
        std::copy_n(box.payload->begin() + std::ptrdiff_t(offset), bytes.size(), bytes.begin());
    else
        bytes.resize(source.read(box.contentPosition() + offset, bytes));
    return bytes;
}

std::optional<FourCC> MP4Parser::handlerType(const ByteSource& source, const MP4Box& track) {
    const auto* handler = track.descendant({"mdia", "hdlr"});
    const auto bytes = handler ? readContent(source, *handler, 8, 4) : std::vector<std::uint8_t>();
    return bytes.size() == 4 ? std::optional(FourCC(readBigEndian<std::uint32_t>(bytes))) : std::nullopt;
}

} // namespace panoveer
