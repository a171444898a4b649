#include "Platform/Core/FileLock.h"

#include <fcntl.h>
#include <linux/magic.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/vfs.h>

#include <algorithm>
#include <array>
#include <cstdint>

namespace panoveer {

namespace {

// Of kernels outside of <linux/magic.h>.
constexpr std::uint32_t zfsMagic = 0x2fc12fc1;
constexpr std::uint32_t jfsMagic = 0x3153464a;
constexpr std::uint32_t bcachefsMagic = 0xca451a4e;
constexpr std::uint32_t ntfs3Magic = 0x7366746e;

bool isLocal(int descriptor) {
    constexpr std::array<std::uint32_t, 14> known = {
        EXT4_SUPER_MAGIC,  XFS_SUPER_MAGIC,   BTRFS_SUPER_MAGIC,     F2FS_SUPER_MAGIC,     TMPFS_MAGIC, RAMFS_MAGIC,
        MSDOS_SUPER_MAGIC, EXFAT_SUPER_MAGIC, OVERLAYFS_SUPER_MAGIC, REISERFS_SUPER_MAGIC, zfsMagic,    jfsMagic,
        bcachefsMagic,     ntfs3Magic};
    struct statfs system{};
    return fstatfs(descriptor, &system) == 0 && std::ranges::contains(known, std::uint32_t(system.f_type));
}

bool hasName(int descriptor) {
    struct stat status{};
    return fstat(descriptor, &status) == 0 && status.st_nlink > 0;
}

FileDescriptor openForLock(const std::filesystem::path& path) {
    return FileDescriptor(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC));
}

} // namespace

bool FileLock::markInUse(int descriptor) {
    // Whoever holds it alone is about to rename or remove it.
    if (!isLocal(descriptor) || flock(descriptor, LOCK_SH) != 0)
        return true;
    return hasName(descriptor);
}

FileLock FileLock::shared(const std::filesystem::path& path) {
    auto descriptor = openForLock(path);
    if (descriptor)
        markInUse(descriptor.get());
    return FileLock(std::move(descriptor));
}

std::optional<FileLock> FileLock::exclusive(const std::filesystem::path& path) {
    auto descriptor = openForLock(path);
    struct stat locked{}, named{};
    if (!descriptor || !isLocal(descriptor.get()) || flock(descriptor.get(), LOCK_EX | LOCK_NB) != 0 ||
        fstat(descriptor.get(), &locked) != 0 || lstat(path.c_str(), &named) != 0 || locked.st_dev != named.st_dev ||
        locked.st_ino != named.st_ino)
        return std::nullopt;
    return FileLock(std::move(descriptor));
}

} // namespace panoveer
