#pragma once

#include "Panoveer/Services/Intake/MediaImportReport.h"
#include "Platform/Core/URL.h"

#include <array>
#include <compare>
#include <functional>
#include <span>
#include <stop_token>
#include <string>
#include <string_view>
#include <vector>

namespace panoveer {

// A drop, sorted. Order: as given, and within a folder as a file browser lists it.
struct MediaImportScan {
    std::vector<URL> videoURLs;
    std::vector<URL> projectURLs;
    std::vector<MediaImportSkippedItem> skipped;

    friend bool operator==(const MediaImportScan&, const MediaImportScan&) = default;
};

// Sorts whatever a person drops on the program into movies, projects and the rest, with a reason for each file of the
// rest, so that nothing disappears without a word. Holds no state: a scan is a function of the file system at that
// moment. Blocking; any thread but the main one, since files with unknown extensions are opened.
//
// Folders are walked to the bottom. Hidden files and folders are left out without a word, links to folders are not
// followed, so that no loop can arise, and a link to a file counts as that file. No folder counts as a file here:
// this system has no packages that its file browsers show as one.
class MediaImportScanner {
public:
    // Decides on a file whose extension says nothing.
    using VideoTest = std::function<bool(const URL&)>;

    // Raw recordings of cameras with several lenses; never movies, though they hold video tracks.
    static constexpr std::array<std::string_view, 3> unstitchedCameraExtensions{"360", "insp", "insv"};
    static constexpr std::array<std::string_view, 20> imageExtensions{
        "arw",  "bmp", "cr2", "cr3", "dng", "dpx", "exr", "gif", "heic", "heif",
        "jpeg", "jpg", "nef", "png", "psd", "raf", "tga", "tif", "tiff", "webp"};
    // Codecs by which a file with a video track is a still picture all the same.
    static constexpr std::array<std::string_view, 9> imageCodecs{"bmp",   "dpx", "exr",  "gif", "jpeg2000",
                                                                 "mjpeg", "png", "tiff", "webp"};

    // Pictures that are one sequence: same folder, same name but for the number at its end, same kind.
    struct SequenceKey {
        std::string folder;
        std::string stem;
        std::string pathExtension; // lower case

        friend auto operator<=>(const SequenceKey&, const SequenceKey&) = default;
    };

    // Never fails: what cannot be read is a skipped item. Throws Cancelled alone.
    static MediaImportScan scan(std::span<const URL> urls, const VideoTest& recognizesVideo = containsMovingPictures,
                                const std::stop_token& stop = {});

    // The test used unless another is given: a probe finds a picture size, a duration and a codec that is not one of
    // still pictures or text.
    static bool containsMovingPictures(const URL& url);
};

} // namespace panoveer
