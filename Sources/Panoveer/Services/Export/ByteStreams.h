#pragma once

#include "Platform/Core/FileDescriptor.h"
#include "Platform/Core/URL.h"

#include <cstddef>
#include <cstdint>
#include <span>

namespace panoveer {

// Bytes that can be read at any offset: a file, or memory. One thread at a time.
class ByteSource {
public:
    virtual ~ByteSource() = default;

    virtual std::uint64_t length() const = 0;
    // Fills as much of `bytes` as lies before the end and says how much that was. Throws Error in posixErrorDomain.
    virtual std::size_t read(std::uint64_t offset, std::span<std::uint8_t> bytes) const = 0;
    // The file behind the source, or -1: a sink may let the kernel copy from it.
    virtual int fileDescriptor() const { return -1; }
};

// Bytes that are written one behind the other. One thread at a time; failures are Errors in posixErrorDomain.
class ByteSink {
public:
    virtual ~ByteSink() = default;

    virtual void write(std::span<const std::uint8_t> bytes) = 0;
    // Appends a range of a source, as much of it as lies before the source's end, and says how much that was.
    virtual std::uint64_t copy(const ByteSource& source, std::uint64_t offset, std::uint64_t count);
    // Bytes written so far.
    virtual std::uint64_t position() const = 0;
};

// Borrows memory.
class MemoryByteSource final : public ByteSource {
public:
    explicit MemoryByteSource(std::span<const std::uint8_t> bytes) : bytes_(bytes) {}

    std::uint64_t length() const override { return bytes_.size(); }
    std::size_t read(std::uint64_t offset, std::span<std::uint8_t> bytes) const override;

private:
    std::span<const std::uint8_t> bytes_;
};

// A regular file opened for reading; its length is the one at the time of opening.
class FileByteSource final : public ByteSource {
public:
    // Throws Error in posixErrorDomain; a folder or a device counts as EISDIR or EINVAL.
    explicit FileByteSource(const URL& url);

    std::uint64_t length() const override { return length_; }
    std::size_t read(std::uint64_t offset, std::span<std::uint8_t> bytes) const override;
    int fileDescriptor() const override { return descriptor_.get(); }

private:
    FileDescriptor descriptor_;
    std::uint64_t length_ = 0;
};

// A new file, which must not exist yet. What is copied from another file stays inside the kernel where the file systems
// allow that, and shares its blocks where they can.
class FileByteSink final : public ByteSink {
public:
    // `permissions` as in st_mode. Throws Error in posixErrorDomain.
    FileByteSink(const URL& url, unsigned permissions);

    void write(std::span<const std::uint8_t> bytes) override;
    std::uint64_t copy(const ByteSource& source, std::uint64_t offset, std::uint64_t count) override;
    std::uint64_t position() const override { return position_; }

    // Some file systems report a full disk only here.
    void close();

private:
    FileDescriptor descriptor_;
    std::uint64_t position_ = 0;
};

} // namespace panoveer
