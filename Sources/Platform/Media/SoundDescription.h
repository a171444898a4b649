#pragma once

#include "Platform/Core/URL.h"
#include "Platform/Media/AudioChannelLayout.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

// What `moov` says of sound besides what libavformat reads and writes. Not for other layers.
namespace panoveer {

struct SoundDescription {
    std::uint32_t trackID = 0;
    // QuickTime File Format, "Audio channel layout atom" (`chan`).
    std::optional<AudioChannelLayout> layout;
    std::optional<std::string> languageCode;        // `mdhd`, ISO 639-2/T
    std::optional<std::string> extendedLanguageTag; // `elng`, BCP 47
};

// Of all sound tracks of a QuickTime or MP4 file, without the language code; empty where it has no `moov`, or a damaged
// one.
std::vector<SoundDescription> readSoundDescriptions(const URL& movie);

// The most that describeSound adds to a `moov`.
std::size_t largestGrowth(const SoundDescription& description);

// Writes the description into its track of a `moov` (the whole box, with a 32-bit size), if there is one. The layout
// goes into `chan`, of a QuickTime sample entry, or into `chnl` of one that has that, if it is not one of loudspeakers.
// Throws Error when the box is not laid out as a `moov` should be.
void describeSound(std::vector<std::uint8_t>& moov, const SoundDescription& description);

} // namespace panoveer
