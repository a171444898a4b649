#pragma once

#include "Panoveer/Services/Export/ByteStreams.h"
#include "Panoveer/Services/Export/MP4Box.h"

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace panoveer {

// Reads the box tree of an MP4 or QuickTime file, headers only: the content of "mdat" is never touched. The input may
// be hostile; nesting and the number of boxes are bounded. Throws SpatialVideoMetadataError, and what the source
// throws. Stateless, any thread.
struct MP4Parser {
    // A real tree of spatial metadata is eleven boxes deep, and a day of one-second fragments has 172,800 boxes.
    static constexpr int maximumDepth = 16;
    static constexpr std::size_t maximumBoxCount = 1 << 19;

    // The boxes between two offsets. Tags of `furtherContainers` are opened like those of MP4Tag::isContainer.
    static std::vector<MP4Box> parseBoxes(const ByteSource& source, std::uint64_t from, std::uint64_t to,
                                          std::span<const FourCC> furtherContainers = {});

    // The bytes of an audio sample entry's own fields, from its content range; none when its version is unknown or the
    // fields do not fit.
    static std::optional<std::uint64_t> audioSampleEntryPadding(const ByteSource& source, std::uint64_t contentStart,
                                                                std::uint64_t contentEnd);

    // At most `count` bytes of a box's content from an offset, from its payload or from the file; fewer at its end.
    static std::vector<std::uint8_t> readContent(const ByteSource& source, const MP4Box& box, std::uint64_t offset,
                                                 std::size_t count);

    // What kind of track a "trak" is: "vide", "soun", …; none without a whole handler box.
    static std::optional<FourCC> handlerType(const ByteSource& source, const MP4Box& track);
};

} // namespace panoveer
