#pragma once

#include "Platform/Core/URL.h"

#include <string_view>

namespace panoveer {

// How an export reaches its final name: it grows under a staged name beside it, and a rename makes it visible at once
// and whole. Stateless, any thread; blocking. Failures are Errors in posixErrorDomain; a failed commit leaves what was
// staged where it is, and nothing here deletes a final name.
struct ExportArtifactTransaction {
    // film.mov becomes film.panoveer-<uuid>.tmp.mov: the same folder, hence the same volume, and the same extension,
    // by which writers choose the container.
    static URL stagedFileURL(const URL& url);

    // A new hidden folder, made with the folders above it.
    static URL createStagedDirectory(const URL& directory);

    // Brings the bytes to stable storage, then the file to its final name, replacing what has that name.
    static void commitFile(const URL& staged, const URL& final);

    // Brings a folder into `parent` under `baseName`, or "baseName 2", "baseName 3", … when names are taken. Never
    // merges into or replaces a folder. Returns the final folder.
    static URL commitUniqueDirectory(const URL& staged, const URL& parent, std::string_view baseName);

    // Renames a file or folder unless the name is taken; false when it is.
    static bool moveToFreeName(const URL& from, const URL& to);

    static void synchronizeFile(const URL& url);
    static void synchronizeDirectoryBestEffort(const URL& url) noexcept;
};

} // namespace panoveer
