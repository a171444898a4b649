#pragma once

#include "Platform/Core/FileDescriptor.h"

#include <filesystem>
#include <optional>

namespace panoveer {

// Tells other processes of this machine that a file or folder is in use, by flock(2): the system lets go of it when the
// process ends, however it ends. Only local file systems are locked. On a network one a lock may hold for one machine
// or for all, and nobody can tell. Renaming what is locked keeps the lock. Never waits long; does not throw.
class FileLock {
public:
    FileLock() = default;

    // In use, by as many as like. Holds nothing where there are no locks, or no such file.
    static FileLock shared(const std::filesystem::path& path);
    // The same for a file that is open already; false when it has lost its name to somebody who held the lock.
    static bool markInUse(int descriptor);

    // In use by nobody else, and by nobody else while this lives. No value when it is in use, or nobody can tell; a
    // symbolic link is never locked.
    static std::optional<FileLock> exclusive(const std::filesystem::path& path);

private:
    explicit FileLock(FileDescriptor descriptor) : descriptor_(std::move(descriptor)) {}

    FileDescriptor descriptor_;
};

} // namespace panoveer
