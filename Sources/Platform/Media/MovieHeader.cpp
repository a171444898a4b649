#include "Platform/Media/MovieHeader.h"

#include "Platform/Core/Error.h"
#include "Platform/Media/MediaSupport.h"
#include "Platform/Media/MovieBox.h"

namespace panoveer {

namespace {

constexpr std::size_t headerSize = movieBoxHeaderSize;

using Box = MovieBox;

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

void appendToSampleEntry(std::vector<std::uint8_t>& moov, std::size_t track, std::span<const std::uint8_t> boxes) {
    if (boxes.empty())
        return;
    constexpr std::size_t sampleDescriptionOwnBytes = 8;
    std::vector<Box> above = {{FourCC("moov"), moov}};
    const auto step = [&](const std::vector<Box>& candidates, std::size_t index) {
        if (index >= candidates.size())
            throw Error("A movie header without the sample entry of a track", std::string(mediaErrorDomain),
                        mediaErrorCode::unknown);
        above.push_back(candidates[index]);
    };
    const auto children = [&](FourCC type) {
        auto found = childrenOf(above.back());
        std::erase_if(found, [&](const Box& box) { return box.type != type; });
        return found;
    };
    step(children(FourCC("trak")), track);
    for (const FourCC type : {FourCC("mdia"), FourCC("minf"), FourCC("stbl"), FourCC("stsd")})
        step(children(type), 0);
    step(childrenOf(above.back(), sampleDescriptionOwnBytes), 0);
    const auto end = above.back().bytes.data() + above.back().bytes.size() - moov.data();
    for (const auto& box : above)
        writeBigEndian(box.bytes.first(4), box.bytes.size() + boxes.size());
    moov.insert(moov.begin() + end, boxes.begin(), boxes.end());
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
