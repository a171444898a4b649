#pragma once

#include <unistd.h>

#include <utility>

namespace panoveer {

// Owns one POSIX file descriptor; -1 is none. Closes it on destruction, where a failure has nobody to tell: whoever
// must know that the last bytes arrived calls close() first.
class FileDescriptor {
public:
    FileDescriptor() = default;
    explicit FileDescriptor(int descriptor) : descriptor_(descriptor) {}
    FileDescriptor(FileDescriptor&& other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) {}
    FileDescriptor& operator=(FileDescriptor&& other) noexcept {
        std::swap(descriptor_, other.descriptor_);
        return *this;
    }
    ~FileDescriptor() { close(); }

    int get() const { return descriptor_; }
    explicit operator bool() const { return descriptor_ >= 0; }

    // 0, or -1 with errno set. The descriptor is gone either way.
    int close() { return descriptor_ < 0 ? 0 : ::close(std::exchange(descriptor_, -1)); }

private:
    int descriptor_ = -1;
};

} // namespace panoveer
