#include "Panoveer/Services/Export/StaleExportRecovery.h"

#include "Panoveer/Services/Export/ByteStreams.h"
#include "Panoveer/Services/Export/MP4Parser.h"
#include "Panoveer/Services/Export/PartialOutputRecovery.h"
#include "Platform/Core/FileLock.h"
#include "Platform/Core/Log.h"
#include "Platform/Core/UUID.h"

#include <algorithm>
#include <filesystem>
#include <string>

namespace panoveer {

namespace fs = std::filesystem;

namespace {

constexpr Logger logger("Export");
constexpr std::size_t uuidLength = 36;
constexpr std::string_view stagedMark = ".panoveer-";
constexpr std::string_view copyMark = ".spatial-";
constexpr std::string_view maskStem = ".alpha-masks";
constexpr std::string_view temporaryEnding = ".tmp";

// "film" of "film.panoveer-<uuid>.tmp", for that mark; UUIDs as they are written, in capitals.
std::optional<std::string_view> stemBefore(std::string_view mark, std::string_view name) {
    if (!name.ends_with(temporaryEnding))
        return std::nullopt;
    name.remove_suffix(temporaryEnding.size());
    if (name.size() < mark.size() + uuidLength)
        return std::nullopt;
    const auto text = name.substr(name.size() - uuidLength);
    const auto id = UUID::parse(text);
    name.remove_suffix(uuidLength);
    if (!id || id->text() != text || !name.ends_with(mark))
        return std::nullopt;
    name.remove_suffix(mark.size());
    return name;
}

// A movie that was completed and did not get its name: its index covers all of it, with no fragments to come.
bool isFinishedMovie(const URL& movie) {
    try {
        const FileByteSource source(movie);
        const auto boxes = MP4Parser::parseBoxes(source, 0, source.length());
        const auto header = std::ranges::find(boxes, FourCC("moov"), &MP4Box::type);
        return header != boxes.end() && !header->child(FourCC("mvex")) &&
               std::ranges::contains(boxes, FourCC("mdat"), &MP4Box::type) &&
               boxes.back().position + boxes.back().totalSize() == source.length();
    } catch (const std::exception&) {
        return false;
    }
}

class LoggedRecovery final : public ExportDiagnostics {
public:
    void record(std::string_view event, const DiagnosticFields&) override { logger.info("stale export: {}", event); }
};

void removeStaged(const fs::path& path) {
    std::error_code failure;
    fs::remove_all(path, failure);
    if (failure)
        logger.warning("cannot remove what an export left behind: {}", failure.message());
    else
        logger.info("removed what an export left behind: {}", path.filename().string());
}

std::optional<URL> settleMovie(const URL& staged, const StaleExportRecovery::StagedName& name) {
    const auto inUseByNobody = FileLock::exclusive(staged.path());
    if (!inUseByNobody)
        return std::nullopt;
    using Need = PartialOutputRecovery::Need;
    const bool isFinished = isFinishedMovie(staged);
    const bool isFragmented = name.extension == "mov";
    if (isFinished || isFragmented) {
        LoggedRecovery diagnostics;
        const auto final = staged.deletingLastPathComponent().appendingPathComponent(std::string(name.baseName) + "." +
                                                                                     std::string(name.extension));
        if (auto partial =
                PartialOutputRecovery(diagnostics)
                    .preservePartialOutput({.staged = staged, .final = final},
                                           isFinished ? Need::wholeFile : Need::completeFragment,
                                           isFinished ? "already_finalized_container" : "complete_movie_fragment"))
            return partial;
        if (isFinished || PartialOutputRecovery::containsCompleteMovieFragment(staged))
            return std::nullopt; // it could not be renamed
    }
    removeStaged(staged.path());
    return std::nullopt;
}

void settleMetadataCopy(const URL& copy, const URL& movie) {
    // The export that makes the copy holds the movie.
    std::error_code ignored;
    const auto movieInUseByNobody = FileLock::exclusive(movie.path());
    if (!movieInUseByNobody && fs::exists(fs::symlink_status(movie.path(), ignored)))
        return;
    if (const auto inUseByNobody = FileLock::exclusive(copy.path()))
        removeStaged(copy.path());
}

void settle(const URL& url, const StaleExportRecovery::StagedName& name, std::vector<URL>& partials) {
    std::error_code unknown;
    const auto status = fs::symlink_status(url.path(), unknown);
    if (name.kind == StaleExportRecovery::Kind::maskFolder) {
        if (const auto inUseByNobody = FileLock::exclusive(url.path()); inUseByNobody && fs::is_directory(status))
            removeStaged(url.path());
    } else if (fs::is_regular_file(status)) {
        if (name.kind == StaleExportRecovery::Kind::metadataCopy)
            settleMetadataCopy(url, url.deletingLastPathComponent().appendingPathComponent(name.movieName));
        else if (auto partial = settleMovie(url, name))
            partials.push_back(std::move(*partial));
    }
}

} // namespace

std::optional<StaleExportRecovery::StagedName> StaleExportRecovery::parse(std::string_view name) {
    if (const auto stem = stemBefore(stagedMark, name); stem == maskStem)
        return StagedName{.kind = Kind::maskFolder};
    if (const auto movie = stemBefore(copyMark, name)) {
        const auto original = parse(*movie);
        return original && original->kind == Kind::movie
                   ? std::optional(StagedName{.kind = Kind::metadataCopy, .movieName = *movie})
                   : std::nullopt;
    }
    for (const std::string_view extension : {"mov", "mp4"}) {
        const auto length = extension.size() + 1;
        if (name.size() <= length || !name.ends_with(extension) || name[name.size() - length] != '.')
            continue;
        if (const auto stem = stemBefore(stagedMark, name.substr(0, name.size() - length)); stem && !stem->empty())
            return StagedName{.kind = Kind::movie, .baseName = *stem, .extension = extension};
    }
    return std::nullopt;
}

std::vector<URL> StaleExportRecovery::recover(const URL& folder) noexcept {
    std::vector<URL> partials;
    try {
        std::vector<std::string> names;
        for (const auto& entry : fs::directory_iterator(folder.path()))
            if (auto name = entry.path().filename().string(); parse(name))
                names.push_back(std::move(name));
        // Copies before the movies that tell whose they are.
        const auto isMovie = [](const std::string& name) { return parse(name)->kind == Kind::movie; };
        std::ranges::sort(names);
        std::ranges::stable_sort(names, {}, isMovie);
        for (const auto& name : names)
            settle(folder.appendingPathComponent(name), *parse(name), partials);
    } catch (const std::exception& error) {
        logger.info("a folder was not looked through for exports that were killed: {}", error.what());
    }
    return partials;
}

} // namespace panoveer
