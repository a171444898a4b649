#include "Platform/Media/SoundDescription.h"

#include "Platform/Core/Error.h"
#include "Platform/Media/MediaSupport.h"
#include "Platform/Media/MovieBox.h"

#include <algorithm>
#include <array>
#include <fstream>
#include <span>
#include <string_view>

namespace panoveer {

namespace {

constexpr std::size_t largestHeader = 256 << 20; // bytes of a `moov` that is read
constexpr std::size_t sampleDescriptionOwnBytes = 8;
constexpr std::size_t versionAndFlagsSize = 4;
constexpr std::size_t channelLayoutHeadSize = 12;
constexpr std::size_t channelDescriptionSize = 20;
constexpr std::uint8_t unknownPosition = 127; // ISO/IEC 23091-3, OutputChannelPosition

constexpr std::array<FourCC, 4> sampleDescriptionPath = {"mdia", "minf", "stbl", "stsd"};

// What a sound sample entry holds in front of the boxes in it, by its version (QuickTime File Format, "Sound sample
// descriptions"): 28, 44 or 64 bytes.
std::size_t ownBytesOf(const MovieBox& entry) {
    constexpr std::array<std::size_t, 3> sizes = {28, 44, 64};
    const auto version = std::size_t(readBigEndian(entry.field(movieBoxHeaderSize + 8, 2)));
    return sizes[std::min(version, sizes.size() - 1)];
}

std::vector<MovieBox> tracksOf(const MovieBox& movie) {
    auto boxes = childrenOf(movie);
    std::erase_if(boxes, [](const MovieBox& box) { return box.type != FourCC("trak"); });
    return boxes;
}

MovieBox required(std::optional<MovieBox> box, std::string_view name) {
    if (!box)
        throw Error("A movie header without " + std::string(name), std::string(mediaErrorDomain),
                    mediaErrorCode::unknown);
    return *box;
}

std::uint32_t trackIDOf(const MovieBox& track) {
    const auto tkhd = required(childOf(track, "tkhd"), "tkhd");
    return std::uint32_t(readBigEndian(tkhd.field(movieBoxHeaderSize + (tkhd.version() == 1 ? 20 : 12), 4)));
}

std::optional<MovieBox> soundEntry(const MovieBox& track) {
    const auto stsd = descendantOf(track, sampleDescriptionPath);
    const auto entries = stsd ? childrenOf(*stsd, sampleDescriptionOwnBytes) : std::vector<MovieBox>();
    return entries.empty() ? std::nullopt : std::optional(entries.front());
}

void put32(std::vector<std::uint8_t>& bytes, std::uint32_t value) {
    for (int shift = 24; shift >= 0; shift -= 8)
        bytes.push_back(std::uint8_t(value >> shift));
}

std::vector<std::uint8_t> channelLayoutBox(const AudioChannelLayout& layout) {
    std::vector<std::uint8_t> payload(versionAndFlagsSize);
    put32(payload, layout.tag);
    put32(payload, layout.bitmap);
    put32(payload, std::uint32_t(layout.labels.size()));
    for (auto label : layout.labels) {
        put32(payload, label);
        payload.resize(payload.size() + channelDescriptionSize - 4);
    }
    return makeMovieBox("chan", payload);
}

std::optional<AudioChannelLayout> readChannelLayout(const MovieBox& chan) {
    const auto word = [&](std::size_t offset) {
        return std::uint32_t(readBigEndian(chan.field(movieBoxHeaderSize + versionAndFlagsSize + offset, 4)));
    };
    AudioChannelLayout layout{word(0), word(4), {}};
    const std::size_t count = word(8);
    for (std::size_t i = 0; i < count; ++i)
        layout.labels.push_back(word(channelLayoutHeadSize + i * channelDescriptionSize));
    return layout;
}

// ISO/IEC 14496-12, "Channel layout box", version 0: channels (1) whose places are listed (0), none of them known.
std::vector<std::uint8_t> placelessChannelsBox(int channelCount) {
    std::vector<std::uint8_t> payload(versionAndFlagsSize + 2 + std::size_t(channelCount));
    payload[versionAndFlagsSize] = 1;
    std::ranges::fill(std::span(payload).last(std::size_t(channelCount)), unknownPosition);
    return makeMovieBox("chnl", payload);
}

std::vector<std::uint8_t> languageTagBox(std::string_view tag) {
    std::vector<std::uint8_t> payload(versionAndFlagsSize + tag.size() + 1); // ends with a zero
    std::ranges::copy(tag, payload.begin() + versionAndFlagsSize);
    return makeMovieBox("elng", payload);
}

std::string readLanguageTag(const MovieBox& elng) {
    const auto text = elng.payload().subspan(std::min(versionAndFlagsSize, elng.payload().size()));
    return {text.begin(), std::ranges::find(text, std::uint8_t(0))};
}

// ISO/IEC 14496-12, "Media header box": three letters of five bits each. Und for what is no such code.
std::uint16_t packedLanguage(std::string_view code) {
    const bool isCode = code.size() == 3 && std::ranges::all_of(code, [](char c) { return c >= 'a' && c <= 'z'; });
    std::uint16_t packed = 0;
    for (char letter : isCode ? code : std::string_view("und"))
        packed = std::uint16_t(packed << 5 | (letter - 0x60));
    return packed;
}

// A `moov` of which one track is changed.
class HeaderEditor {
public:
    HeaderEditor(std::vector<std::uint8_t>& moov, std::uint32_t trackID) : moov_(moov), trackID_(trackID) {}

    std::optional<MovieBox> track() const {
        for (const auto& track : tracksOf({FourCC("moov"), moov_}))
            if (trackIDOf(track) == trackID_)
                return track;
        return std::nullopt;
    }
    // Puts a box in the place of another, or behind the last one in `parents`.
    void put(std::span<const MovieBox> parents, const std::optional<MovieBox>& old, std::span<const std::uint8_t> box) {
        const auto end = offsetOf(parents.back()) + parents.back().bytes.size();
        replace(parents, old ? offsetOf(*old) : end, old ? old->bytes.size() : 0, box);
    }
    void insertBehind(std::span<const MovieBox> parents, const MovieBox& sibling, std::span<const std::uint8_t> box) {
        replace(parents, offsetOf(sibling) + sibling.bytes.size(), 0, box);
    }

private:
    std::size_t offsetOf(const MovieBox& box) const { return std::size_t(box.bytes.data() - moov_.data()); }

    void replace(std::span<const MovieBox> parents, std::size_t at, std::size_t oldSize,
                 std::span<const std::uint8_t> box) {
        const auto resize = [&](std::span<std::uint8_t> size) {
            writeBigEndian(size, readBigEndian(size) + box.size() - oldSize);
        };
        resize(std::span(moov_).first(4));
        for (const auto& parent : parents)
            resize(parent.bytes.first(4));
        const auto start = moov_.begin() + std::ptrdiff_t(at);
        moov_.insert(moov_.erase(start, start + std::ptrdiff_t(oldSize)), box.begin(), box.end());
    }

    std::vector<std::uint8_t>& moov_;
    std::uint32_t trackID_;
};

void describeLayout(HeaderEditor& editor, const AudioChannelLayout& layout) {
    std::vector<MovieBox> parents = {required(editor.track(), "trak")};
    for (auto type : sampleDescriptionPath)
        parents.push_back(required(childOf(parents.back(), type), type.text()));
    const auto entry = required(soundEntry(parents.front()), "a sample entry");
    parents.push_back(entry);
    const auto ownBytes = ownBytesOf(entry);
    const auto chnl = childOf(entry, "chnl", ownBytes);
    if (!chnl)
        editor.put(parents, childOf(entry, "chan", ownBytes), channelLayoutBox(layout));
    else if (layout.expandedLabels().empty())
        editor.put(parents, chnl, placelessChannelsBox(layout.channelCount()));
}

void describeLanguage(HeaderEditor& editor, const SoundDescription& description) {
    const auto track = required(editor.track(), "trak");
    const auto mdia = required(childOf(track, "mdia"), "mdia");
    const auto mdhd = required(childOf(mdia, "mdhd"), "mdhd");
    const std::size_t offset = mdhd.version() == 1 ? 32 : 20;
    writeBigEndian(mdhd.field(movieBoxHeaderSize + offset, 2),
                   packedLanguage(description.languageCode.value_or("und")));
    if (description.extendedLanguageTag)
        editor.insertBehind(std::array{track, mdia}, mdhd, languageTagBox(*description.extendedLanguageTag));
}

// The `moov` of a file; empty when there is none.
std::vector<std::uint8_t> readMovieHeader(const URL& movie) {
    std::ifstream file(movie.path(), std::ios::binary);
    std::uint64_t position = 0;
    std::array<char, 2 * movieBoxHeaderSize> head{};
    while (file.seekg(std::streamoff(position)) && file.read(head.data(), movieBoxHeaderSize)) {
        const std::span bytes(reinterpret_cast<const std::uint8_t*>(head.data()), head.size());
        auto size = readBigEndian(bytes.first(4));
        const FourCC type(std::uint32_t(readBigEndian(bytes.subspan(4, 4))));
        if (size == 1 && file.read(head.data() + movieBoxHeaderSize, movieBoxHeaderSize))
            size = readBigEndian(bytes.subspan(8, 8));
        else if (type == FourCC("moov") && size <= largestHeader) {
            std::vector<std::uint8_t> moov(std::size_t(std::max<std::uint64_t>(size, movieBoxHeaderSize)));
            file.seekg(std::streamoff(position));
            file.read(reinterpret_cast<char*>(moov.data()), std::streamsize(moov.size()));
            return file ? moov : std::vector<std::uint8_t>();
        }
        if (size < movieBoxHeaderSize || position + size < position)
            break;
        position += size;
    }
    return {};
}

std::optional<SoundDescription> readSoundDescription(const MovieBox& track) {
    const auto hdlr = descendantOf(track, std::array<FourCC, 2>{"mdia", "hdlr"});
    if (!hdlr || readBigEndian(hdlr->field(movieBoxHeaderSize + 8, 4)) != FourCC("soun").value)
        return std::nullopt;
    SoundDescription description;
    description.trackID = trackIDOf(track);
    if (const auto elng = descendantOf(track, std::array<FourCC, 2>{"mdia", "elng"}))
        description.extendedLanguageTag = readLanguageTag(*elng);
    if (const auto entry = soundEntry(track))
        if (const auto chan = childOf(*entry, "chan", ownBytesOf(*entry)))
            description.layout = readChannelLayout(*chan);
    return description;
}

} // namespace

std::vector<SoundDescription> readSoundDescriptions(const URL& movie) {
    std::vector<SoundDescription> descriptions;
    try {
        auto moov = readMovieHeader(movie);
        if (moov.empty())
            return {};
        for (const auto& track : tracksOf({FourCC("moov"), moov}))
            if (auto description = readSoundDescription(track))
                descriptions.push_back(std::move(*description));
    } catch (const Error&) {
        // libavformat makes what it can of a damaged header; nothing is added to that.
    }
    return descriptions;
}

std::size_t largestGrowth(const SoundDescription& description) {
    std::size_t size = 0;
    if (description.layout)
        size += channelLayoutBox(*description.layout).size() + std::size_t(description.layout->channelCount());
    if (description.extendedLanguageTag)
        size += languageTagBox(*description.extendedLanguageTag).size();
    return size;
}

void describeSound(std::vector<std::uint8_t>& moov, const SoundDescription& description) {
    HeaderEditor editor(moov, description.trackID);
    if (!editor.track())
        return;
    if (description.layout)
        describeLayout(editor, *description.layout);
    describeLanguage(editor, description);
}

} // namespace panoveer
