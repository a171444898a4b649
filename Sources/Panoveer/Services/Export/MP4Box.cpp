#include "Panoveer/Services/Export/MP4Box.h"

#include <algorithm>

namespace panoveer {

namespace {

constexpr FourCC containerTags[] = {"moov", "trak", "mdia", "minf", "stbl", "stsd", "proj", "sv3d"};

constexpr FourCC videoSampleEntries[] = {"avc1", "avc3", "hev1", "hvc1", "dvh1", "dvhe", "ap4h", "ap4x",
                                         "apch", "apcn", "apco", "apcs", "av01", "jpeg", "mp4v"};

constexpr FourCC audioSampleEntries[] = {"mp4a", "lpcm", "sowt", "twos", "in24", "in32", "fl32",
                                         "fl64", "ipcm", "fpcm", "alac", "Opus", "ac-3", "ec-3"};

} // namespace

bool MP4Tag::isContainer(FourCC tag) { return std::ranges::contains(containerTags, tag); }
bool MP4Tag::isVideoSampleEntry(FourCC tag) { return std::ranges::contains(videoSampleEntries, tag); }
bool MP4Tag::isAudioSampleEntry(FourCC tag) { return std::ranges::contains(audioSampleEntries, tag); }

std::string MP4Tag::text(FourCC tag) {
    auto text = tag.text();
    std::ranges::replace_if(text, [](char c) { return c < ' ' || c > '~'; }, '?');
    return text;
}

MP4Box MP4Box::leaf(FourCC type, std::vector<std::uint8_t> payload) {
    MP4Box box;
    box.type = type;
    box.contentSize = payload.size();
    box.payload = std::move(payload);
    return box;
}

MP4Box MP4Box::container(FourCC type, std::vector<MP4Box> children) {
    MP4Box box;
    box.type = type;
    box.children = std::move(children);
    box.recomputeSize();
    return box;
}

void MP4Box::recomputeSize() {
    if (payload)
        contentSize = payload->size();
    if (!children)
        return;
    contentSize = padding;
    for (auto& box : *children) {
        box.recomputeSize();
        contentSize += box.totalSize();
    }
}

} // namespace panoveer
