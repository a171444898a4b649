#include "Panoveer/Services/Export/ExportArtifactTransaction.h"

#include "Panoveer/Services/Export/StagedName.h"
#include "Platform/Core/Error.h"
#include "Platform/Core/FileDescriptor.h"
#include "Platform/Core/UUID.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <string>
#include <system_error>

namespace panoveer {

namespace {

bool exists(const URL& url) {
    struct stat status{};
    return lstat(url.path().c_str(), &status) == 0;
}

// What the copy that gets a movie's metadata adds to its name.
constexpr std::size_t metadataCopySuffixLength = std::string_view(".spatial-.tmp").size() + 36;

// rename, but a taken name is an error instead of being replaced: plain rename would swallow an empty folder. 0 or
// errno.
int renameToFreeName(const URL& from, const URL& to) {
    if (renameat2(AT_FDCWD, from.path().c_str(), AT_FDCWD, to.path().c_str(), RENAME_NOREPLACE) == 0)
        return 0;
    if (errno != EINVAL && errno != ENOSYS)
        return errno;
    // Network and FUSE file systems may not know the flag.
    if (exists(to))
        return EEXIST;
    return rename(from.path().c_str(), to.path().c_str()) == 0 ? 0 : errno;
}

} // namespace

URL ExportArtifactTransaction::stagedFileURL(const URL& url) {
    auto suffix = ".panoveer-" + UUID::random().text() + ".tmp";
    if (const auto extension = url.pathExtension(); !extension.empty())
        suffix += "." + extension;
    return url.deletingLastPathComponent().appendingPathComponent(
        fittingFileName(url.baseName(), suffix, metadataCopySuffixLength));
}

URL ExportArtifactTransaction::createStagedDirectory(const URL& directory) {
    const auto staged = directory.appendingPathComponent(".alpha-masks.panoveer-" + UUID::random().text() + ".tmp");
    std::error_code failure;
    std::filesystem::create_directories(staged.path(), failure);
    if (failure)
        throw posixError(staged.path().native(), failure.value());
    return staged;
}

void ExportArtifactTransaction::commitFile(const URL& staged, const URL& final) {
    synchronizeFile(staged);
    if (rename(staged.path().c_str(), final.path().c_str()) != 0)
        throw posixError(final.path().native(), errno);
    synchronizeDirectoryBestEffort(final.deletingLastPathComponent());
}

URL ExportArtifactTransaction::commitUniqueDirectory(const URL& staged, const URL& parent, std::string_view baseName) {
    for (int number = 1;; ++number) {
        const auto name = number == 1 ? std::string(baseName) : std::string(baseName) + " " + std::to_string(number);
        const auto target = parent.appendingPathComponent(name);
        if (moveToFreeName(staged, target)) {
            synchronizeDirectoryBestEffort(parent);
            return target;
        }
    }
}

bool ExportArtifactTransaction::moveToFreeName(const URL& from, const URL& to) {
    const auto failure = renameToFreeName(from, to);
    if (failure != 0 && failure != EEXIST && failure != ENOTEMPTY)
        throw posixError(to.path().native(), failure);
    return failure == 0;
}

void ExportArtifactTransaction::synchronizeFile(const URL& url) {
    const FileDescriptor file(open(url.path().c_str(), O_WRONLY | O_CLOEXEC));
    if (!file || fsync(file.get()) != 0)
        throw posixError(url.path().native(), errno);
}

void ExportArtifactTransaction::synchronizeDirectoryBestEffort(const URL& url) noexcept {
    const FileDescriptor directory(open(url.path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (directory)
        (void)fsync(directory.get());
}

} // namespace panoveer
