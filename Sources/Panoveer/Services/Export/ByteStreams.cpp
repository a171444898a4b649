#include "Panoveer/Services/Export/ByteStreams.h"

#include "Platform/Core/Error.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <vector>

namespace panoveer {

namespace {

constexpr std::uint64_t copyBufferSize = 1 << 20;

// What copy_file_range answers where the kernel or one of the file systems cannot do it for this pair of files.
bool kernelCannotCopy(int errorNumber) {
    return errorNumber == EXDEV || errorNumber == EINVAL || errorNumber == ENOSYS || errorNumber == EOPNOTSUPP ||
           errorNumber == EPERM;
}

} // namespace

std::uint64_t ByteSink::copy(const ByteSource& source, std::uint64_t offset, std::uint64_t count) {
    std::vector<std::uint8_t> buffer(std::min(count, copyBufferSize));
    std::uint64_t copied = 0;
    while (copied < count) {
        const auto wanted = std::min<std::uint64_t>(count - copied, buffer.size());
        const auto got = source.read(offset + copied, std::span(buffer).first(wanted));
        write(std::span(buffer).first(got));
        copied += got;
        if (got < wanted)
            break;
    }
    return copied;
}

std::size_t MemoryByteSource::read(std::uint64_t offset, std::span<std::uint8_t> bytes) const {
    if (offset >= bytes_.size())
        return 0;
    const auto available = bytes_.subspan(offset).first(std::min<std::uint64_t>(bytes.size(), bytes_.size() - offset));
    std::ranges::copy(available, bytes.begin());
    return available.size();
}

// Not blocking: a named pipe without a writer would never open. It makes no difference to a file.
FileByteSource::FileByteSource(const URL& url)
    : descriptor_(open(url.path().c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK)) {
    struct stat status{};
    if (!descriptor_ || fstat(descriptor_.get(), &status) != 0)
        throw posixError(url.path().native(), errno);
    if (!S_ISREG(status.st_mode))
        throw posixError(url.path().native(), S_ISDIR(status.st_mode) ? EISDIR : EINVAL);
    length_ = std::uint64_t(status.st_size);
}

std::size_t FileByteSource::read(std::uint64_t offset, std::span<std::uint8_t> bytes) const {
    std::size_t done = 0;
    while (done < bytes.size()) {
        const auto got = pread(descriptor_.get(), bytes.data() + done, bytes.size() - done, off_t(offset + done));
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0)
            throw posixError("read", errno);
        if (got == 0)
            break;
        done += std::size_t(got);
    }
    return done;
}

FileByteSink::FileByteSink(const URL& url, unsigned permissions)
    : descriptor_(open(url.path().c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600)) {
    if (!descriptor_)
        throw posixError(url.path().native(), errno);
    // The process's mask would take bits away. A file system without permissions refuses; then its own hold.
    (void)!fchmod(descriptor_.get(), permissions & 0777);
}

void FileByteSink::write(std::span<const std::uint8_t> bytes) {
    while (!bytes.empty()) {
        const auto written = pwrite(descriptor_.get(), bytes.data(), bytes.size(), off_t(position_));
        if (written < 0 && errno == EINTR)
            continue;
        if (written < 0)
            throw posixError("write", errno);
        position_ += std::uint64_t(written);
        bytes = bytes.subspan(std::size_t(written));
    }
}

std::uint64_t FileByteSink::copy(const ByteSource& source, std::uint64_t offset, std::uint64_t count) {
    std::uint64_t copied = 0;
    while (source.fileDescriptor() >= 0 && copied < count) {
        auto from = off_t(offset + copied);
        auto to = off_t(position_);
        const auto done = copy_file_range(source.fileDescriptor(), &from, descriptor_.get(), &to, count - copied, 0);
        if (done < 0 && errno == EINTR)
            continue;
        if (done < 0 && !kernelCannotCopy(errno))
            throw posixError("write", errno);
        // Nothing copied is the end of the source, or a file system that only pretends: reading tells which.
        if (done <= 0)
            break;
        copied += std::uint64_t(done);
        position_ += std::uint64_t(done);
    }
    return copied == count ? copied : copied + ByteSink::copy(source, offset + copied, count - copied);
}

void FileByteSink::close() {
    if (descriptor_.close() != 0 && errno != EINTR)
        throw posixError("close", errno);
}

} // namespace panoveer
