#include "Panoveer/Services/Export/MP4Movie.h"

#include "Panoveer/Services/Export/SpatialVideoMetadataError.h"

#include <algorithm>

namespace panoveer {

namespace {

// The first description of a track's samples whose tag passes; null when there is none that was opened.
MP4Box* sampleEntry(MP4Box& track, bool (*passes)(FourCC)) {
    auto* descriptions = track.descendant({"mdia", "minf", "stbl", "stsd"});
    if (!descriptions || !descriptions->children)
        return nullptr;
    const auto found =
        std::ranges::find_if(*descriptions->children, [&](const MP4Box& box) { return passes(box.type); });
    return found == descriptions->children->end() || !found->children ? nullptr : &*found;
}

} // namespace

MP4Movie::MP4Movie(const ByteSource& source, const URL& url) : source_(source), url_(url) {
    if (source.length() == 0)
        throw SpatialVideoMetadataError::emptyFile(url);
    boxes_ = MP4Parser::parseBoxes(source, 0, source.length());
    const auto indexOf = [&](FourCC tag) {
        const auto found = std::ranges::find(boxes_, tag, &MP4Box::type);
        if (found == boxes_.end())
            throw SpatialVideoMetadataError::missingBox(tag, url);
        return std::size_t(found - boxes_.begin());
    };
    moovIndex_ = indexOf("moov");
    mediaDataIndex_ = indexOf("mdat");
}

MP4Box& MP4Movie::videoTrack() {
    for (auto& box : *moov().children)
        if (box.type == FourCC("trak") && MP4Parser::handlerType(source_, box) == FourCC("vide"))
            return box;
    throw SpatialVideoMetadataError::noVideoTrack(url_);
}

std::vector<MP4Box*> MP4Movie::audioTracks() {
    std::vector<MP4Box*> tracks;
    for (auto& box : *moov().children)
        if (box.type == FourCC("trak") && MP4Parser::handlerType(source_, box) == FourCC("soun"))
            tracks.push_back(&box);
    return tracks;
}

MP4Box& MP4Movie::videoSampleEntry() {
    if (auto* entry = sampleEntry(videoTrack(), MP4Tag::isVideoSampleEntry))
        return *entry;
    throw SpatialVideoMetadataError::noVideoSampleEntry(url_);
}

MP4Box* MP4Movie::audioSampleEntry(MP4Box& track) { return sampleEntry(track, MP4Tag::isAudioSampleEntry); }

} // namespace panoveer
