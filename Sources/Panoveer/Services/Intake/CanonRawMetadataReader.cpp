#include "Panoveer/Services/Intake/CanonRawMetadataReader.h"

#include "Platform/Core/FileDescriptor.h"
#include "Platform/Core/FourCC.h"
#include "Platform/Core/Localization.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <limits>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace panoveer {

namespace {

// Bounds that no real movie comes near, so that a hostile file costs little: one entry a frame fills such a table in
// three days at 60 frames per second.
constexpr std::uint64_t maximumBoxCount = 1 << 16;
constexpr std::uint64_t maximumTableEntryCount = 1 << 24;
constexpr std::size_t pieceBytes = 64 << 10;

[[noreturn]] void fail(CanonRawMetadataError::Case reason) { throw CanonRawMetadataError(reason); }

std::uint32_t uint32At(std::span<const std::uint8_t> bytes, std::size_t offset) {
    return std::uint32_t(bytes[offset]) << 24 | std::uint32_t(bytes[offset + 1]) << 16 |
           std::uint32_t(bytes[offset + 2]) << 8 | std::uint32_t(bytes[offset + 3]);
}

std::uint64_t uint64At(std::span<const std::uint8_t> bytes, std::size_t offset) {
    return std::uint64_t(uint32At(bytes, offset)) << 32 | uint32At(bytes, offset + 4);
}

double fixed16_16At(std::span<const std::uint8_t> bytes, std::size_t offset) {
    return double(uint32At(bytes, offset)) / 65536.0;
}

// ISO/IEC 14496-12, 8.2.2.3 and 8.4.2.3: all ones say that the duration cannot be determined.
std::optional<std::uint64_t> durationAt(std::span<const std::uint8_t> bytes, std::size_t offset, int version) {
    if (version == 1) {
        const auto duration = uint64At(bytes, offset);
        return duration == std::numeric_limits<std::uint64_t>::max() ? std::nullopt : std::optional(duration);
    }
    const auto duration = uint32At(bytes, offset);
    return duration == std::numeric_limits<std::uint32_t>::max() ? std::nullopt
                                                                 : std::optional<std::uint64_t>(duration);
}

std::uint64_t checkedSum(std::uint64_t left, std::uint64_t right) {
    std::uint64_t sum = 0;
    if (__builtin_add_overflow(left, right, &sum))
        fail(CanonRawMetadataError::Case::invalidBox);
    return sum;
}

struct ISOBox {
    FourCC type;
    std::uint64_t offset = 0; // of the header's first byte in the file
    std::uint64_t size = 0;   // bytes, header included
    std::uint64_t headerSize = 0;

    std::uint64_t payload() const { return offset + headerSize; }
    std::uint64_t end() const { return offset + size; }
};

// A regular file, read at any place.
class MovieFile {
public:
    // A pipe that somebody named like a movie is opened without waiting for its writer, and refused.
    explicit MovieFile(const URL& url) : descriptor_(::open(url.path().c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK)) {
        struct stat status;
        if (!descriptor_ || ::fstat(descriptor_.get(), &status) != 0)
            throw posixError("open " + url.lastPathComponent(), errno);
        if (!S_ISREG(status.st_mode))
            fail(CanonRawMetadataError::Case::noVideoTrack);
        size_ = std::uint64_t(status.st_size);
    }

    std::uint64_t size() const { return size_; }

    // Fills as much of the buffer as the file has there.
    std::span<const std::uint8_t> read(std::uint64_t offset, std::span<std::uint8_t> buffer) const {
        std::size_t count = 0;
        while (count < buffer.size()) {
            const auto got =
                ::pread(descriptor_.get(), buffer.data() + count, buffer.size() - count, off_t(offset + count));
            if (got < 0 && errno != EINTR)
                throw posixError("read", errno);
            if (got == 0)
                break;
            count += got > 0 ? std::size_t(got) : 0;
        }
        return buffer.first(count);
    }

private:
    FileDescriptor descriptor_;
    std::uint64_t size_ = 0;
};

struct MovieHeader {
    std::optional<std::uint32_t> timescale; // units per second
    std::optional<std::uint64_t> duration;  // in units of the timescale
};

struct TrackInfo {
    std::optional<FourCC> handlerType;
    std::vector<FourCC> sampleEntryTypes;
    std::optional<double> width; // pixels
    std::optional<double> height;
    std::optional<std::uint64_t> trackDuration; // in units of the movie's timescale
    std::optional<std::uint32_t> mediaTimescale;
    std::optional<std::uint64_t> mediaDuration; // in units of mediaTimescale
    std::uint64_t sampleCount = 0;
    std::uint64_t sampleDuration = 0; // of all samples together, in units of mediaTimescale

    double duration(const MovieHeader& movie) const;
    double frameRate() const;
};

// Seconds, from the most exact statement that the file makes.
double TrackInfo::duration(const MovieHeader& movie) const {
    if (mediaDuration && mediaTimescale.value_or(0) != 0)
        return double(*mediaDuration) / *mediaTimescale;
    if (const auto stated = trackDuration ? trackDuration : movie.duration; stated && movie.timescale.value_or(0) != 0)
        return double(*stated) / *movie.timescale;
    if (sampleCount == 0)
        return 0;
    if (!mediaTimescale)
        return double(sampleCount) / 30.0;
    // Count over rate, with the rate written out; a rate of 0 (no timescale) has no duration to offer.
    return *mediaTimescale == 0 ? 0.0 : double(sampleDuration) / *mediaTimescale;
}

double TrackInfo::frameRate() const {
    if (!mediaTimescale || sampleCount == 0 || sampleDuration == 0)
        return 30.0;
    return double(*mediaTimescale) * double(sampleCount) / double(sampleDuration);
}

// moov
//  +- mvhd
//  +- trak
//      +- tkhd
//      +- mdia
//          +- mdhd
//          +- hdlr
//          +- minf
//              +- stbl
//                  +- stsd
//                  +- stts
class MovieParser {
public:
    explicit MovieParser(const MovieFile& file) : file_(file) {}

    CanonRawVideoMetadata parse() {
        const auto movie = findTopLevelBox(FourCC("moov"));
        if (!movie)
            fail(CanonRawMetadataError::Case::noVideoTrack);
        parseMovie(*movie);
        const auto* track = videoTrack();
        const double width = track ? track->width.value_or(0) : 0;
        const double height = track ? track->height.value_or(0) : 0;
        if (width <= 0 || height <= 0)
            fail(CanonRawMetadataError::Case::noVideoTrack);
        return {width, height, track->duration(header_), track->frameRate()};
    }

private:
    // No value where not even a header fits: writers pad containers with a few zero bytes.
    std::optional<ISOBox> readBoxHeader(std::uint64_t offset, std::uint64_t limit) {
        if (offset >= limit || limit - offset < 8)
            return std::nullopt;
        if (++boxCount_ > maximumBoxCount)
            fail(CanonRawMetadataError::Case::invalidBox);
        std::array<std::uint8_t, 16> buffer;
        const auto bytes = file_.read(offset, std::span(buffer).first(std::min<std::uint64_t>(16, limit - offset)));
        if (bytes.size() < 8)
            fail(CanonRawMetadataError::Case::invalidBox);
        ISOBox box{FourCC(uint32At(bytes, 4)), offset, uint32At(bytes, 0), 8};
        if (box.size == 1) {
            if (bytes.size() < 16)
                fail(CanonRawMetadataError::Case::invalidBox);
            box.size = uint64At(bytes, 8);
            box.headerSize = 16;
        } else if (box.size == 0) {
            box.size = limit - offset;
        }
        if (box.size < box.headerSize || box.size > limit - offset)
            fail(CanonRawMetadataError::Case::invalidBox);
        return box;
    }

    std::optional<ISOBox> findTopLevelBox(FourCC type) {
        auto box = readBoxHeader(0, file_.size());
        while (box && box->type != type)
            box = readBoxHeader(box->end(), file_.size());
        return box;
    }

    template<class Visit>
    void forEachChild(const ISOBox& parent, const Visit& visit) {
        forEachBox(parent.payload(), parent.end(), visit);
    }

    template<class Visit>
    void forEachBox(std::uint64_t offset, std::uint64_t limit, const Visit& visit) {
        while (const auto box = readBoxHeader(offset, limit)) {
            visit(*box);
            offset = box->end();
        }
    }

    // As much of a box's payload as the buffer takes.
    std::span<const std::uint8_t> readPayload(const ISOBox& box, std::span<std::uint8_t> buffer) const {
        const auto wanted = std::min<std::uint64_t>(buffer.size(), box.end() - box.payload());
        return file_.read(box.payload(), buffer.first(wanted));
    }

    void parseMovie(const ISOBox& movie) {
        forEachChild(movie, [&](const ISOBox& box) {
            if (box.type == FourCC("mvhd"))
                header_ = parseTimes(box);
            else if (box.type == FourCC("trak"))
                tracks_.push_back(parseTrack(box));
        });
    }

    TrackInfo parseTrack(const ISOBox& trak) {
        TrackInfo track;
        forEachChild(trak, [&](const ISOBox& box) {
            if (box.type == FourCC("tkhd"))
                parseTrackHeader(box, track);
            else if (box.type == FourCC("mdia"))
                parseMedia(box, track);
        });
        return track;
    }

    void parseMedia(const ISOBox& media, TrackInfo& track) {
        forEachChild(media, [&](const ISOBox& box) {
            if (box.type == FourCC("mdhd"))
                parseMediaHeader(box, track);
            else if (box.type == FourCC("hdlr"))
                parseHandler(box, track);
            else if (box.type == FourCC("minf"))
                forEachChild(box, [&](const ISOBox& table) {
                    if (table.type == FourCC("stbl"))
                        parseSampleTable(table, track);
                });
        });
    }

    void parseSampleTable(const ISOBox& sampleTable, TrackInfo& track) {
        forEachChild(sampleTable, [&](const ISOBox& box) {
            if (box.type == FourCC("stsd"))
                parseSampleEntryTypes(box, track);
            else if (box.type == FourCC("stts"))
                parseTimeToSample(box, track);
        });
    }

    // The timescale and duration of mvhd (8.2.2) and mdhd (8.4.2), which begin alike.
    MovieHeader parseTimes(const ISOBox& box) const {
        std::array<std::uint8_t, 32> buffer;
        const auto bytes = readPayload(box, buffer);
        const int version = bytes.empty() ? 0 : bytes[0];
        if (bytes.size() < (version == 1 ? 32u : 20u))
            return {};
        const std::size_t timescale = version == 1 ? 20 : 12;
        return {uint32At(bytes, timescale), durationAt(bytes, timescale + 4, version)};
    }

    void parseMediaHeader(const ISOBox& box, TrackInfo& track) const {
        const auto times = parseTimes(box);
        track.mediaTimescale = times.timescale;
        track.mediaDuration = times.duration;
    }

    // 8.3.2
    void parseTrackHeader(const ISOBox& box, TrackInfo& track) const {
        std::array<std::uint8_t, 96> buffer;
        const auto bytes = readPayload(box, buffer);
        const int version = bytes.empty() ? 0 : bytes[0];
        if (bytes.size() < (version == 1 ? 96u : 84u))
            return;
        track.trackDuration = durationAt(bytes, version == 1 ? 28 : 20, version);
        track.width = fixed16_16At(bytes, version == 1 ? 88 : 76);
        track.height = fixed16_16At(bytes, version == 1 ? 92 : 80);
    }

    // 8.4.3
    void parseHandler(const ISOBox& box, TrackInfo& track) const {
        std::array<std::uint8_t, 12> buffer;
        if (const auto bytes = readPayload(box, buffer); bytes.size() == buffer.size())
            track.handlerType = FourCC(uint32At(bytes, 8));
    }

    // 8.5.2: version, flags and a count, then the entries, which are boxes.
    void parseSampleEntryTypes(const ISOBox& box, TrackInfo& track) {
        forEachBox(box.payload() + 8, box.end(),
                   [&](const ISOBox& entry) { track.sampleEntryTypes.push_back(entry.type); });
    }

    // 8.6.1.2. Where the count promises more than the box holds, what is there counts.
    void parseTimeToSample(const ISOBox& box, TrackInfo& track) {
        std::array<std::uint8_t, 8> head;
        if (readPayload(box, head).size() < head.size())
            return;
        auto offset = box.payload() + head.size();
        auto remaining = std::min<std::uint64_t>(uint32At(head, 4), (box.end() - offset) / 8);
        entryCount_ += remaining;
        if (entryCount_ > maximumTableEntryCount)
            fail(CanonRawMetadataError::Case::invalidBox);
        std::vector<std::uint8_t> piece(std::min<std::uint64_t>(remaining * 8, pieceBytes));
        while (remaining > 0) {
            const auto wanted = std::min<std::uint64_t>(remaining * 8, pieceBytes);
            const auto bytes = file_.read(offset, std::span(piece).first(wanted));
            if (bytes.size() < wanted)
                fail(CanonRawMetadataError::Case::invalidBox);
            for (std::size_t i = 0; i < bytes.size(); i += 8) {
                const std::uint64_t count = uint32At(bytes, i);
                track.sampleCount = checkedSum(track.sampleCount, count);
                track.sampleDuration = checkedSum(track.sampleDuration, count * uint32At(bytes, i + 4));
            }
            offset += wanted;
            remaining -= wanted / 8;
        }
    }

    const TrackInfo* videoTrack() const {
        auto found = std::ranges::find(tracks_, FourCC("vide"), &TrackInfo::handlerType);
        if (found == tracks_.end())
            found = std::ranges::find_if(tracks_, [](const TrackInfo& track) {
                return std::ranges::find(track.sampleEntryTypes, FourCC("CRAW")) != track.sampleEntryTypes.end();
            });
        return found == tracks_.end() ? nullptr : &*found;
    }

    const MovieFile& file_;
    MovieHeader header_;
    std::vector<TrackInfo> tracks_;
    std::uint64_t boxCount_ = 0;
    std::uint64_t entryCount_ = 0;
};

} // namespace

CanonRawMetadataError::CanonRawMetadataError(Case reason)
    : Error(localized("error.metadata.no_video_track")), reason_(reason) {}

CanonRawVideoMetadata CanonRawMetadataReader::read(const URL& url) {
    const MovieFile file(url);
    return MovieParser(file).parse();
}

} // namespace panoveer
