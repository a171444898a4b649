#pragma once

#include "Platform/Core/FourCC.h"

#include <cstdint>
#include <initializer_list>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace panoveer {

// The tags that the box tree is read by.
struct MP4Tag {
    static bool isContainer(FourCC tag);        // holds boxes, behind a padding for "stsd"
    static bool isVideoSampleEntry(FourCC tag); // 78 bytes of fields, then boxes
    static bool isAudioSampleEntry(FourCC tag); // fields by version, then boxes

    // As it may be shown to a person: bytes outside printable ASCII become "?".
    static std::string text(FourCC tag);
};

// One box of an MP4 or QuickTime file (ISO/IEC 14496-12, clause 4.2), parsed from a file or made here. A value: the
// tree below it belongs to it.
//
//   | size tag [64-bit size] | padding | child | child | … |      a container
//   | size tag [64-bit size] | content                     |      anything else; content stays in the file,
//                                                                 unless `payload` replaces it
class MP4Box {
public:
    FourCC type;
    std::uint64_t position = 0;    // offset of the box in its input file; 0 for a new box
    std::uint64_t headerSize = 8;  // 8, or 16 with a 64-bit size
    std::uint64_t contentSize = 0; // bytes behind the header
    std::uint64_t padding = 0;     // bytes of the content that are the box's own, ahead of its children
    std::optional<std::vector<MP4Box>> children;
    std::optional<std::vector<std::uint8_t>> payload;

    static MP4Box leaf(FourCC type, std::vector<std::uint8_t> payload);
    static MP4Box container(FourCC type, std::vector<MP4Box> children);

    std::uint64_t totalSize() const { return headerSize + contentSize; }
    std::uint64_t contentPosition() const { return position + headerSize; }

    // The first child with the tag, or null.
    template<class Self>
    auto child(this Self& self, FourCC tag) -> decltype(&self) {
        if (self.children)
            for (auto& box : *self.children)
                if (box.type == tag)
                    return &box;
        return nullptr;
    }

    // The first box at the end of a path of tags, or null.
    template<class Self>
    auto descendant(this Self& self, std::initializer_list<FourCC> path) -> decltype(&self) {
        auto* box = &self;
        for (auto tag : path)
            if (box = box->child(tag); !box)
                return nullptr;
        return box;
    }

    // Brings the content size of every box below, and then of this one, in line with what it will be written from.
    void recomputeSize();
};

} // namespace panoveer
