#pragma once

#include "Platform/Core/UUID.h"

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace panoveer {

// Why an item of an import was left out, with what the report says of it.
struct MediaImportSkipReason {
    enum class Case {
        imageSequence,            // numbered pictures that belong together
        unreadable,               // missing, or its folder or its tracks cannot be read
        unstitchedCameraOriginal, // needs its camera maker's stitcher first
        photo,
        noVideo,
        emptyFolder, // a folder in which nothing of interest lies
    };

    Case value = Case::noVideo;
    std::int64_t frameCount = 0; // pictures in an imageSequence, at least 2; otherwise 0
    std::string message;         // the whole text for an unreadable item, already localised; otherwise empty

    MediaImportSkipReason() = default;
    MediaImportSkipReason(Case reason) : value(reason) {}
    static MediaImportSkipReason imageSequence(std::int64_t frameCount);
    static MediaImportSkipReason unreadable(std::string message);

    friend bool operator==(const MediaImportSkipReason&, const MediaImportSkipReason&) = default;
};

// What a report says of it, in the language in force: one sentence, or two when there is something to be done.
std::string describe(const MediaImportSkipReason& reason);

struct MediaImportSkippedItem {
    std::string name; // as the person knows the item: its last path component
    MediaImportSkipReason reason;

    friend bool operator==(const MediaImportSkippedItem&, const MediaImportSkippedItem&) = default;
};

// What an import tells the person in the end: how much came in, and what stayed out and why. A value, shown once.
struct MediaImportReport {
    // The items that message() spells out; the others are only counted.
    static constexpr std::size_t listedItemLimit = 8;

    UUID id;
    std::int64_t importedCount = 0; // movies
    std::vector<MediaImportSkippedItem> skipped;

    // In the language in force at the call.
    std::string title() const;
    // One line for each of the first skipped items; no value when nothing was skipped.
    std::optional<std::string> message() const;

    friend bool operator==(const MediaImportReport&, const MediaImportReport&) = default;
};

} // namespace panoveer
