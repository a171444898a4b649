#pragma once

#include "Panoveer/Services/Export/MP4Parser.h"
#include "Platform/Core/URL.h"

#include <cstdint>
#include <vector>

namespace panoveer {

// The box tree of a whole movie file and the boxes in it that spatial metadata concerns. Pointers reach into the tree
// and live as long as it does, unmoved. Throws SpatialVideoMetadataError and what the source throws.
class MP4Movie {
public:
    // Fails for an empty file and for one without "moov" or "mdat".
    MP4Movie(const ByteSource& source, const URL& url);

    std::vector<MP4Box>& boxes() { return boxes_; }
    MP4Box& moov() { return boxes_[moovIndex_]; }
    std::size_t mediaDataIndex() const { return mediaDataIndex_; }

    // The first track of moving pictures; fails when there is none.
    MP4Box& videoTrack();
    // Sound tracks in file order.
    std::vector<MP4Box*> audioTracks();

    // The first sample entry that pictures are described by; fails when there is none that can hold boxes.
    MP4Box& videoSampleEntry();
    // The same for a sound track; null when there is none.
    static MP4Box* audioSampleEntry(MP4Box& track);

private:
    const ByteSource& source_;
    URL url_;
    std::vector<MP4Box> boxes_;
    std::size_t moovIndex_ = 0;
    std::size_t mediaDataIndex_ = 0;
};

} // namespace panoveer
