#include "Platform/Media/MovieHeader.h"

#include "Platform/Core/Error.h"
#include "Platform/Core/FourCC.h"
#include "Platform/Media/MediaSupport.h"

#include <optional>
#include <span>

namespace panoveer {

namespace {

constexpr std::size_t headerSize = 8;

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

// A box in memory, header included.
struct Box {
    FourCC type;
    std::span<std::uint8_t> bytes;

    std::span<std::uint8_t> field(std::size_t offset, std::size_t size) const {
        if (offset + size > bytes.size())
            throw Error("A movie header with a box that is too short: " + type.text(), std::string(mediaErrorDomain),
                        mediaErrorCode::unknown);
        return bytes.subspan(offset, size);
    }
    std::uint8_t version() const { return field(headerSize, 1)[0]; }
};

std::vector<Box> childrenOf(const Box& parent) {
    std::vector<Box> children;
    for (auto rest = parent.bytes.subspan(headerSize); !rest.empty();) {
        const auto size = rest.size() < headerSize ? 0 : readBigEndian(rest.first(4));
        if (size < headerSize || size > rest.size())
            throw Error("A movie header with a box that runs over its parent: " + parent.type.text(),
                        std::string(mediaErrorDomain), mediaErrorCode::unknown);
        children.push_back({FourCC(std::uint32_t(readBigEndian(rest.subspan(4, 4)))), rest.first(size)});
        rest = rest.subspan(size);
    }
    return children;
}

std::optional<Box> childOf(const Box& parent, FourCC type) {
    for (const auto& child : childrenOf(parent))
        if (child.type == type)
            return child;
    return std::nullopt;
}

// In units of the movie's timescale.
std::uint64_t trackDuration(const Box& tkhd) {
    return readBigEndian(tkhd.version() == 1 ? tkhd.field(headerSize + 28, 8) : tkhd.field(headerSize + 20, 4));
}

// An entry is (duration, media time, rate); a media time of -1 is a pause ahead of the media.
void completeEdits(const Box& elst, std::uint64_t duration) {
    const std::size_t width = elst.version() == 1 ? 8 : 4;
    const std::size_t entrySize = 2 * width + 4;
    const auto count = readBigEndian(elst.field(headerSize + 4, 4));
    std::uint64_t before = 0;
    for (std::size_t i = 0; i < count; ++i) {
        const auto entryDuration = elst.field(headerSize + 8 + i * entrySize, width);
        if (readBigEndian(entryDuration) == 0 && duration > before)
            writeBigEndian(entryDuration, duration - before);
        before += readBigEndian(entryDuration);
    }
}

// Calls with the edit list and the duration of each track that has one.
template<class Call>
void forEachEditList(const Box& movie, const Call& call) {
    for (const auto& trak : childrenOf(movie)) {
        if (trak.type != FourCC("trak"))
            continue;
        const auto tkhd = childOf(trak, FourCC("tkhd"));
        const auto edts = childOf(trak, FourCC("edts"));
        const auto elst = edts ? childOf(*edts, FourCC("elst")) : std::nullopt;
        if (tkhd && elst)
            call(*elst, trackDuration(*tkhd));
    }
}

} // namespace

void makeOrdinary(std::vector<std::uint8_t>& moov) {
    const Box movie{FourCC("moov"), moov};
    forEachEditList(movie, completeEdits);
    if (const auto mvex = childOf(movie, FourCC("mvex"))) {
        const auto start = moov.begin() + (mvex->bytes.data() - moov.data());
        moov.erase(start, start + std::ptrdiff_t(mvex->bytes.size()));
        writeBigEndian(std::span(moov).first(4), moov.size());
    }
}

void boundEdits(std::vector<std::uint8_t>& moov, std::uint64_t duration) {
    forEachEditList({FourCC("moov"), moov}, [&](const Box& elst, std::uint64_t) { completeEdits(elst, duration); });
}

namespace {

// The boxes from the movie down to one of them, by their offsets and the sizes of what stands in front of their
// children.
struct Step {
    FourCC type;
    std::size_t fieldsSize = 0;
};

// Offsets of the boxes on a path below `offset`, that one first; empty when there is no such path.
std::vector<std::size_t> boxesOnPath(std::span<const std::uint8_t> bytes, std::size_t offset, std::size_t fieldsSize,
                                     std::span<const Step> path) {
    if (path.empty())
        return {offset};
    const auto end = offset + boxSize(bytes.subspan(offset));
    for (auto child = offset + headerSize + fieldsSize; child + headerSize <= end;) {
        const auto size = boxSize(bytes.subspan(child));
        if (size < headerSize || size > end - child)
            break;
        const FourCC type(std::uint32_t(readBigEndian(bytes.subspan(child + 4, 4))));
        // A path of no particular type: the first sample entry, whatever it is.
        if (type == path.front().type || path.front().type == FourCC()) {
            auto below = boxesOnPath(bytes, child, path.front().fieldsSize, path.subspan(1));
            if (!below.empty()) {
                below.insert(below.begin(), offset);
                return below;
            }
        }
        child += size;
    }
    return {};
}

void resize(std::vector<std::uint8_t>& moov, std::span<const std::size_t> boxes, std::ptrdiff_t change) {
    for (const auto offset : boxes)
        writeBigEndian(std::span(moov).subspan(offset, 4),
                       std::uint64_t(std::ptrdiff_t(boxSize(std::span(moov).subspan(offset))) + change));
}

// QuickTime's comment: header, length and language, text.
constexpr FourCC commentType(0xa9636d74); // "©cmt"
constexpr std::size_t commentOverhead = headerSize + 4;

} // namespace

void appendToSampleEntry(std::vector<std::uint8_t>& moov, std::size_t track, std::span<const std::uint8_t> boxes) {
    if (boxes.empty())
        return;
    constexpr std::size_t videoFieldsSize = 78, descriptionFieldsSize = 8;
    constexpr Step path[] = {{FourCC("mdia")},
                             {FourCC("minf")},
                             {FourCC("stbl")},
                             {FourCC("stsd"), descriptionFieldsSize},
                             {FourCC(), videoFieldsSize}};
    std::size_t index = 0;
    for (const auto& child : childrenOf({FourCC("moov"), moov})) {
        if (child.type != FourCC("trak") || index++ != track)
            continue;
        auto above = boxesOnPath(moov, std::size_t(child.bytes.data() - moov.data()), 0, path);
        if (above.empty())
            break;
        const auto entry = above.back();
        above.insert(above.begin(), 0);
        moov.insert(moov.begin() + std::ptrdiff_t(entry + boxSize(std::span(moov).subspan(entry))), boxes.begin(),
                    boxes.end());
        return resize(moov, above, std::ptrdiff_t(boxes.size()));
    }
    throw Error("A movie header without the sample entry of a track", std::string(mediaErrorDomain),
                mediaErrorCode::unknown);
}

std::size_t reservedCommentLength(std::size_t boxesSize) { return boxesSize + headerSize - commentOverhead; }

void removeComment(std::vector<std::uint8_t>& moov) {
    constexpr Step path[] = {{FourCC("udta")}, {commentType}};
    auto above = boxesOnPath(moov, 0, 0, path);
    if (above.empty())
        return;
    const auto comment = above.back();
    const auto size = boxSize(std::span(moov).subspan(comment));
    above.pop_back();
    const auto start = moov.begin() + std::ptrdiff_t(comment);
    moov.erase(start, start + std::ptrdiff_t(size));
    resize(moov, above, -std::ptrdiff_t(size));
}

void fillMovie(std::vector<std::uint8_t>& moov, std::size_t totalSize) {
    if (totalSize < moov.size() + headerSize)
        throw Error("A movie header without the room that was kept in it", std::string(mediaErrorDomain),
                    mediaErrorCode::unknown);
    const auto filling = freeBoxHeader(std::int64_t(totalSize - moov.size()));
    moov.insert(moov.end(), filling.begin(), filling.end());
    moov.resize(totalSize);
    writeBigEndian(std::span(moov).first(4), totalSize);
}

std::size_t boxSize(std::span<const std::uint8_t> box) { return std::size_t(readBigEndian(box.first(4))); }

std::vector<std::uint8_t> largeBoxHeader(FourCC type, std::int64_t totalSize) {
    std::vector<std::uint8_t> header(2 * headerSize);
    const std::span bytes(header);
    writeBigEndian(bytes.first(4), 1);
    writeBigEndian(bytes.subspan(4, 4), type.value);
    writeBigEndian(bytes.subspan(8, 8), std::uint64_t(totalSize));
    return header;
}

std::vector<std::uint8_t> freeBoxHeader(std::int64_t totalSize) {
    std::vector<std::uint8_t> header(headerSize);
    writeBigEndian(std::span(header).first(4), std::uint64_t(totalSize));
    writeBigEndian(std::span(header).subspan(4, 4), FourCC("free").value);
    return header;
}

} // namespace panoveer
