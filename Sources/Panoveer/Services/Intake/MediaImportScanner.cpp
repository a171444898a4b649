#include "Panoveer/Services/Intake/MediaImportScanner.h"

#include "Panoveer/Services/Intake/FFmpegRuntime.h"
#include "Panoveer/Services/Intake/MediaFileSupport.h"
#include "Platform/Core/Error.h"
#include "Platform/Core/Localization.h"
#include "Platform/Core/Text.h"

#include <algorithm>
#include <filesystem>
#include <map>

namespace panoveer {

namespace fs = std::filesystem;

namespace {

constexpr std::string_view projectExtension = "pnvee";

// FFmpeg also draws text files as pictures (every .nfo beside a film is an "ansi" video to it) and gives every still
// picture a duration of one frame. The kinds that need no mention among the image codecs' common ones.
constexpr std::array<std::string_view, 23> otherStillCodecs{
    "ansi", "bintext", "gem", "hdr", "idf", "jpegls", "jpegxl",  "pam",   "pbm",  "pcx",  "pfm", "pgm",
    "phm",  "ppm",     "psd", "qoi", "sgi", "svg",    "sunrast", "targa", "wbmp", "xbin", "xwd"};

template<std::size_t count>
bool contains(const std::array<std::string_view, count>& list, std::string_view text) {
    return std::ranges::find(list, text) != list.end();
}

void throwIfCancelled(const std::stop_token& stop) {
    if (stop.stop_requested())
        throw Cancelled();
}

struct FolderListing {
    std::vector<URL> files;
    std::vector<std::pair<URL, std::string>> unreadable; // with the text for the person
};

void sortAsFileBrowsersDo(std::vector<URL>& urls) {
    std::vector<std::pair<std::string, URL>> keyed;
    keyed.reserve(urls.size());
    for (auto& url : urls)
        keyed.emplace_back(localizedStandardSortKey(url.path().native()), std::move(url));
    std::ranges::sort(keyed);
    std::ranges::transform(keyed, urls.begin(), [](auto& entry) { return std::move(entry.second); });
}

// The regular files below a folder that are not hidden, and the folders and links that cannot be followed.
FolderListing folderFiles(const URL& folder, const std::stop_token& stop) {
    FolderListing listing;
    std::vector<fs::path> pending{folder.path()};
    while (!pending.empty()) {
        const auto current = std::move(pending.back());
        pending.pop_back();
        std::error_code failure;
        for (fs::directory_iterator entry(current, failure), end; !failure && entry != end; entry.increment(failure)) {
            throwIfCancelled(stop);
            if (entry->path().filename().native().starts_with('.'))
                continue;
            std::error_code unknown;
            const bool isLink = entry->is_symlink(unknown);
            const auto type = entry->status(unknown).type();
            if (type == fs::file_type::directory && !isLink)
                pending.push_back(entry->path());
            else if (type == fs::file_type::regular)
                listing.files.push_back(URL::fromFilePath(entry->path()));
            else if (isLink && type != fs::file_type::directory) // its end is missing, or it goes round in circles
                listing.unreadable.emplace_back(URL::fromFilePath(entry->path()), localized("import.skip.missing"));
        }
        if (failure)
            listing.unreadable.emplace_back(URL::fromFilePath(current),
                                            localized("import.skip.unreadable_folder", failure.message()));
    }
    sortAsFileBrowsersDo(listing.files);
    std::ranges::sort(listing.unreadable);
    return listing;
}

// The pictures of an import as skipped items: first the single photos, then what carries a number, by folder.
std::vector<MediaImportSkippedItem> imageItems(const std::vector<URL>& images) {
    using Reason = MediaImportSkipReason;
    std::vector<MediaImportSkippedItem> items;
    std::map<MediaImportScanner::SequenceKey, std::vector<URL>> sequences;
    for (const auto& url : images) {
        const auto name = url.baseName();
        auto stem = withoutTrailingNumbers(name);
        if (stem.size() == name.size())
            items.push_back({url.lastPathComponent(), Reason::Case::photo});
        else
            sequences[{url.deletingLastPathComponent().path().string(), std::move(stem),
                       lowercased(url.pathExtension())}]
                .push_back(url);
    }
    for (const auto& [key, files] : sequences)
        items.push_back({files.front().lastPathComponent(), files.size() > 1
                                                                ? Reason::imageSequence(std::int64_t(files.size()))
                                                                : Reason(Reason::Case::photo)});
    return items;
}

// One scan on its way through the given URLs.
class ScanInProgress {
public:
    ScanInProgress(const MediaImportScanner::VideoTest& recognizesVideo, const std::stop_token& stop)
        : recognizesVideo_(recognizesVideo), stop_(stop) {}

    void add(const URL& url) {
        std::error_code unknown;
        switch (fs::status(url.path(), unknown).type()) {
        case fs::file_type::directory: addFolder(url); break;
        // A pipe, a socket or a device would hold up whoever opens it.
        case fs::file_type::fifo:
        case fs::file_type::socket:
        case fs::file_type::character:
        case fs::file_type::block: skip(url, MediaImportSkipReason::Case::noVideo); break;
        default: classifyFile(url); break;
        }
    }

    MediaImportScan finish() && {
        std::ranges::move(imageItems(images_), std::back_inserter(scan_.skipped));
        return std::move(scan_);
    }

private:
    void addFolder(const URL& folder) {
        const auto listing = folderFiles(folder, stop_);
        const auto before = scan_.videoURLs.size() + scan_.skipped.size() + images_.size();
        for (const auto& file : listing.files)
            classifyFile(file);
        for (const auto& [url, message] : listing.unreadable)
            skip(url, MediaImportSkipReason::unreadable(message));
        // Projects do not count: a folder of projects alone holds no media, and the report says so.
        if (scan_.videoURLs.size() + scan_.skipped.size() + images_.size() == before)
            skip(folder, MediaImportSkipReason::Case::emptyFolder);
    }

    void classifyFile(const URL& url) {
        throwIfCancelled(stop_);
        const auto extension = lowercased(url.pathExtension());
        std::error_code unknown;
        if (url.isFileURL() && extension == projectExtension)
            scan_.projectURLs.push_back(url);
        else if (MediaFileSupport::importableVideoPathExtensions.contains(extension))
            scan_.videoURLs.push_back(url);
        else if (contains(MediaImportScanner::unstitchedCameraExtensions, extension))
            skip(url, MediaImportSkipReason::Case::unstitchedCameraOriginal);
        else if (contains(MediaImportScanner::imageExtensions, extension))
            images_.push_back(url);
        else if (!fs::exists(url.path(), unknown))
            skip(url, MediaImportSkipReason::unreadable(localized("import.skip.missing")));
        else if (!recognizesVideo_(url))
            skip(url, MediaImportSkipReason::Case::noVideo);
        else
            scan_.videoURLs.push_back(url);
    }

    void skip(const URL& url, MediaImportSkipReason reason) {
        scan_.skipped.push_back({url.lastPathComponent(), std::move(reason)});
    }

    const MediaImportScanner::VideoTest& recognizesVideo_;
    const std::stop_token& stop_;
    MediaImportScan scan_;
    std::vector<URL> images_;
};

} // namespace

MediaImportScan MediaImportScanner::scan(std::span<const URL> urls, const VideoTest& recognizesVideo,
                                         const std::stop_token& stop) {
    ScanInProgress scan(recognizesVideo, stop);
    for (const auto& url : urls)
        scan.add(url);
    return std::move(scan).finish();
}

bool MediaImportScanner::containsMovingPictures(const URL& url) {
    try {
        const auto found = FFmpegRuntime::probe(url);
        const auto codec = lowercased(found.codecName);
        return found.width >= 1 && found.height >= 1 && found.duration > 0 && !contains(imageCodecs, codec) &&
               !contains(otherStillCodecs, codec);
    } catch (const Error&) {
        return false;
    }
}

} // namespace panoveer
